// Servers that mean harm, or are broken enough: each costs bounded time and memory and gives its
// number.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "frame/error_numbers.h"
#include "pop3/fake_connection.h"
#include "pop3/session_fixture.h"
#include "support/hostile_input.h"

namespace korvane::test {
namespace {

using Command = MailServer::Command;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsMeasured = false;  // the sanitizer's own memory is in the figure
#else
constexpr bool kMemoryIsMeasured = true;
#endif

/// The most memory that the process held since the last reset, in bytes.
int64_t PeakMemory() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmHWM:")) return std::stoll(line.substr(6)) * 1024;
  }
  return 0;
}
void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

TEST(HostileServer, AMessageOf100MegabytesCostsItsSizeAndNotMuchMore) {
  constexpr int64_t kLines = 100'000;
  constexpr int64_t kBytes = kLines * 1000;
  Session session;
  session.server.Login("bob", "secret").Hear("RETR 1").SayLine("+OK");
  session.server.SayOften(Repeated(std::string(998, 'x') + "\r\n", 100'000), kLines / 100);
  session.server.SayLine(".").Hear("LIST 1").SayLine("+OK 1 100000000");
  session.LogIn();
  ResetPeakMemory();
  const int64_t before = PeakMemory();
  session.client->RunOn(Command::kRetr, 1);
  EXPECT_EQ(static_cast<int64_t>(session.client->Data().size()), kBytes - 2);
  EXPECT_EQ(session.client->GetLastError(), 0);
  if (kMemoryIsMeasured) {
    EXPECT_LT(PeakMemory() - before, kBytes * 3 / 2);
  }
  session.End();
}

TEST(HostileServer, GigabytesWithoutALineEndAreGivenUp) {
  for (const bool inside_a_text : {false, true}) {
    Session session;
    session.server.Login("bob", "secret").Hear("RETR 1").Say(inside_a_text ? "+OK\r\n" : "-");
    session.server.SayOften(std::string(100'000, 'x'), 40'000);  // stops when the client hangs up
    session.LogIn();
    ResetPeakMemory();
    const int64_t before = PeakMemory();
    const double seconds = SecondsOf([&] { session.client->RunOn(Command::kRetr, 1); });
    EXPECT_EQ(session.client->GetLastError(), error::ReceiveFailed);
    EXPECT_LT(seconds, kGenerousSeconds);
    if (kMemoryIsMeasured) {
      EXPECT_LT(PeakMemory() - before, int64_t{200} << 20);
    }
    session.End();
  }
}

TEST(HostileServer, GigabytesOfHeaderLinesAreGivenUp) {
  Session session;
  session.server.Login("bob", "secret").Hear("TOP 1 0").SayLine("+OK");
  session.server.SayOften(Repeated("X-Line: nothing\r\n", 100'000), 40'000);
  session.LogIn();
  const double seconds = SecondsOf([&] { session.client->GetMessageHeader(1); });
  EXPECT_EQ(session.client->GetLastError(), error::ReceiveFailed);
  EXPECT_LT(seconds, kGenerousSeconds);
  session.End();
}

TEST(HostileServer, AHeaderOf100000LinesIsTaken) {
  Session session;
  session.server.Login("bob", "secret").Hear("TOP 1 0").SayLine("+OK");
  session.server.SayOften("X-Line: nothing\r\n", 100'000).Say("Subject: x\r\n\r\n.\r\n");
  session.server.Hear("LIST 1").SayLine("+OK 1 9").Hear("UIDL 1").SayLine("+OK 1 u");
  session.LogIn();
  std::shared_ptr<MailMessage> message;
  EXPECT_LT(SecondsOf([&] { message = session.client->GetMessageHeader(1); }), kGenerousSeconds);
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "x");
  session.End();
}

TEST(HostileServer, ALongMessageOneByteAtATimeIsLinear) {
  Session session;
  session.server.Login("bob", "secret").Hear("RETR 1").SayLine("+OK");
  session.server.Say(Repeated("line\n", 100'000)).Say("\r\n.\r\n");
  session.server.Hear("LIST 1").SayLine("+OK 1 9");
  session.LogIn();
  TransportTap::piece = 1;
  EXPECT_LT(SecondsOf([&] { session.client->RunOn(Command::kRetr, 1); }), kGenerousSeconds);
  EXPECT_EQ(session.client->Data().size(), 100'000U);
  session.End();
}

TEST(HostileServer, ACountOfMessagesThatAreNotThereEndsThePage) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 2147483647 1");
  for (int32_t i = 0; i < 100; ++i) {
    session.server.Hear("TOP " + std::to_string(2147483647 - i) + " 0").SayLine("-ERR no");
  }
  session.LogIn();
  Any total;
  const auto page = session.client->GetHeadersPage(-1, nullptr, &total);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->Count(), 0);
  EXPECT_EQ(total.ToInt32(), 2147483647);
  EXPECT_EQ(session.client->GetLastError(), error::PageHeaderFailed);
  session.End();
}

TEST(HostileServer, ACountOfMessagesThatAreNotThereStopsASelectionAtTheFirst) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 2147483647 1");
  session.server.Hear("TOP 2147483647 0").SayLine("-ERR no");
  session.LogIn();
  FakeConnection connection;
  const auto messages = session.client->GetNewHeaders(connection, "01/01/0001 00:00:00", false);
  EXPECT_EQ(messages->Count(), 0);
  EXPECT_EQ(session.client->GetLastError(), error::SelectHeaderFailed);
  session.End();
}

TEST(HostileServer, TheLastPageOfAHugeCountIsNotCountedUpTo) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 2147483647 1");
  for (int32_t number = 7; number >= 1; --number) {
    session.server.Hear("TOP " + std::to_string(number) + " 0").SayLine("-ERR no");
  }
  session.LogIn();
  Any pages;
  const double seconds =
      SecondsOf([&] { session.client->GetHeadersPage(214748365, &pages, nullptr); });
  EXPECT_LT(seconds, 1.0);
  EXPECT_EQ(pages.ToInt32(), 214748365);
  EXPECT_EQ(session.client->GetLastError(), error::PageHeaderFailed);
  session.End();
}

TEST(HostileServer, AMessageThatTricklesIsGivenUp) {
  Session session(250);
  MailServer::Limits limits;
  limits.timeouts_per_command = 2;
  session.client->SetLimits(limits);
  session.server.Login("bob", "secret")
      .Hear("RETR 1")
      .SayLine("+OK")
      .Drip(std::string(100, 'x'), 60);
  session.LogIn();
  EXPECT_LT(SecondsOf([&] { session.client->RunOn(Command::kRetr, 1); }), 2.0);
  EXPECT_EQ(session.client->GetLastError(), error::ReceiveFailed);
  session.End();
}

}  // namespace
}  // namespace korvane::test
