#include <gtest/gtest.h>

#include <thread>

#include "support/compacted_store.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::CompactedStore;
using test::WatchedConnection;

int64_t DeadBytes(const CompactedStore& store, int32_t user_id = 7) {
  return FirstValue(*store.connection(), "SELECT dim_msg_canc_file FROM Pulizia WHERE id_utente=" +
                                             std::to_string(user_id))
      .ToInt64()
      .value_or(-1);
}

TEST(RecordDeletedSize, TheFirstCallAddsARowWithIdentifier1InAnEmptyTable) {
  CompactedStore store;
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 7, 100));
  EXPECT_EQ(FirstValue(*store.connection(), "SELECT id_pulizia FROM Pulizia").ToInt32(), 1);
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 8, 100));
  EXPECT_EQ(FirstValue(*store.connection(), "SELECT MAX(id_pulizia) FROM Pulizia").ToInt32(), 2);
}

TEST(RecordDeletedSize, TheFirstTotalIsTheRowsAloneWhichHoldThisCallsMessagesAlready) {
  CompactedStore store;
  store.Fill(3);
  store.connection()->Execute("UPDATE mail SET dimensione=1000*id_mail");
  store.Delete(1);
  store.Delete(2);
  store.connection()->Execute(
      "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella, dimensione, Cancellata) "
      "VALUES (9, 7, 1, 1, 5000, -1)");  // without a record
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 7, 2000));
  EXPECT_EQ(DeadBytes(store), 3000);
}

TEST(RecordDeletedSize, WithNoDeletedRowsTheFirstTotalIsZero) {
  CompactedStore store;
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 7, 2000));
  EXPECT_EQ(DeadBytes(store), 0);
}

TEST(RecordDeletedSize, LaterCallsAddToTheRow) {
  CompactedStore store;
  store.Dead(10);
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 7, 100));
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 7, 1));
  EXPECT_EQ(DeadBytes(store), 111);
  EXPECT_TRUE(RecordDeletedSize(*store.connection(), 7, 2'147'483'647));
  EXPECT_EQ(DeadBytes(store), 2'147'483'647) << "the column holds no more";
}

TEST(RecordDeletedSize, TheStatementsAreTheSystemsOwn) {
  CompactedStore store;
  WatchedConnection watched(store.connection());
  RecordDeletedSize(watched, 7, 1);
  EXPECT_EQ(watched.statements,
            (std::vector<std::string>{
                "SELECT * FROM Pulizia WHERE id_utente=7",
                "SELECT SUM(dimensione) FROM mail WHERE id_utente=7 AND Cancellata=-1 AND "
                "body_scaricato<>-1",
                "SELECT MAX(id_pulizia) FROM Pulizia"}));
}

TEST(RecordDeletedSize, CallsAtTheSameTimeAllCount) {
  CompactedStore store;
  store.Dead(0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&store] {
      const auto connection = OpenDatabase(store.url());
      for (int k = 0; k < 10; ++k) EXPECT_TRUE(RecordDeletedSize(*connection, 7, 1));
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(DeadBytes(store), 40);
}

TEST(RecordDeletedSize, AFaultThatMayPassIsTriedAgainAndAnotherIsRaised) {
  CompactedStore store;
  WatchedConnection watched(store.connection());
  watched.FailAt("update", DatabaseError::Kind::kChanged, 2);
  EXPECT_TRUE(RecordDeletedSize(watched, 7, 1));
  watched.FailAt("update", DatabaseError::Kind::kOther);
  EXPECT_THROW(RecordDeletedSize(watched, 7, 1), DatabaseError);
}

}  // namespace
}  // namespace korvane
