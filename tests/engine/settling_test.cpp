// Settling an account after a run under look-ups, and looking everything up once more.
#include "engine_fixture.h"

namespace korvane::test {
namespace {

class Settling : public ServerTest {
 protected:
  /// A run as the command line makes it.
  int32_t Run(MailEngine::Options options, bool whole = true) {
    Request request(store);
    request.engine.SetOptions(options);
    whole ? request.SyncWhole() : request.SyncHeaders();
    return request.Error();
  }
  static constexpr MailEngine::Options kSettle{.settle = true, .deep = false};
  static constexpr MailEngine::Options kDeep{.settle = true, .deep = true};
};

TEST_F(Settling, AfterACompleteRunUnderLookUpsTheBookkeepingIsThatOfACleanFirstDownload) {
  Deliver(1, 20);
  EXPECT_EQ(Run(kSettle), 0);
  const auto kept = *store.Kept(account);
  EXPECT_EQ(kept.time, "05/03/2020 00:03:20");
  EXPECT_FALSE(kept.error);
  for (const auto& row : store.Rows()) EXPECT_TRUE(row.known_with_older);
  proxy->Forget();
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(proxy->Count("TOP "), 1) << "it stops at the first known message again";
  Deliver(21, 21);
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(Stored(), Expected(1, 21));
}

TEST_F(Settling, ARunThatIsCutSettlesNothingAndTheNextCompleteOneDoes) {
  Deliver(1, 12);
  proxy->Set({.cut_at_verb = "TOP 5 "});
  EXPECT_NE(Run(kSettle), 0);
  EXPECT_TRUE(store.Kept(account)->error);
  for (const auto& row : store.Rows()) EXPECT_FALSE(row.known_with_older);
  proxy->Clear();
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(Stored(), Expected(1, 12));
  // The newest on the server decides, not the last one stored.
  EXPECT_EQ(store.Kept(account)->time, "05/03/2020 00:02:00");
  EXPECT_FALSE(store.Kept(account)->error);
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(Stored(), Expected(1, 12));
}

TEST_F(Settling, ARunWhoseQuitIsNotAnsweredSettlesNothing) {
  Deliver(1, 3);
  proxy->Set({.cut_at_verb = "QUIT"});
  Run(kSettle);
  EXPECT_TRUE(store.Kept(account)->error);
}

TEST_F(Settling, WhereTheNewestMessagesTimeCannotBeReadTheFlagStaysAndScansAreShort) {
  Deliver(1, 5);
  dovecot.Deliver("bob", "Message-ID: <x@a>\nSubject: mail 6\n\nno time\n");
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_TRUE(store.Kept(account)->error);
  for (const auto& row : store.Rows()) EXPECT_TRUE(row.known_with_older);
  proxy->Forget();
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(proxy->Count("TOP "), 1);
  Deliver(7, 8);
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(Stored(), Expected(1, 8));
  EXPECT_FALSE(store.Kept(account)->error);
}

TEST_F(Settling, WithoutTheOptionNothingIsSettled) {
  Deliver(1, 3);
  EXPECT_EQ(Run({}), 0);
  EXPECT_TRUE(store.Kept(account)->error);
}

TEST_F(Settling, AnEmptyServerSettlesNothing) {
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_TRUE(store.Kept(account)->error);
}

TEST_F(Settling, ADeepRunFindsMailThatAWrongClockHidAndDoublesNothing) {
  // The clock that stamped this one was hours ahead.
  dovecot.Deliver("bob", Mail(1, 80'000));
  EXPECT_EQ(Run(kSettle), 0);
  Deliver(2, 4);
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_EQ(Stored(), Expected(1, 1)) << "older than the last download";
  EXPECT_EQ(Run(kDeep), 0);
  EXPECT_EQ(Stored(), Expected(1, 4));
  EXPECT_FALSE(store.Kept(account)->error);
  EXPECT_EQ(Run(kDeep), 0);
  EXPECT_EQ(Stored(), Expected(1, 4));
}

TEST_F(Settling, ADeepRunThatIsCutLeavesTheAccountUnderLookUps) {
  Deliver(1, 6);
  EXPECT_EQ(Run(kSettle), 0);
  proxy->Set({.cut_at_verb = "TOP 3 "});
  EXPECT_NE(Run(kDeep), 0);
  EXPECT_TRUE(store.Kept(account)->error);
  proxy->Clear();
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_FALSE(store.Kept(account)->error);
  EXPECT_EQ(Stored(), Expected(1, 6));
}

TEST_F(Settling, AnotherUsersAndAnotherAccountsRowsKeepTheirMarks) {
  Deliver(1, 2);
  Run({});
  const auto rows = store.Rows();
  store.Change(rows[0].id, "id_server", 4711);
  store.Change(rows[1].id, "id_utente", 8);
  EXPECT_EQ(Run(kSettle), 0);
  EXPECT_FALSE(store.RowOf(rows[0].id).known_with_older);
  EXPECT_FALSE(store.RowOf(rows[1].id).known_with_older);
}

}  // namespace
}  // namespace korvane::test
