#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "maintenance/compaction_steps.h"
#include "support/compacted_store.h"
#include "support/file_size_limit.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::CompactedStore;
using test::FileSizeLimit;
using test::MessageStore;
using test::WatchedConnection;

TEST(Compaction, AUserWithoutACountIsLeftAlone) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(2);
  const std::string before = store.FileBytes();
  EXPECT_EQ(CompactMessageFile(*store.connection(), store.messages_folder(), 7), 0);
  EXPECT_EQ(store.FileBytes(), before);
  EXPECT_EQ(store.Count(), 3);
}

TEST(Compaction, ADeletedSizeOfExactlyTheThresholdDoesNothingAndOneMoreCompacts) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(2);
  const size_t before = store.FileBytes().size();
  store.Dead(3'145'728);
  EXPECT_EQ(CompactMessageFile(*store.connection(), store.messages_folder(), 7), 0);
  EXPECT_EQ(store.FileBytes().size(), before);
  store.Dead(3'145'729);
  EXPECT_EQ(CompactMessageFile(*store.connection(), store.messages_folder(), 7), 0);
  EXPECT_LT(store.FileBytes().size(), before);
  store.ExpectNothingLost();
}

TEST(Compaction, RecordsFollowEachOtherWithoutGapsFromOne) {
  CompactedStore store;
  store.Fill(40);
  for (int id = 1; id <= 40; id += 3) store.Delete(id);
  EXPECT_EQ(store.Compact(), 0);
  store.ExpectNothingLost();
  store.ExpectNoGaps();
  EXPECT_EQ(store.Count("Cancellata<>0"), 0);
  EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
}

TEST(Compaction, TheLastRecordIsCopiedUpToTheEndOfTheFile) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(1);
  // What no row points at belongs to the record before it.
  const std::string tail = "left over from a store that was interrupted";
  WriteWholeFile(store.message_file(), store.FileBytes() + tail);
  EXPECT_EQ(store.Compact(), 0);
  store.ExpectNothingLost();
  EXPECT_TRUE(store.FileBytes().ends_with(tail));
}

TEST(Compaction, ARecordWhoseSuccessorIsDeletedGetsTheRightLength) {
  CompactedStore store;
  store.Fill(4);
  store.Delete(2);
  store.Delete(3);
  EXPECT_EQ(store.Compact(), 0);
  store.ExpectNothingLost();
  store.ExpectNoGaps();
}

TEST(Compaction, DeletedRowsGoAlsoThoseWithoutARecord) {
  CompactedStore store;
  store.Fill(2);
  store.connection()->Execute(
      "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella, Cancellata) VALUES "
      "(8, 7, -1, 1, -1), (9, 8, -1, 1, -1)");
  EXPECT_EQ(store.Compact(), 0);
  EXPECT_EQ(store.Count("id_mail=8"), 0);
  EXPECT_EQ(store.Count("id_mail=9"), 1) << "another user's rows stay";
}

TEST(Compaction, AHeaderWithoutARecordKeepsItsRow) {
  CompactedStore store;
  store.Fill(2);
  MailMessage header;
  header.LoadHeader(store.account(), 3, 10, "", "Subject: x\r\n\r\n");
  MailMessage::StoreOptions options;
  options.record = false;
  ASSERT_TRUE(store.Store(header, options));
  store.Delete(1);
  EXPECT_EQ(store.Compact(), 0);
  EXPECT_EQ(store.Position(header.Id()), -1);
}

TEST(Compaction, WithEverythingDeletedTheFileIsEmptyAndCanBeFilledAgain) {
  CompactedStore store;
  store.Fill(2);
  store.Delete(1);
  store.Delete(2);
  EXPECT_EQ(store.Compact(), 0);
  EXPECT_EQ(store.FileBytes(), "");
  store.Fill(2);
  store.ExpectNothingLost();
}

TEST(Compaction, TheCountOfDeadBytesIsNotReset) {
  CompactedStore store;
  store.Fill(2);
  store.Delete(1);
  EXPECT_EQ(store.Compact(), 0);
  EXPECT_EQ(FirstValue(*store.connection(), "SELECT dim_msg_canc_file FROM Pulizia").ToInt64(),
            kCompactionThreshold + 1);
}

