// The recordset contract on the two servers, and what only servers do: deadlocks.
#include <gtest/gtest.h>

#include <barrier>

#include "frame/recordset_contract.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"

namespace korvane::test {
namespace {

void ClaimsHold(const std::string& url) {
  for (const Claim& claim : Claims()) {
    SCOPED_TRACE(claim.name);
    try {
      Engine engine(url);
      claim.check(engine);
    } catch (const std::exception& fault) {
      ADD_FAILURE() << fault.what();
    }
  }
}

void OneOfTwoThatWaitForEachOtherGivesWay(const std::string& url) {
  Engine engine(url);
  Add(*engine.connection, {.id = 1});
  Add(*engine.connection, {.id = 2});
  std::barrier both(2);
  std::atomic<int> deadlocks = 0;
  std::atomic<int> done = 0;
  const auto work = [&](int32_t first, int32_t second) {
    const auto connection = engine.Another();
    try {
      Transaction transaction(*connection);
      const auto change = [&](int32_t id) {
        const auto row = connection->Open(Row(id));
        row->SetField("dimensione", id);
        row->Update();
      };
      change(first);
      both.arrive_and_wait();
      change(second);
      transaction.Commit();
      ++done;
    } catch (const DatabaseError& fault) {
      EXPECT_EQ(fault.kind(), Kind::kDeadlock) << fault.what();
      EXPECT_TRUE(fault.Retryable());
      ++deadlocks;
    }
  };
  std::thread other(work, 2, 1);
  work(1, 2);
  other.join();
  EXPECT_EQ(deadlocks, 1);
  EXPECT_EQ(done, 1);
}

TEST(RecordsetOnPostgresql, TheContractHolds) {
  PostgresServer server;
  ClaimsHold(server.MakeDatabase("contract"));
  OneOfTwoThatWaitForEachOtherGivesWay(server.Url("contract"));
}

TEST(RecordsetOnPostgresql, AKeptStatementIsPlannedForTheRowsThatThereAre) {
  PostgresServer server;
  Engine engine(server.MakeDatabase("plans"));
  for (int32_t id = 1; id <= 10; ++id) Add(*engine.connection, {.id = id});
  const auto plans = [&](const std::string& kind) {
    return Number(FirstValue(*engine.connection, "SELECT SUM(" + kind +
                                                     "_plans) FROM pg_prepared_statements"
                                                     " WHERE CARDINALITY(parameter_types) > 0"));
  };
  EXPECT_GE(plans("custom"), 10);
  EXPECT_EQ(plans("generic"), 0);
}

template <class Server>
void ClaimsHoldThroughOdbc() {
  Server server;
  server.MakeDatabase("contract");
  const std::string url = server.OdbcUrl("contract");
  ClaimsHold(url);
  OneOfTwoThatWaitForEachOtherGivesWay(url);
  // The lock under which identifiers are made is one and the same for both ways to the database.
  const auto direct = OpenDatabase(server.Url("contract") + "&timeout=100");
  Engine engine(url);
  Transaction transaction(*engine.connection, Transaction::Kind::kAllocating);
  EXPECT_EQ(KindThrownBy([&] { direct->BeginAllocating(); }), Kind::kBusy);
}

TEST(RecordsetOnPostgresqlThroughOdbc, TheContractHolds) {
  ClaimsHoldThroughOdbc<PostgresServer>();
}

TEST(RecordsetOnMariadbThroughOdbc, TheContractHolds) { ClaimsHoldThroughOdbc<MariadbServer>(); }

TEST(RecordsetOnMariadb, TheContractHolds) {
  MariadbServer server;
  ClaimsHold(server.MakeDatabase("contract"));
  OneOfTwoThatWaitForEachOtherGivesWay(server.Url("contract"));
  // A password that is refused is not repeated.
  OpenDatabase(server.Url("contract"))->Execute("CREATE USER reader");
  try {
    std::string url = server.Url("contract");
    url.replace(url.find("root"), 4, "reader:a-secret-word");
    OpenDatabase(url);
    ADD_FAILURE() << "a wrong password was taken";
  } catch (const DatabaseError& fault) {
    EXPECT_THAT(fault.what(), testing::Not(testing::HasSubstr("secret")));
  }
}

}  // namespace
}  // namespace korvane::test
