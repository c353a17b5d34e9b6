// How a host may be written, and what a released number is worth.
#include "pop3/sockets/host_form.h"

#include <gtest/gtest.h>

#include "pop3/sockets/handle_table.h"

namespace korvane::sockets {
namespace {

using Form = std::optional<HostForm>;

Form Plain(const char* name, uint16_t port) { return HostForm{name, port, Security::kPlain}; }
Form Verified(const char* name, uint16_t port) { return HostForm{name, port, Security::kVerified}; }
Form Unverified(const char* name, uint16_t port) {
  return HostForm{name, port, Security::kUnverified};
}

TEST(HostForm, ABareNameOrAddressIsPlainText) {
  EXPECT_EQ(ParseHostForm("mail.example.com", 110), Plain("mail.example.com", 110));
  EXPECT_EQ(ParseHostForm("192.0.2.1", 1100), Plain("192.0.2.1", 1100));
  EXPECT_EQ(ParseHostForm("2001:db8::1", 110), Plain("2001:db8::1", 110));
  EXPECT_EQ(ParseHostForm("fe80::1%eth0", 110), Plain("fe80::1%eth0", 110));
}

TEST(HostForm, Port995IsVerifiedTls) {
  EXPECT_EQ(ParseHostForm("mail.example.com", 995), Verified("mail.example.com", 995));
}

TEST(HostForm, APrefixSaysWhatIsSpokenWhateverThePort) {
  EXPECT_EQ(ParseHostForm("pop3://h", 995), Plain("h", 995));
  EXPECT_EQ(ParseHostForm("pop3s://h", 110), Verified("h", 110));
  EXPECT_EQ(ParseHostForm("pop3s-insecure://h", 995), Unverified("h", 995));
  EXPECT_EQ(ParseHostForm("POP3S://Host", 110), Verified("Host", 110));
}

TEST(HostForm, TheMarkForReadingAheadChangesNothing) {
  EXPECT_EQ(ParseHostForm("pop3+ahead://h", 995), Plain("h", 995));
  EXPECT_EQ(ParseHostForm("pop3s+ahead://h", 110), Verified("h", 110));
  EXPECT_EQ(ParseHostForm("POP3S-insecure+Ahead://[::1]:9", 995), Unverified("::1", 9));
  for (const char* host : {"+ahead://h", "pop3+behind://h", "pop3ahead://h"}) {
    EXPECT_EQ(ParseHostForm(host, 110), std::nullopt) << host;
  }
}

TEST(HostForm, APortOfItsOwnReplacesTheGivenOne) {
  EXPECT_EQ(ParseHostForm("pop3://h:1100", 110), Plain("h", 1100));
  EXPECT_EQ(ParseHostForm("pop3://h:995", 110), Plain("h", 995));
  EXPECT_EQ(ParseHostForm("pop3s://h:9950", 0), Verified("h", 9950));
  EXPECT_EQ(ParseHostForm("pop3s-insecure://h:1", -5), Unverified("h", 1));
}

TEST(HostForm, AnIpv6AddressCarriesAPortOnlyInBrackets) {
  EXPECT_EQ(ParseHostForm("pop3://[::1]", 110), Plain("::1", 110));
  EXPECT_EQ(ParseHostForm("pop3s://[2001:db8::1]:9950", 110), Verified("2001:db8::1", 9950));
  EXPECT_EQ(ParseHostForm("pop3://2001:db8::1", 110), Plain("2001:db8::1", 110));
  for (const char* host : {"pop3://[::1", "pop3://[]", "pop3://[::1]x", "pop3://[::1]110",
                           "pop3://[::1]:", "pop3://[host]:110", "[::1]"}) {
    EXPECT_EQ(ParseHostForm(host, 110), std::nullopt) << host;
  }
}

TEST(HostForm, ABareHostCarriesNoPort) {
  // A single colon makes it neither a name nor an address: the resolver will not know it.
  EXPECT_EQ(ParseHostForm("h:1100", 110)->port, 110);
  EXPECT_EQ(ParseHostForm("h:1100", 110)->name, "h:1100");
}

TEST(HostForm, WhatIsNoPortIsRefused) {
  for (const int32_t port : {0, -1, 65536}) EXPECT_EQ(ParseHostForm("h", port), std::nullopt);
  for (const char* host : {"pop3://h:", "pop3://h:0", "pop3://h:65536", "pop3://h:+1",
                           "pop3://h:1x", "pop3://h: 1", "pop3://h:-1", "pop3://h:99999999999"}) {
    EXPECT_EQ(ParseHostForm(host, 110), std::nullopt) << host;
  }
}

TEST(HostForm, WhatIsNoNameIsRefused) {
  for (const char* host : {"", "pop3://", "pop3s://:110", "imap://h", "pop3//h", "h/inbox",
                           "pop3s://h/", "a b", "a\tb", "a\r\nb", "a\x7f", "pop3s-x://h"}) {
    EXPECT_EQ(ParseHostForm(host, 110), std::nullopt) << host;
  }
}

TEST(HandleTable, NumbersStartAboveZeroAndAreNotGivenOutAgain) {
  HandleTable table;
  const auto connection = std::make_shared<Connection>(TcpSocket(), std::chrono::milliseconds(1));
  const int32_t first = table.Add(connection);
  const int32_t second = table.Add(connection);
  EXPECT_GT(first, 0);
  EXPECT_NE(first, second);
  EXPECT_EQ(table.Find(first), connection);
  EXPECT_EQ(table.Remove(first), connection);
  EXPECT_EQ(table.Find(first), nullptr);
  EXPECT_EQ(table.Remove(first), nullptr);
  EXPECT_NE(table.Add(connection), first);
  EXPECT_EQ(table.Find(0), nullptr);
}

}  // namespace
}  // namespace korvane::sockets