TEST(Compaction, TheStatementsAreTheSystemsOwn) {
  CompactedStore store;
  store.Fill(2);
  store.Delete(1);
  store.Dead(kCompactionThreshold + 1);
  WatchedConnection watched(store.connection());
  EXPECT_EQ(CompactMessageFile(watched, store.messages_folder(), 7), 0);
  for (const char* statement :
       {"SELECT dim_msg_canc_file FROM Pulizia WHERE id_utente=7",
        "SELECT id_mail, body_scaricato, Cancellata FROM mail WHERE id_utente=7 AND "
        "body_scaricato<>-1 ORDER BY body_scaricato ASC",
        "DELETE FROM mail WHERE id_utente=7 AND Cancellata=-1"}) {
    EXPECT_EQ(std::ranges::count(watched.statements, statement) > 0, true) << statement;
  }
}

TEST(Compaction, ATemporaryFileLeftByAnEarlierRunIsOverwritten) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(1);
  WriteWholeFile(CompactedFilePath(store.messages_folder(), 7), std::string(1'000'000, 'o'));
  EXPECT_EQ(store.Compact(), 0);
  store.ExpectNothingLost();
  store.ExpectNoGaps();
}

TEST(Compaction, AMissingMessageFileIsRaised) {
  CompactedStore store;
  store.Fill(2);
  store.Delete(1);
  RemoveFile(store.message_file());
  EXPECT_THROW(store.Compact(), std::runtime_error);
  EXPECT_EQ(store.Count(), 2);
}

TEST(Compaction, ADatabaseWithoutTheTableIsRaised) {
  CompactedStore store;
  store.connection()->Execute("DROP TABLE Pulizia");
  EXPECT_THROW(CompactMessageFile(*store.connection(), store.messages_folder(), 7), DatabaseError);
}

TEST(Compaction, ARowThatPointsOutsideTheFileIsADoubtAndTheOldFileStays) {
  for (const char* position : {"0", "-7", "100000000", "2147483647"}) {
    CompactedStore store;
    store.Fill(4);
    store.Delete(2);
    const std::string before = store.FileBytes();
    store.connection()->Execute(std::string("UPDATE mail SET body_scaricato=") + position +
                                " WHERE id_mail=3");
    EXPECT_THROW(store.Compact(), std::runtime_error) << position;
    EXPECT_EQ(store.FileBytes(), before);
    EXPECT_EQ(store.Count(), 4);
    EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
  }
}

TEST(Compaction, ADamagedRecordIsCopiedAsItIs) {
  CompactedStore store;
  store.Fill(4);
  store.Delete(1);
  std::string bytes = store.FileBytes();
  const auto third = static_cast<size_t>(store.Position(3)) - 1;
  const auto fourth = static_cast<size_t>(store.Position(4)) - 1;
  bytes[third] = 99;  // no version of ours
  WriteWholeFile(store.message_file(), bytes);
  EXPECT_EQ(store.Compact(), 0);
  const std::string after = store.FileBytes();
  EXPECT_EQ(after.substr(static_cast<size_t>(store.Position(3)) - 1, fourth - third),
            bytes.substr(third, fourth - third));
  EXPECT_EQ(store.Loaded(4)->GetLastError(), 0);
}

TEST(Compaction, ARecordThatReachesIntoTheNextRowsPlaceIsCopiedWhole) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(1);
  // A row that points into the middle of the second record.
  store.connection()->Execute(
      "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella, body_scaricato, Cancellata) "
      "VALUES (50, 7, 1, 1, " +
      std::to_string(store.Position(2) + 20) + ", -1)");
  EXPECT_EQ(store.Compact(), 0);
  store.ExpectNothingLost();
}

