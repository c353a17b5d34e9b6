// One session of the POP3 client against a random server, told as text.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "engine/random_servers.h"
#include "facade/mail_user.h"
#include "pop3/fake_connection.h"
#include "pop3/mail_server.h"
#include "support/taken_messages.h"

namespace korvane::test {

struct SessionRun {
  std::string story;                  ///< every result, error and statement
  std::vector<std::string> commands;  ///< as the server heard them
  std::set<int32_t> deleted;
  bool sent_ahead_of_turn = false;
  size_t most_waiting = 0;
};

inline void TellMessages(std::ostringstream& story,
                         const std::vector<std::shared_ptr<MailMessage>>& messages) {
  for (const auto& message : messages) {
    story << message->IdOnServer() << " size " << message->Size() << " uidl "
          << message->MessageUIDL() << " id " << message->MessageID() << " header "
          << message->OriginalHeader() << " body " << message->BodyText() << "\n";
  }
}

inline SessionRun RunSession(uint64_t seed, bool ahead) {
  RandomServer server(seed, ahead);
  std::mt19937 random(seed + 17);
  const auto one_in = [&](unsigned n) { return random() % n == 0; };
  auto user = std::make_shared<MailUser>();
  user->MailServer(ahead ? "pop3+ahead://pop.example" : "pop3://pop.example");
  user->Username("bob");
  user->Password("secret");
  user->UserId(7);
  FakeConnection connection;
  const int known = one_in(2) ? static_cast<int>(random() % 25) : 0;
  const bool with_older = one_in(2);
  for (int number = 1; number <= 25; ++number) {
    if (one_in(2) && number > known) continue;
    char time[32];
    std::snprintf(time, sizeof time, "00:%02d:%02d", number * 10 / 60, number * 10 % 60);
    FakeRow row;
    row["DwnldCorrettoFAQ"] = with_older;
    connection.Answer(
        "SELECT * FROM mail WHERE id_utente=7 AND id_server=-10 AND campo_received='" +
            (std::string("from a by b; Thu, 5 Mar 2020 ") + time + " +0000") +
            "' AND campo_MessageId='<" + std::to_string(number) + "@a>'",
        row);
  }
  std::ostringstream story;
  {
    MailServer client;
    client.SetUser(user);
    MailServer::Limits limits;
    if (one_in(3)) limits.in_memory = 300;
    if (one_in(10)) limits.reply.message = 5'000;
    client.SetLimits(limits);
    double done = 0;
    client.OnProgress([&](const SelectionProgress& now) {
      story << "at " << now.looked_at << "/" << now.total << " taken " << now.taken << " bytes "
            << now.bytes << "/" << now.all_bytes << now.to_the_end << "\n";
      EXPECT_GE(now.Done(), done) << "progress goes back, seed " << seed;
      EXPECT_LE(now.Done(), 1);
      done = now.Done();
    });
    const auto tell = [&](const char* what) {
      story << what << " error " << client.GetLastError() << " " << client.GetLastErrorDesc()
            << " state " << static_cast<int>(client.state()) << "\n";
    };
    client.Connect();
    tell("connect");
    const bool whole = !one_in(3);
    const bool remove = one_in(3);
    const bool look_up = one_in(2);
    const std::string last = one_in(2)   ? "01/01/0001 00:00:00"
                             : one_in(2) ? "05/03/2020 00:01:00"
                                         : "05/03/2020 00:02:30";
    const auto messages = whole ? client.GetNewMessages(connection, last, look_up, "")
                                : client.GetNewHeaders(connection, last, look_up);
    tell(messages ? "selection" : "no selection");
    story << "newest " << client.NewestReceived().value_or("none") << "\n";
    if (messages) {
      const auto taken = TakeAll(*messages);
      TellMessages(story, taken);
      for (const auto& message : taken) {
        if (!remove) break;
        client.DeleteServerMessage(message->IdOnServer());
        tell("delete");
      }
    }
    client.Disconnect();
    tell("disconnect");
  }
  for (const std::string& statement : connection.asked()) story << statement << "\n";
  return {story.str(), server.model.commands, server.model.deleted, server.model.sent_ahead_of_turn,
          server.model.most_waiting};
}

/// False when they differ.
inline bool CompareSelections(uint64_t seed) {
  const SessionRun lock_step = RunSession(seed, false);
  const SessionRun ahead = RunSession(seed, true);
  EXPECT_EQ(lock_step.story, ahead.story);
  EXPECT_EQ(lock_step.deleted, ahead.deleted);
  EXPECT_TRUE(lock_step.sent_ahead_of_turn || !ahead.sent_ahead_of_turn);
  EXPECT_LE(ahead.most_waiting, 25'000U);
  if (!testing::Test::HasFailure()) return true;
  std::ostringstream heard;
  for (const std::string& line : lock_step.commands) heard << line << "; ";
  heard << "\nahead: ";
  for (const std::string& line : ahead.commands) heard << line << "; ";
  ADD_FAILURE() << "seed " << seed << "\nlock-step: " << heard.str();
  return false;
}

}  // namespace korvane::test
