#include "support/dovecot_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "support/free_port.h"

namespace korvane::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

bool Root() { return ::geteuid() == 0; }

// The user who owns the mailboxes.
const passwd* Owner() {
  const passwd* owner = Root() ? ::getpwnam("nobody") : ::getpwuid(::geteuid());
  if (!owner) throw std::runtime_error("no user to own the mailboxes");
  return owner;
}

void Give(const std::string& path) {
  if (Root() && ::chown(path.c_str(), Owner()->pw_uid, Owner()->pw_gid) != 0) {
    throw std::runtime_error("chown " + path);
  }
}

std::string Slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

void Spit(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

// Runs a program to its end; its output goes to `output`.
void Run(const std::vector<std::string>& words, const std::string& output) {
  std::vector<char*> arguments;
  for (const auto& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                   0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = 0;
  const int started =
      ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (started != 0 || ::waitpid(pid, &status, 0) != pid || status != 0) {
    throw std::runtime_error(words[0] + " failed:\n" + Slurp(output));
  }
}

// True when the port greets with this text: another server may have taken the port.
bool Greets(int port, const std::string& greeting) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string line;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    char byte = 0;
    while (line.size() < 512 && byte != '\n' && ::recv(fd, &byte, 1, 0) == 1) line += byte;
  }
  ::close(fd);
  return line.rfind("+OK", 0) == 0 && line.find(greeting) != std::string::npos;
}

}  // namespace

DovecotServer::DovecotServer() {
  fs::permissions(folder_.path(), fs::perms(0755));
  for (const char* name : {"run", "state", "mail"}) {
    fs::create_directory(folder_ / name);
    fs::permissions(folder_ / name, fs::perms(0755));
  }
  Give(folder_ / "mail");
  Run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
       "-keyout", folder_ / "key.pem", "-out", folder_ / "cert.pem", "-days", "2", "-subj",
       "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1"},
      folder_ / "openssl.log");
}

DovecotServer::~DovecotServer() { Kill(); }

void DovecotServer::AddUser(const std::string& user) {
  fs::create_directory(Mailbox(user));
  Give(Mailbox(user));
  for (const char* name : {"/new", "/cur", "/tmp"}) {
    fs::create_directory(Mailbox(user) + name);
    Give(Mailbox(user) + name);
  }
}

void DovecotServer::Deliver(const std::string& user, const std::string& message) {
  // Dovecot numbers new files by the time in their names.
  const std::string name = std::to_string(1'000'000'000 + ++delivered_) + ".M1P1.localhost";
  const std::string path = Mailbox(user) + "/tmp/" + name;
  Spit(path, message);
  Give(path);
  fs::rename(path, Mailbox(user) + "/new/" + name);
}

std::vector<std::string> DovecotServer::Files(const std::string& user) const {
  std::vector<std::pair<std::string, std::string>> files;
  for (const char* folder : {"/new", "/cur"}) {
    for (const auto& entry : fs::directory_iterator(Mailbox(user) + folder)) {
      files.emplace_back(entry.path().filename(), entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  std::vector<std::string> paths;
  for (auto& [name, path] : files) paths.push_back(std::move(path));
  return paths;
}

int DovecotServer::Count(const std::string& user) const {
  return static_cast<int>(Files(user).size());
}

std::vector<std::string> DovecotServer::Messages(const std::string& user) const {
  std::vector<std::string> messages;
  for (const auto& path : Files(user)) messages.push_back(Slurp(path));
  return messages;
}

void DovecotServer::Empty(const std::string& user) {
  for (const auto& path : Files(user)) fs::remove(path);
}

void DovecotServer::WriteConfiguration() {
  const std::string owner = Owner()->pw_name;
  const std::string group = ::getgrgid(Owner()->pw_gid)->gr_name;
  std::string text = R"(
protocols = pop3
listen = 127.0.0.1
base_dir = FOLDER/run
state_dir = FOLDER/state
log_path = FOLDER/log
login_greeting = FOLDER
disable_plaintext_auth = no
auth_failure_delay = 0
first_valid_uid = 1
first_valid_gid = 1
mail_max_userip_connections = 100
mail_location = maildir:FOLDER/mail/%u
mail_fsync = never
ssl = yes
ssl_cert = <FOLDER/cert.pem
ssl_key = <FOLDER/key.pem
passdb {
  driver = static
  args = password=PASSWORD
}
userdb {
  driver = static
  args = uid=OWNER gid=GROUP home=FOLDER/mail/%u
}
service anvil {
  chroot =
  # No waiting after wrong passwords.
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
service pop3-login {
  chroot =
  inet_listener pop3 {
    port = PLAIN_PORT
  }
  inet_listener pop3s {
    port = TLS_PORT
    ssl = yes
  }
}
)";
  if (!Root()) {
    // Only root can change users; everything then runs as whoever runs the test.
    text +=
        "default_internal_user = OWNER\ndefault_internal_group = GROUP\n"
        "default_login_user = OWNER\n";
  }
  const std::pair<std::string, std::string> values[] = {{"FOLDER", folder_.path()},
                                                        {"PASSWORD", kPassword},
                                                        {"OWNER", owner},
                                                        {"GROUP", group},
                                                        {"PLAIN_PORT", std::to_string(port_)},
                                                        {"TLS_PORT", std::to_string(tls_port_)}};
  for (const auto& [name, value] : values) {
    for (size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size()) {
      text.replace(at, name.size(), value);
    }
  }
  Spit(folder_ / "dovecot.conf", text);
}

void DovecotServer::Start() {
  if (pid_ > 0) return;
  // Between looking for a free port and listening on it, another test may take it.
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (port_ == 0 || attempt > 0) {
      port_ = FreePort();
      tls_port_ = FreePort();
    }
    WriteConfiguration();
    const std::string configuration = folder_ / "dovecot.conf";
    pid_ = ::fork();
    if (pid_ == 0) {
      // A test that crashes takes its server with it.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::setpgid(0, 0);
      const int null = ::open("/dev/null", O_RDWR);
      for (int fd = 0; fd < 3; ++fd) ::dup2(null, fd);
      ::closefrom(3);
      ::execlp("dovecot", "dovecot", "-F", "-c", configuration.c_str(), nullptr);
      ::execl("/usr/sbin/dovecot", "dovecot", "-F", "-c", configuration.c_str(), nullptr);
      ::_exit(127);
    }
    ::setpgid(pid_, pid_);
    for (int i = 0; i < 2'000; ++i) {
      if (Greets(port_, folder_.path())) return;
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        break;
      }
      std::this_thread::sleep_for(5ms);
    }
    Kill();
  }
  throw std::runtime_error("Dovecot does not start:\n" + Log());
}

void DovecotServer::Stop() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGTERM);
  int status = 0;
  for (int i = 0; i < 1'000; ++i) {
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return;
    }
    std::this_thread::sleep_for(5ms);
  }
  Kill();
}

void DovecotServer::Kill() {
  if (pid_ <= 0) return;
  // All of its processes are in its group.
  ::kill(-pid_, SIGKILL);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
}

std::string DovecotServer::Log() const { return Slurp(folder_ / "log"); }

}  // namespace korvane::test
