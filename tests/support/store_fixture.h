// A store for tests: a folder with an SQLite database, a settings file, the message files and the
// attachments of one installation, and verbs to look into them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/boss_object.h"
#include "frame/database.h"
#include "support/temp_folder.h"

namespace korvane::test {

/// The host of a server here, in the form that KORVANE_TEST_SCHEME ("pop3+ahead://") asks for.
std::string LocalHost();

class Store {
 public:
  /// Over the empty database at `url`, or over an SQLite database of its own. Names its settings
  /// file in KORVANE_REGISTRY.
  explicit Store(std::string url = "");

  struct Account {
    int32_t user = 7;
    std::string host = LocalHost();
    int32_t port = 110;
    std::string name;
    std::string password;
    int32_t timeout = 10'000;
    Any kind = 0;  ///< column "caso"
    bool is_default = true;
  };
  /// Adds an account; its identifier.
  int32_t Add(const Account& account);
  void ChangeAccount(int32_t id, const std::string& column, const Any& value);

  const std::string& url() const { return url_; }
  /// The connection that the tests look through, not the one that the code under test uses.
  Connection& db() { return *connection_; }
  std::shared_ptr<Connection> Connect() const { return OpenDatabase(url()); }
  /// Without a connection of its own for a while: a process that forks takes none with it.
  void LetGo() { connection_.reset(); }
  void TakeUp() { connection_ = Connect(); }
  std::shared_ptr<BossObject> Boss() const;

  std::string folder() const { return folder_.path(); }
  std::string MessageFolder() const { return folder_ / "messages"; }
  std::string AttachmentFolder() const { return folder_ / "attachments"; }
  std::string LogFolder() const { return folder_ / "log"; }
  std::string MessageFile(int32_t user = 7) const;
  int64_t MessageFileSize(int32_t user = 7) const;
  std::vector<std::string> AttachmentFiles() const;
  void SetDebugMode(bool on);

  struct Row {
    int32_t id;
    int32_t account;
    int32_t box;
    int32_t number;  ///< IdSulServer
    int64_t position;
    int32_t size;
    std::string subject;
    std::string received;
    std::string message_id;
    bool read;
    bool deleted;
    bool known_with_older;  ///< DwnldCorrettoFAQ
    bool attachments;
  };
  /// A user's rows in the order of their identifiers.
  std::vector<Row> Rows(int32_t user = 7);
  Row RowOf(int32_t id);
  void Change(int32_t id, const std::string& column, const Any& value);
  /// Subjects of the rows, oldest identifier first.
  std::vector<std::string> Subjects(int32_t user = 7);

  struct Bookkeeping {
    std::string time;
    bool error;
  };
  /// The row of "ultimi_scaricamenti", or nothing.
  std::optional<Bookkeeping> Kept(int32_t account, int32_t user = 7);
  void Keep(int32_t account, const Bookkeeping& kept, int32_t user = 7);
  /// The counter of dead bytes, or nothing without its row.
  std::optional<int64_t> DeadBytes(int32_t user = 7);
  int64_t CountOf(const std::string& statement);

 private:
  TempFolder folder_;
  std::string url_;
  std::shared_ptr<Connection> connection_;
  int32_t accounts_ = 0;
};

}  // namespace korvane::test
