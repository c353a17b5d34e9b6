// The four socket functions against real servers on this machine.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "Tarsel_MailConversions.h"
#include "companion/local_server.h"

extern "C" {
int plain_c_conversions(void);
int plain_c_sockets(int32_t port);
}

namespace {

using namespace companion_test;
using namespace std::chrono_literals;

constexpr int32_t kUnused = -77;
constexpr int32_t kCapacity = 16384;

// A connection that closes itself.
class Client {
 public:
  explicit Client(int32_t port, const char* host = "127.0.0.1", int32_t timeout = 5000)
      : result_(MPconnect(&handle_, port, host, timeout)) {}
  Client(const Client&) = delete;
  ~Client() {
    if (result_ == 0) MPclose(handle_);
  }
  int32_t result() const { return result_; }
  int32_t handle() const { return handle_; }
  int32_t Send(std::string_view bytes) const {
    return MPsend(handle_, bytes.data(), static_cast<int32_t>(bytes.size()));
  }
  // What one call receives; empty when it fails.
  std::string Receive() const {
    std::string buffer(kCapacity, '\0');
    const int32_t count = MPrecv(handle_, buffer.data(), kCapacity);
    buffer.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return buffer;
  }
  int32_t ReceiveResult() const {
    char buffer[100];
    return MPrecv(handle_, buffer, sizeof buffer);
  }

