// A gigabyte of mail costs the memory of its largest message and no more, in lock-step and reading
// ahead; and a disk that is full before the end costs nothing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "engine/engine_fixture.h"
#include "support/sockets.h"

namespace korvane::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsMeasured = false;  // the sanitizer's own memory is in the figure
#else
constexpr bool kMemoryIsMeasured = true;
#endif

constexpr int kMessages = 2'000;
constexpr int64_t kLargest = 30 * int64_t{1'000'000};
constexpr int64_t kAll = 1'000 * int64_t{1'000'000};
constexpr int kTheLargest = 700;

int64_t SizeOf(int number) {
  return number == kTheLargest ? kLargest : (kAll - kLargest) / (kMessages - 1);
}

/// A server in a process of its own, which makes its messages up as it says them.
class MadeUpServer {
 public:
  MadeUpServer() {
    port = ListenHere(listener_);
    if (port == 0) return;
    child_ = fork();
    if (child_ == 0) {
      for (int client; (client = accept(listener_, nullptr, nullptr)) >= 0; close(client)) {
        Serve(client);
      }
      _exit(0);
    }
  }
  MadeUpServer(const MadeUpServer&) = delete;
  MadeUpServer& operator=(const MadeUpServer&) = delete;
  ~MadeUpServer() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    close(listener_);
  }

  int port = 0;

 private:
  static void Serve(int client) {
    SendAtOnce(client);
    FILE* in = fdopen(dup(client), "r");
    FILE* out = fdopen(dup(client), "w");
    std::fputs("+OK ready\r\n", out);
    std::fflush(out);
    char line[600];
    while (std::fgets(line, sizeof line, in)) {
      Answer(line, out);
      std::fflush(out);
    }
    std::fclose(in);
    std::fclose(out);
  }

  static void Answer(const std::string& line, FILE* out) {
    const std::string verb = line.substr(0, 4);
    const int number = line.size() > 5 ? std::atoi(line.c_str() + line.find(' ')) : 0;
    if (verb == "STAT") {
      std::fprintf(out, "+OK %d %lld\r\n", kMessages, static_cast<long long>(kAll));
    } else if (verb == "LIST") {
      std::fprintf(out, "+OK %d %lld\r\n", number, static_cast<long long>(SizeOf(number)));
    } else if (verb == "UIDL") {
      std::fprintf(out, "+OK %d u%d\r\n", number, number);
    } else if (verb == "TOP ") {
      SayHeader(number, out);
      std::fputs(".\r\n", out);
    } else if (verb == "RETR") {
      SayHeader(number, out);
      SayBody(number, out);
      std::fputs(".\r\n", out);
    } else {
      std::fputs("+OK\r\n", out);
    }
  }

  static void SayHeader(int number, FILE* out) {
    std::fprintf(out,
                 "+OK\r\nReceived: from a by b; Thu, 5 Mar 2020 %02d:%02d:%02d +0000\r\n"
                 "Message-ID: <%d@a>\r\nSubject: mail %d\r\nMIME-Version: 1.0\r\n"
                 "Content-Type: multipart/mixed; boundary=b\r\n\r\n",
                 number / 3600, number / 60 % 60, number % 60, number, number);
  }

  static void SayBody(int number, FILE* out) {
    std::fputs("--b\r\nContent-Type: text/plain\r\n\r\nsee the attachment\r\n", out);
    std::fputs(
        "--b\r\nContent-Type: application/octet-stream; name=a.bin\r\nContent-Disposition: "
        "attachment; filename=a.bin\r\nContent-Transfer-Encoding: base64\r\n\r\n",
        out);
    const std::string row(76, 'Q');
    for (int64_t left = SizeOf(number); left > 0; left -= 78) {
      std::fputs((row + "\r\n").c_str(), out);
    }
    std::fputs("--b--\r\n", out);
  }

  int listener_ = -1;
  pid_t child_ = -1;
};

int64_t PeakMemory() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmHWM:")) return std::stoll(line.substr(6)) * 1024;
  }
  return 0;
}

class LargeMailbox : public testing::TestWithParam<const char*> {
 protected:
  LargeMailbox() {
    Store::Account row;
    row.host = std::string(GetParam()) + "127.0.0.1";
    row.port = server_.port;
    row.name = "bob";
    row.password = "secret";
    account_ = store_.Add(row);
  }

  MadeUpServer server_;  // before any thread
  Store store_;
  int32_t account_ = 0;
};

TEST_P(LargeMailbox, OfAGigabyteCostsTheMemoryOfItsLargestMessage) {
  Request request(store_);
  std::ofstream("/proc/self/clear_refs") << "5";
  const auto begin = std::chrono::steady_clock::now();
  request.SyncWhole(true);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(store_.Rows().size(), static_cast<size_t>(kMessages));
  EXPECT_GT(store_.MessageFileSize(), 0);
  const int64_t peak = PeakMemory();
  std::printf("%.1f s, peak memory %lld MB\n", seconds.count(),
              static_cast<long long>(peak / 1'000'000));
  if (kMemoryIsMeasured) {
    EXPECT_LE(peak, kLargest * 5 / 2 + int64_t{64'000'000});
  }
}

INSTANTIATE_TEST_SUITE_P(Engine, LargeMailbox, testing::Values("pop3://", "pop3+ahead://"),
                         [](const auto& scheme) {
                           return scheme.index == 0 ? "InLockStep" : "ReadingAhead";
                         });

}  // namespace
}  // namespace korvane::test
