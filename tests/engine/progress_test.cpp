// What a download says of its progress is true, with an account that reads ahead as without.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "engine/engine_fixture.h"
#include "engine/model_mailbox.h"
#include "pop3/selection_progress.h"

namespace korvane::test {
namespace {

/// The form of the host that the account has.
class Progress : public testing::TestWithParam<const char*> {
 protected:
  std::string Host() const { return std::string(GetParam()) + "://pop.example"; }
};

INSTANTIATE_TEST_SUITE_P(Pop3, Progress, testing::Values("pop3", "pop3+ahead"),
                         [](const auto& form) {
                           return std::string(form.param).size() > 4 ? "Ahead" : "LockStep";
                         });

TEST_P(Progress, OfASelectionGoesFromNothingToTheTotalAndNeverBack) {
  for (const bool whole : {true, false}) {
    Mailbox mailbox(200);
    mailbox.user->MailServer(Host());
    std::vector<SelectionProgress> told;
    mailbox.client.OnProgress([&](const SelectionProgress& now) { told.push_back(now); });
    mailbox.client.Connect();
    if (whole) {
      mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
    } else {
      mailbox.client.GetNewHeaders(mailbox.connection, kFirstDownload, false);
    }
    ASSERT_EQ(told.size(), 201U);
    EXPECT_EQ(told.front().looked_at, 0);
    EXPECT_EQ(told.front().Done(), 0);
    for (size_t i = 0; i < told.size(); ++i) {
      const auto messages = static_cast<int32_t>(i);
      EXPECT_EQ(told[i].looked_at, messages);
      EXPECT_EQ(told[i].taken, messages);
      EXPECT_EQ(told[i].total, 200);
      EXPECT_EQ(told[i].bytes, 100 * messages) << "as LIST counts them";
      EXPECT_EQ(told[i].all_bytes, 20'000);
      EXPECT_EQ(told[i].Done(), messages / 200.0);
      EXPECT_TRUE(told[i].to_the_end);
      EXPECT_EQ(told[i].whole, whole);
    }
    EXPECT_EQ(told.back().Done(), 1);
    EXPECT_EQ(told.back().SecondsLeft(10), 0);
  }
}

TEST_P(Progress, IsToldBeforeEachMessageAndNotInAdvance) {
  Mailbox mailbox(30);
  mailbox.user->MailServer(Host());
  std::vector<int32_t> told;
  mailbox.client.OnProgress([&](const SelectionProgress& now) { told.push_back(now.taken); });
  mailbox.odd = [&](const std::string& line) -> std::optional<ModelReply> {
    // Ten come, then nothing ever more: what was only asked for must not be told as done.
    if (line == "TOP 20 0") return ModelReply{"", ModelReply::Then::kDead, {}};
    return std::nullopt;
  };
  mailbox.client.Connect();
  const auto messages =
      mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  EXPECT_EQ(messages->Count(), 10);
  EXPECT_EQ(told.back(), 10);
}

TEST_P(Progress, OfARunThatMayEndEarlySaysSo) {
  Mailbox mailbox(100);
  mailbox.user->MailServer(Host());
  SelectionProgress last;
  mailbox.client.OnProgress([&](const SelectionProgress& now) { last = now; });
  mailbox.client.Connect();
  mailbox.client.GetNewMessages(mailbox.connection, "05/03/2020 00:01:30", false, "");
  EXPECT_FALSE(last.to_the_end);
  EXPECT_EQ(last.looked_at, 12) << "messages 90 to 100, and the one that ended it";
  EXPECT_EQ(last.taken, 11);
  EXPECT_EQ(last.total, 100);
}

TEST_P(Progress, OfASynchronisationEndsWithEverythingStored) {
  Store store;
  Store::Account row;
  row.host = Host();
  row.name = "bob";
  row.password = "secret";
  const int32_t account = store.Add(row);
  const Mailbox mailbox(250);
  Request request(store, account);
  SelectionProgress last;
  double done = 0;
  request.server->OnProgress([&](const SelectionProgress& now) {
    EXPECT_GE(now.Done(), done);
    done = now.Done();
    last = now;
  });
  int32_t stored = 0;
  request.engine.OnStored([&](int32_t now, int32_t total) {
    EXPECT_EQ(done, 1) << "all is here before the first is stored";
    EXPECT_GT(now, stored);
    EXPECT_EQ(total, 250);
    stored = now;
  });
  request.SyncWhole(true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(stored, 250);
  EXPECT_EQ(last.looked_at, 250);
  EXPECT_EQ(done, 1);
  EXPECT_EQ(store.Rows().size(), 250U);
}

SelectionProgress At(int32_t looked_at, int32_t total, int64_t bytes, int64_t all_bytes) {
  SelectionProgress progress;
  progress.looked_at = looked_at;
  progress.total = total;
  progress.bytes = bytes;
  progress.all_bytes = all_bytes;
  progress.whole = true;
  return progress;
}

TEST(SelectionProgress, WholeMessagesCountByTheirBytesAndHeadersByTheirNumber) {
  SelectionProgress progress = At(5, 10, 90, 100);
  EXPECT_EQ(progress.Done(), 0.9);
  progress.whole = false;
  EXPECT_EQ(progress.Done(), 0.5);
}

TEST(SelectionProgress, TheTimeLeftIsThatSpentByWhatIsToCome) {
  EXPECT_EQ(At(5, 10, 25, 100).SecondsLeft(20), 60);
  EXPECT_EQ(At(10, 10, 100, 100).SecondsLeft(20), 0);
}

TEST(SelectionProgress, NothingIsSaidOfTheTimeLeftWhileTooLittleIsDone) {
  EXPECT_FALSE(At(0, 10, 0, 100).SecondsLeft(1));
  EXPECT_FALSE(At(1, 10, 50, 100).SecondsLeft(1));
  EXPECT_FALSE(At(5, 10, 0, 100).SecondsLeft(1));
}

TEST(SelectionProgress, MessagesLargerThanTheServerSaidAltogetherDoNotMakeItGoBack) {
  double done = 0;
  for (int32_t i = 0; i <= 10; ++i) {
    const SelectionProgress now = At(i, 10, i * 30, 100);
    EXPECT_GE(now.Done(), done);
    EXPECT_LE(now.Done(), 1);
    done = now.Done();
    if (i >= 4 && i < 10) {
      EXPECT_FALSE(now.SecondsLeft(5)) << "it cannot be known";
    }
  }
  EXPECT_EQ(done, 1);
}

TEST(SelectionProgress, WithoutSizesInStatTheMessagesAreCounted) {
  EXPECT_EQ(At(5, 10, 700, 0).Done(), 0.5);
  EXPECT_EQ(At(5, 10, 700, -1).Done(), 0.5);
}

TEST(SelectionProgress, AnEmptyMailboxIsDone) { EXPECT_EQ(At(0, 0, 0, 0).Done(), 1); }

}  // namespace
}  // namespace korvane::test