 private:
  int32_t handle_ = kUnused;
  int32_t result_;
};

TEST(Sockets, ACommandGoesOutAndItsReplyComesBack) {
  std::string command;
  LocalServer server([&](int connection) {
    SendAll(connection, "+OK ready\r\n");
    command = ReceiveSome(connection);
    SendAll(connection, "+OK bye\r\n");
  });
  {
    const Client client(server.port());
    ASSERT_EQ(client.result(), 0);
    EXPECT_GT(client.handle(), 0);
    EXPECT_EQ(client.Receive(), "+OK ready\r\n");
    EXPECT_EQ(client.Send("QUIT\r\n"), 6);
    EXPECT_EQ(client.Receive(), "+OK bye\r\n");
    EXPECT_EQ(client.ReceiveResult(), 0) << "the peer has closed";
  }
  EXPECT_EQ(command, "QUIT\r\n");
}

TEST(Sockets, ConnectingDoesNotWaitForTheGreeting) {
  LocalServer server(AwaitEnd);
  const Stopwatch stopwatch;
  const Client client(server.port());
  EXPECT_EQ(client.result(), 0);
  EXPECT_LT(stopwatch.Elapsed(), 2s);
}

TEST(Sockets, AnUnknownHostIsAFailureAndLeavesTheHandleUnused) {
  const Client client(110, "no-such-host.invalid", 5000);
  EXPECT_NE(client.result(), 0);
  EXPECT_EQ(client.handle(), kUnused);
}

TEST(Sockets, ARefusedPortIsAFailureAndLeavesTheHandleUnused) {
  const RefusedPort refused;
  const Client client(refused.port());
  EXPECT_NE(client.result(), 0);
  EXPECT_EQ(client.handle(), kUnused);
}

TEST(Sockets, AServerThatSendsNothingMakesReceivingEndWithTheTimeOut) {
  LocalServer server(AwaitEnd);
  const Client client(server.port(), "127.0.0.1", 300);
  ASSERT_EQ(client.result(), 0);
  for (int i = 0; i < 2; ++i) {
    const Stopwatch stopwatch;
    EXPECT_LT(client.ReceiveResult(), 0);
    EXPECT_GE(stopwatch.Elapsed(), 290ms);
    EXPECT_LT(stopwatch.Elapsed(), 3s);
  }
}

TEST(Sockets, AReplyLongerThanTheCapacityComesBackInSeveralPartsNoneLonger) {
  std::string sent;
  for (int i = 0; i < 50000; ++i) sent += static_cast<char>('a' + i % 26);
  LocalServer server([&](int connection) { SendAll(connection, sent); });
  const Client client(server.port());
  ASSERT_EQ(client.result(), 0);
  std::string received;
  int parts = 0;
  std::vector<char> buffer(kCapacity + 1, '\x5A');
  int32_t count;
  while ((count = MPrecv(client.handle(), buffer.data(), kCapacity)) > 0) {
    ASSERT_LE(count, kCapacity);
    EXPECT_EQ(buffer[kCapacity], '\x5A');
    received.append(buffer.data(), static_cast<size_t>(count));
    ++parts;
  }
  EXPECT_EQ(count, 0);
  EXPECT_GE(parts, 4);
  EXPECT_EQ(received, sent);
}

TEST(Sockets, AReplyThatArrivesByteByByteIsReturnedAsItArrives) {
  LocalServer server([](int connection) {
    for (const char byte : std::string_view("+OK\r\n")) {
      SendAll(connection, {&byte, 1});
      // The client says that it has the byte before the next one leaves.
      if (ReceiveSome(connection).empty()) return;
    }
  });
  const Client client(server.port());
  ASSERT_EQ(client.result(), 0);
  for (const char byte : std::string_view("+OK\r\n")) {
    EXPECT_EQ(client.Receive(), std::string(1, byte));
    EXPECT_EQ(client.Send("x"), 1);
  }
}

TEST(Sockets, ReceivingReturnsWhatIsThereWithoutWaitingToFillTheBufferOrAddingATerminator) {
  LocalServer server([](int connection) {
    SendAll(connection, "+OK\r\n");
    AwaitEnd(connection);
  });
  const Client client(server.port());
  ASSERT_EQ(client.result(), 0);
  const Stopwatch stopwatch;
  char buffer[100];
  std::memset(buffer, '\x5A', sizeof buffer);
  EXPECT_EQ(MPrecv(client.handle(), buffer, sizeof buffer), 5);
  EXPECT_EQ(buffer[5], '\x5A');
  EXPECT_LT(stopwatch.Elapsed(), 2s);
}

TEST(Sockets, ZeroBytesPassThrough) {
  LocalServer server([](int connection) { SendAll(connection, ReceiveSome(connection)); });
  const Client client(server.port());
  const std::string bytes("a\0b\0", 4);
  EXPECT_EQ(client.Send(bytes), 4);
  EXPECT_EQ(client.Receive(), bytes);
}

TEST(Sockets, SendingSendsEverything) {
  std::atomic<size_t> received = 0;
  LocalServer server([&](int connection) {
    for (std::string part; !(part = ReceiveSome(connection)).empty();) received += part.size();
  });
  {
    const Client client(server.port());
    ASSERT_EQ(client.result(), 0);
    EXPECT_EQ(client.Send(std::string(3'000'000, 'x')), 3'000'000);
  }
  while (received < 3'000'000) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(received, 3'000'000u);
}

TEST(Sockets, SendingToAPeerThatTakesNothingEndsWithTheTimeOut) {
  std::atomic<bool> done = false;
  LocalServer server([&](int) {
    while (!done) std::this_thread::sleep_for(5ms);
  });
  const Client client(server.port(), "127.0.0.1", 300);
  ASSERT_EQ(client.result(), 0);
  const Stopwatch stopwatch;
  EXPECT_LT(client.Send(std::string(50'000'000, 'x')), 1);
  EXPECT_GE(stopwatch.Elapsed(), 290ms);
  EXPECT_LT(stopwatch.Elapsed(), 4s);
  done = true;
}

TEST(Sockets, SendingOnADeadConnectionFailsAndRaisesNoSignal) {
  // With the default action a signal would end this test program.
#ifdef SIGPIPE
  ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
#endif
  // An orderly end of the connection: the first line sent after it is answered by a reset, and what
  // is written after that is what raises the signal.
  LocalServer server([](int) {});
  const Client client(server.port());
  ASSERT_EQ(client.result(), 0);
  EXPECT_LE(client.ReceiveResult(), 0);
  int32_t result = 1;
  for (int i = 0; i < 200 && result > 0; ++i) {
    result = client.Send("NOOP\r\n");
    std::this_thread::sleep_for(2ms);
  }
  EXPECT_LT(result, 1);
  EXPECT_LE(client.ReceiveResult(), 0);
}

TEST(Sockets, ClosingToleratesADeadConnectionAndAHandleThatIsNotOpen) {
  int32_t handle = 0;
  {
    LocalServer server([](int) {});
    ASSERT_EQ(MPconnect(&handle, server.port(), "127.0.0.1", 1000), 0);
  }
  MPclose(handle);
  MPclose(handle);
  MPclose(0);
  MPclose(-1);
  MPclose(2147483647);
}

TEST(Sockets, AReleasedHandleIsRefusedAndNeverReachesALaterConnection) {
  LocalServer server(AwaitEnd, AF_INET, 2);
  int32_t first = 0;
  ASSERT_EQ(MPconnect(&first, server.port(), "127.0.0.1", 1000), 0);
  MPclose(first);
  const Client second(server.port());
  ASSERT_EQ(second.result(), 0);
  EXPECT_NE(second.handle(), first);
  char byte = 'x';
  EXPECT_LT(MPsend(first, &byte, 1), 1);
  EXPECT_LT(MPrecv(first, &byte, 1), 0);
  MPclose(first);
  EXPECT_EQ(second.Send("x"), 1) << "closing the released handle left the other alone";
}

TEST(Sockets, AFileDescriptorIsNoHandle) {
  LocalServer server(AwaitEnd);
  const Client client(server.port());
  char byte = 'x';
  for (int32_t handle = -3; handle < 40; ++handle) {
    if (handle == client.handle()) continue;
    EXPECT_LT(MPsend(handle, &byte, 1), 1) << handle;
  }
}

TEST(Sockets, ANameIsTriedAtAllItsAddresses) {
  // "localhost" has an IPv6 and an IPv4 address on most machines; each server has only one of them.
  LocalServer server([](int connection) { SendAll(connection, "4"); });
  const Client client(server.port(), "localhost");
  ASSERT_EQ(client.result(), 0);
  EXPECT_EQ(client.Receive(), "4");
}

TEST(Sockets, AnIpv6AddressIsAHost) {
  if (!HasIpv6()) {
    // Nothing can listen there, so the address must be refused, not waited for.
    EXPECT_NE(Client(1, "::1").result(), 0);
    return;
  }
  LocalServer server([](int connection) { SendAll(connection, "6"); }, AF_INET6, 2);
  const Client bare(server.port(), "::1");
  ASSERT_EQ(bare.result(), 0);
  EXPECT_EQ(bare.Receive(), "6");
  const std::string host = "pop3://[::1]:" + std::to_string(server.port());
  const Client bracketed(1, host.c_str());
  ASSERT_EQ(bracketed.result(), 0);
  EXPECT_EQ(bracketed.Receive(), "6");
}

TEST(Sockets, APrefixedHostMayCarryItsPort) {
  LocalServer server([](int connection) { SendAll(connection, "+OK"); });
  const std::string host = "pop3://127.0.0.1:" + std::to_string(server.port());
  const Client client(995, host.c_str());
  ASSERT_EQ(client.result(), 0);
  EXPECT_EQ(client.Receive(), "+OK");
}

TEST(Sockets, AHostOrPortThatIsNoneIsAFailure) {
  for (const char* host :
       {"", "imap://127.0.0.1", "pop3://", "127.0.0.1:110", "a b", "pop3://x:y"}) {
    EXPECT_NE(Client(110, host).result(), 0) << host;
  }
  for (const int32_t port : {0, -1, 65536, 2147483647}) {
    EXPECT_NE(Client(port).result(), 0) << port;
  }
}

TEST(Sockets, MissingPointersAndLengthsBelowOneAreFailures) {
  LocalServer server(AwaitEnd);
  int32_t handle = 0;
  char byte = 'x';
  EXPECT_NE(MPconnect(nullptr, server.port(), "127.0.0.1", 1000), 0);
  EXPECT_NE(MPconnect(&handle, server.port(), nullptr, 1000), 0);
  ASSERT_EQ(MPconnect(&handle, server.port(), "127.0.0.1", 1000), 0);
  EXPECT_LT(MPsend(handle, nullptr, 1), 1);
  EXPECT_LT(MPsend(handle, &byte, 0), 1);
  EXPECT_LT(MPsend(handle, &byte, -5), 1);
  EXPECT_LT(MPrecv(handle, nullptr, 1), 0);
  EXPECT_LT(MPrecv(handle, &byte, 0), 0);
  EXPECT_LT(MPrecv(handle, &byte, -5), 0);
  MPclose(handle);
}

TEST(Sockets, ATimeOutOfZeroOrLessIsTheDefault) {
  for (const int32_t timeout : {0, -1, -2147483647 - 1}) {
    LocalServer server([](int connection) {
      std::this_thread::sleep_for(50ms);
      SendAll(connection, "+OK");
    });
    const Client client(server.port(), "127.0.0.1", timeout);
    ASSERT_EQ(client.result(), 0);
    EXPECT_EQ(client.Receive(), "+OK");
  }
}

TEST(Sockets, ManyThreadsMayHaveConnectionsOfTheirOwn) {
  constexpr int kThreads = 8;
  LocalServer server([](int connection) { SendAll(connection, "+" + ReceiveSome(connection)); },
                     AF_INET, kThreads * 10);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 10; ++i) {
        const Client client(server.port());
        const std::string mine = std::to_string(t * 100 + i);
        EXPECT_EQ(client.Send(mine), static_cast<int32_t>(mine.size()));
        EXPECT_EQ(client.Receive(), "+" + mine);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(PlainC, TheConversionsWorkFromC11) { EXPECT_EQ(plain_c_conversions(), 0); }

TEST(PlainC, TheSocketsWorkFromC11) {
  LocalServer server([](int connection) {
    SendAll(connection, "+OK ready\r\n");
    if (!ReceiveSome(connection).empty()) SendAll(connection, "+OK\r\n");
    AwaitEnd(connection);
  });
  EXPECT_EQ(plain_c_sockets(server.port()), 0);
}

}  // namespace
