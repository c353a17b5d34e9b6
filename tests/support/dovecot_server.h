// A real Dovecot for tests: its own configuration, mailboxes (Maildir) and ports in a temporary
// folder, plain and TLS with a certificate made at the start. It runs as whoever runs the test; as
// root it keeps the mailboxes as the user "nobody", because Dovecot serves no mail to root.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/free_port.h"
#include "support/temp_folder.h"

namespace korvane::test {

class DovecotServer {
 public:
  DovecotServer();
  ~DovecotServer();
  DovecotServer(const DovecotServer&) = delete;
  DovecotServer& operator=(const DovecotServer&) = delete;

  /// A user with an empty mailbox; all have the same password. Also while the server runs.
  void AddUser(const std::string& user);
  static constexpr const char* kPassword = "secret-of-the-test";

  /// Delivers a message behind those that are there. LF line ends become CR LF on the wire.
  void Deliver(const std::string& user, const std::string& message);
  /// How many messages the mailbox holds.
  int Count(const std::string& user) const;
  /// The messages that the mailbox holds, in the order of their numbers.
  std::vector<std::string> Messages(const std::string& user) const;
  /// Removes what the mailbox holds.
  void Empty(const std::string& user);

  void Start();
  void Stop();
  /// Ends the server and every session at once, as a crash of its machine would.
  void Kill();

  int port() const { return port_; }
  int tls_port() const { return tls_port_; }
  /// A certificate file to trust (SSL_CERT_FILE); it names "localhost" and 127.0.0.1.
  std::string certificate() const { return folder_ / "cert.pem"; }
  /// What the server logged.
  std::string Log() const;

 private:
  void WriteConfiguration();
  std::string Mailbox(const std::string& user) const { return folder_ / "mail/" + user; }
  std::vector<std::string> Files(const std::string& user) const;

  TempFolder folder_;
  int delivered_ = 0;
  int port_ = 0;
  int tls_port_ = 0;
  pid_t pid_ = -1;
};

}  // namespace korvane::test