TEST(Compaction, TwoRowsOfOneRecordEachKeepOne) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(1);
  store.connection()->Execute(
      "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella, body_scaricato) "
      "VALUES (50, 7, 1, 1, " +
      std::to_string(store.Position(2)) + ")");
  EXPECT_EQ(store.Compact(), 0);
  EXPECT_EQ(store.Loaded(50)->Subject(ETextFormat::TextFormat_Normal), "s2");
  EXPECT_EQ(store.Loaded(2)->Subject(ETextFormat::TextFormat_Normal), "s2");
  EXPECT_EQ(store.Loaded(3)->Subject(ETextFormat::TextFormat_Normal), "s3");
}

TEST(Compaction, AFullDiskIsRaisedAndNothingIsLost) {
  CompactedStore store;
  store.Fill(60);
  store.Delete(1);
  store.Dead(kCompactionThreshold + 1);
  {
    const FileSizeLimit limit(60'000);
    EXPECT_ANY_THROW(CompactMessageFile(*store.connection(), store.messages_folder(), 7));
  }
  EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
  store.ExpectNothingLost();
  EXPECT_EQ(store.Count(), 60);
}

TEST(Compaction, AMessageDeletedWhileItIsCopiedIsSeen) {
  CompactedStore store;
  store.Fill(6);
  store.Delete(1);
  store.Dead(kCompactionThreshold + 1);
  bool deleted = false;
  CompactMessageFile(*store.connection(), store.messages_folder(), 7, [&](const char* step) {
    if (std::string(step) != "read back" || deleted) return;
    deleted = true;
    store.Delete(4);
  });
  EXPECT_TRUE(deleted);
  store.ExpectNothingLost();
  store.ExpectNoGaps();
  EXPECT_EQ(store.Count(), 4);
}

TEST(Compaction, DeletedMessagesThatAreStillOnTheServerStayKnown) {
  CompactedStore store;
  store.Fill(6);
  store.connection()->Execute("UPDATE mail SET id_server=2, DwnldCorrettoFAQ=-1");
  store.connection()->Execute("UPDATE mail SET IdSulServer=-100 WHERE id_mail=2");
  store.connection()->Execute("UPDATE mail SET id_server=-1 WHERE id_mail=3");
  store.connection()->Execute(
      "UPDATE mail SET mittente='O''''Hara', IdSulServer=0 WHERE id_mail=1");
  for (const int id : {1, 2, 3, 4}) store.Delete(id);
  const auto row = store.connection()->Open("SELECT * FROM mail WHERE id_mail=4");
  const std::string received = row->Field("campo_received").ToText();
  row->Close();
  EXPECT_EQ(store.Compact(), 0);
  const auto known =
      store.connection()->Execute("SELECT * FROM messaggi_eliminati ORDER BY id_eliminato");
  ASSERT_FALSE(known->Eof());
  EXPECT_EQ(known->Field("id_eliminato").ToInt32(), 1);
  EXPECT_EQ(known->Field("id_server").ToInt32(), 2);
  EXPECT_EQ(known->Field("id_utente").ToInt32(), 7);
  EXPECT_EQ(known->Field("campo_MessageId").ToText(), "<s1@example.org>");
  EXPECT_EQ(known->Field("mittente").ToText(), "O''Hara");
  EXPECT_EQ(known->Field("oggetto").ToText(), "s1");
  EXPECT_EQ(known->Field("DwnldCorrettoFAQ").ToBool(), true);
  EXPECT_EQ(known->Field("data").ToText(), "05/03/2002 09:20:30");
  known->MoveNext();
  ASSERT_FALSE(known->Eof());
  EXPECT_EQ(known->Field("campo_received").ToText(), received);
  known->MoveNext();
  EXPECT_TRUE(known->Eof()) << "neither what left the server nor what was saved here";
}

TEST(Compaction, WithoutTheTableOfKnownMessagesItWorksAsEver) {
  CompactedStore store;
  store.Fill(3);
  store.Delete(1);
  store.connection()->Execute("DROP TABLE messaggi_eliminati");
  EXPECT_EQ(CompactMessageFile(*OpenDatabase(store.url()), store.messages_folder(), 7), 0);
  store.Dead(kCompactionThreshold + 1);
  EXPECT_EQ(CompactMessageFile(*OpenDatabase(store.url()), store.messages_folder(), 7), 0);
  store.ExpectNothingLost();
}

}  // namespace
}  // namespace korvane
