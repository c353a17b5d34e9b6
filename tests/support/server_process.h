// A program that a test starts and that is gone with it, also when the test crashes. Database
// servers refuse to run as root; there they run as an unprivileged user.
#pragma once

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace korvane::test {

/// The user that servers run as when the test runs as root; nothing otherwise.
inline std::optional<passwd> UnprivilegedUser(const char* preferred) {
  if (getuid() != 0) return std::nullopt;
  const passwd* user = getpwnam(preferred);
  if (!user) user = getpwnam("nobody");
  if (!user) throw std::runtime_error("no unprivileged user");
  return *user;
}

/// Starts a program with its output in `log`; it dies with the test.
inline pid_t StartProgram(const std::vector<std::string>& command, const std::string& log,
                          const std::optional<passwd>& user) {
  std::vector<char*> arguments;
  for (const std::string& argument : command)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) return child;
  const int out = open(log.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0644);
  dup2(open("/dev/null", O_RDONLY), 0);
  dup2(out, 1);
  dup2(out, 2);
  if (user && (setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0)) _exit(126);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(125);
  setenv("LC_ALL", "C.UTF-8", 1);
  execv(arguments[0], arguments.data());
  _exit(127);
}

inline std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Runs a program to its end; throws with its output when it fails.
inline void RunProgram(const std::vector<std::string>& command, const std::string& log,
                       const std::optional<passwd>& user) {
  const pid_t child = StartProgram(command, log, user);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) throw std::runtime_error(command[0] + " failed: " + ReadAll(log));
}

/// A running server, ended with `signal`.
class ServerProcess {
 public:
  ServerProcess(pid_t process, int signal) : process_(process), signal_(signal) {}
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess() {
    kill(process_, signal_);
    waitpid(process_, nullptr, 0);
  }
  /// Asks `ready` until it says yes; throws when the server ended or a minute went by.
  template <class Ready>
  void WaitUntil(Ready ready, const std::string& log) {
    for (int i = 0; i < 1200; ++i) {
      if (ready()) return;
      if (waitpid(process_, nullptr, WNOHANG) == process_) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("the server did not start: " + ReadAll(log));
  }

 private:
  pid_t process_;
  int signal_;
};

}  // namespace korvane::test
