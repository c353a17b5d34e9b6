// Two site nodes that work for one user at the same time, over one database and one folder: they
// synchronise, open, delete and compact at random, mail keeps coming, and now and then one of them
// is killed. Afterwards every message is there once, with its own bytes.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "engine_fixture.h"
#include "frame/files.h"
#include "maintenance/cleaner.h"
#include "message/message_file.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"
#include "support/shared_folder.h"

namespace korvane::test {
namespace {

constexpr std::chrono::seconds kTime{10};
constexpr int kFirstMessages = 20;

/// Every message has bytes of its own; every fourth has a file.
std::string BytesOf(int number) {
  std::string bytes = "this is " + std::to_string(number) + "\r\n";
  std::mt19937 random(static_cast<unsigned>(number));
  for (unsigned lines = random() % 300; lines > 0; --lines) {
    bytes += std::string(60, static_cast<char>('a' + random() % 26)) + "\r\n";
  }
  return bytes;
}
std::string MessageOf(int number) {
  std::string bytes = BytesOf(number);
  std::erase(bytes, '\r');
  if (number % 4 != 0) {
    std::string text = Mail(number, number * 10);
    return text.substr(0, text.find("\n\n") + 2) + bytes;
  }
  std::string text = Mail(number, number * 10,
                          "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=\"=b\"\n");
  return text.substr(0, text.find("\n\n") + 2) + "--=b\nContent-Type: text/plain\n\n" + bytes +
         "\n--=b\nContent-Type: application/octet-stream; name=\"f.bin\"\n"
         "Content-Disposition: attachment; filename=\"f.bin\"\n\nfile " +
         std::to_string(number) + "\n--=b--\n";
}

/// What is wrong with an opened message; nothing when it is its own.
std::string Wrong(const MailUser& account, MailMessage& message) {
  const std::string subject = message.Subject(ETextFormat::TextFormat_Normal);
  if (!subject.starts_with("mail ")) return "a subject that nobody wrote: " + subject;
  const int number = std::stoi(subject.substr(5));
  std::string text;
  message.MessageBody(text, ETextAlternativeType::AlterType_Default,
                      ETextFormat::TextFormat_Normal);
  const std::string bytes = BytesOf(number);
  if (text != bytes && text + "\r\n" != bytes && text != bytes + "\r\n") {
    return "the text of " + subject + " is not its own: " + text.substr(0, 40);
  }
  if (number % 4 != 0) return "";
  const auto attachments = message.GetAttachments();
  if (attachments->Count() != 1) return subject + " has lost its file";
  std::string file;
  ReadWholeFile(account.PathAtcmts() + "/" + attachments->ItemIndex(1)->NameOnServer(), file);
  return file == "file " + std::to_string(number) ? "" : "the file of " + subject + ": " + file;
}

/// A session that did not come to its end, as where another one deletes at the same time.
bool OfTheServer(int32_t error) {
  return (error >= error::ReceiveFailed && error <= error::DeleteHeaderFailed) ||
         error >= error::ConnectFailed;
}

/// One process of a node; it notes what it does in a file that outlives it.
class Node {
 public:
  Node(Store& store, unsigned seed, const std::string& notes)
      : store_(store),
        random_(seed),
        notes_(::open(notes.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600)) {}

  [[noreturn]] void Work() {
    while (true) {
      try {
        const unsigned what = random_() % 16;
        if (what < 5) {
          Synchronise();
        } else if (what < 9) {
          Open();
        } else if (what < 12) {
          Delete();
        } else if (what < 14) {
          List();
        } else {
          Compact();
        }
      } catch (const std::exception& fault) {
        Note("fault", fault.what());
      }
    }
  }

 private:
  struct Row {
    int32_t id;
    std::string subject;
  };

  void Note(const std::string& what, const std::string& about) const {
    const std::string line = what + " " + about + "\n";
    (void)!::write(notes_, line.data(), line.size());
  }
  void Unless(bool fine, const std::string& what) const {
    if (!fine) Note("fault", what);
  }

  /// Rows that can be deleted: the greatest identifier stays, so that none is used again.
  std::vector<Row> Rows(Connection& connection) const {
    std::vector<Row> rows;
    const auto row = connection.Execute(
        "SELECT id_mail, oggetto FROM mail WHERE id_utente=7 AND Cancellata=0 ORDER BY id_mail");
    for (; !row->Eof(); row->MoveNext()) {
      rows.push_back({row->Field("id_mail").ToInt32().value_or(0), row->Field("oggetto").ToText()});
    }
    if (!rows.empty()) rows.pop_back();
    return rows;
  }

  void Synchronise() {
    Request request(store_);
    request.engine.SetOptions({.settle = random_() % 2 == 0});
    MailEngine::SyncRequest sync;
    sync.header_only = random_() % 4 == 0;
    sync.delete_on_server = random_() % 3 == 0;
    request.Sync(sync);
    const int32_t error = request.Error();
    // The other node deletes on the server at the same time: a message may be gone when its turn
    // comes. Nothing of the store may fail.
    Unless(error == 0 || OfTheServer(error), "synchronisation: " + std::to_string(error));
    Note("synchronised", std::to_string(error));
  }

  void Open() {
    Request request(store_);
    const auto rows = Rows(*request.connection);
    if (rows.empty()) return;
    const Row& row = rows[random_() % rows.size()];
    const auto message = request.engine.GetMessage(row.id, "", false);
    if (!message) return Note("unopened", row.subject + " " + std::to_string(request.Error()));
    const std::string wrong = Wrong(*request.account_object, *message);
    Unless(wrong.empty(), wrong);
    Unless(message->Subject(ETextFormat::TextFormat_Normal) == row.subject,
           row.subject + " opens as another one");
    Note("opened", row.subject);
  }

  void Delete() {
    Request request(store_);
    const auto rows = Rows(*request.connection);
    if (rows.size() < 10) return;
    const Row& row = rows[random_() % rows.size()];
    Note("deleting", row.subject);
    const auto type =
        random_() % 2 == 0 ? EDelType::DEL_TYPE_LOCALE : EDelType::DEL_TYPE_LOCALE_SERVER;
    if (request.engine.DeleteMessage(row.id, type)) Note("deleted", row.subject);
  }

  void List() {
    Request request(store_);
    MailMessages::ListRequest list;
    list.page = -1;
    MailEngine::SyncRequest none;
    none.server_id = -1;
    const auto page =
        request.engine.GetListMessagesInBox(none, list, &request.pages, &request.mails);
    Unless(request.Error() == 0, "listing: " + std::to_string(request.Error()));
    std::set<std::string> subjects;
    for (int32_t i = 1; i <= page->Count(); ++i) {
      const std::string subject = page->ItemIndex(i)->Subject(ETextFormat::TextFormat_Normal);
      Unless(subjects.insert(subject).second, subject + " is listed twice");
    }
    Note("listed", std::to_string(page->Count()));
  }

  void Compact() {
    Request request(store_);
    request.connection->Execute("UPDATE Pulizia SET dim_msg_canc_file=4000000 WHERE id_utente=7");
    CompactMessageFile(*request.connection, request.account_object->PathMessages(), 7);
    Note("compacted", "");
  }

  Store& store_;
  std::mt19937 random_;
  int notes_;
};

class TwoNodes {
 public:
  explicit TwoNodes(const std::string& url, const SharedFolder* shared = nullptr) : store_(url) {
    if (shared) Share(*shared);
    dovecot_.AddUser("bob");
    dovecot_.Start();
    Store::Account row;
    row.port = dovecot_.port();
    row.name = "bob";
    row.password = DovecotServer::kPassword;
    store_.Add(row);
    Deliver(kFirstMessages);
  }

  void Run(unsigned seed) {
    std::mt19937 random(seed);
    store_.LetGo();
    pid_t nodes[2] = {Start(0, random()), Start(1, random())};
    const auto end = std::chrono::steady_clock::now() + kTime;
    while (std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 150));
      Deliver(static_cast<int>(random() % 3));
      if (random() % 3 != 0) continue;
      const int victim = static_cast<int>(random() % 2);
      End(nodes[victim]);
      nodes[victim] = Start(victim, random());
    }
    End(nodes[0]);
    End(nodes[1]);
    store_.TakeUp();
    ReadNotes();
    Complete();
    CheckNodes();
    CheckStore();
  }

 private:
  std::string Notes() const { return store_.folder() + "/notes"; }

  void Deliver(int count) {
    for (; count > 0; --count) {
      ++delivered_;
      dovecot_.Deliver("bob", MessageOf(delivered_));
    }
  }

  /// The second node has settings of its own: another way to the same files.
  void Share(const SharedFolder& shared) {
    std::ifstream file(store_.folder() + "/registry.reg", std::ios::binary);
    std::string settings((std::istreambuf_iterator<char>(file)), {});
    for (const char* name : {"/messages", "/attachments"}) {
      const std::string own = store_.folder() + name;
      std::filesystem::remove(own);
      std::filesystem::create_directory(shared.way(0) + name);
      std::filesystem::create_directory_symlink(shared.way(0) + name, own);
      for (size_t at = 0; (at = settings.find('"' + own, at)) != std::string::npos;) {
        settings.replace(at, own.size() + 1, '"' + shared.way(1) + name);
      }
    }
    second_settings_ = store_.folder() + "/second.reg";
    std::ofstream(second_settings_, std::ios::binary) << settings;
  }

  pid_t Start(int node, unsigned seed) {
    const pid_t child = ::fork();
    if (child != 0) return child;
    if (node == 1 && !second_settings_.empty()) {
      ::setenv("KORVANE_REGISTRY", second_settings_.c_str(), 1);
    }
    Node(store_, seed, Notes()).Work();
  }
  void End(pid_t node) {
    ::kill(node, SIGKILL);
    int status = 0;
    ::waitpid(node, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "a node died by itself";
    ++kills_;
  }

  void ReadNotes() {
    std::ifstream file(Notes());
    for (std::string line; std::getline(file, line);) {
      const std::string what = line.substr(0, line.find(' '));
      const std::string about = line.substr(what.size() + 1);
      ++done_[what];
      if (what == "fault") ADD_FAILURE() << about;
      if (what == "deleting") deleting_.insert(about);
      if (what == "deleted") deleted_.insert(about);
      if (what == "unopened") unopened_.push_back(about);
    }
  }

  /// What a page does next: nothing has to be repaired by hand.
  void Complete() {
    for (int i = 0; i < 2; ++i) {
      Request request(store_);
      request.SyncWhole();
      EXPECT_EQ(request.Error(), 0);
    }
    store_.db().Execute("UPDATE Pulizia SET dim_msg_canc_file=4000000 WHERE id_utente=7");
    EXPECT_EQ(CompactMessageFile(store_.db(), store_.MessageFolder(), 7), 0);
  }

  void CheckNodes() {
    // A message is not opened only where it is being deleted, or its session was disturbed by a
    // deletion on the server.
    for (const std::string& note : unopened_) {
      const size_t space = note.rfind(' ');
      const int error = std::stoi(note.substr(space + 1));
      EXPECT_TRUE(deleting_.contains(note.substr(0, space)) || OfTheServer(error)) << note;
    }
    std::printf("%d messages, %d kills;", delivered_, kills_);
    for (const auto& [what, count] : done_) std::printf(" %d %s", count, what.c_str());
    std::printf("\n");
    for (const char* what : {"synchronised", "opened", "deleted", "listed", "compacted"}) {
      EXPECT_GT(done_[what], 5) << what;
    }
  }

  void CheckStore() {
    std::map<std::string, int> live;
    BinaryFile file;
    ASSERT_TRUE(file.Open(store_.MessageFile(), BinaryFile::Mode::kRead));
    std::map<int64_t, int64_t> records;
    for (const auto& row : store_.Rows()) {
      SCOPED_TRACE(row.subject);
      EXPECT_FALSE(row.deleted);
      ++live[row.subject];
      if (row.position != -1) {
        const auto outline = OutlineRecord(file, row.position);
        ASSERT_TRUE(outline);
        records[row.position] = outline->length;
      }
      Request request(store_);
      const auto message = request.engine.GetMessage(row.id, "", false);
      ASSERT_TRUE(message) << request.Error();
      EXPECT_EQ(Wrong(*request.account_object, *message), "");
      EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), row.subject);
    }
    // No record reaches into another. What a killed node wrote without its row stays between them.
    int64_t next = 1;
    for (const auto& [position, length] : records) {
      EXPECT_GE(position, next);
      next = position + length;
    }
    for (int number = 1; number <= delivered_; ++number) {
      const std::string subject = "mail " + std::to_string(number);
      const int count = live.contains(subject) ? live[subject] : 0;
      if (deleted_.contains(subject)) {
        EXPECT_EQ(count, 0) << subject << " came back";
      } else if (deleting_.contains(subject)) {
        EXPECT_LE(count, 1) << subject;
      } else {
        EXPECT_EQ(count, 1) << subject;
      }
    }
    EXPECT_FALSE(FileExists(BackupFilePath(store_.MessageFolder(), 7)));
    EXPECT_FALSE(FileExists(CompactedFilePath(store_.MessageFolder(), 7)));
  }

  Store store_;
  std::string second_settings_;
  DovecotServer dovecot_;
  int delivered_ = 0;
  int kills_ = 0;
  std::map<std::string, int> done_;
  std::set<std::string> deleting_;
  std::set<std::string> deleted_;
  std::vector<std::string> unopened_;
};

TEST(TwoNodesOfOneUser, LoseAndDoubleNothingOnSqlite) { TwoNodes("").Run(20260301); }

TEST(TwoNodesOfOneUser, LoseAndDoubleNothingOverTwoMountsOfASharedFileSystem) {
  const SharedFolder shared;
  TwoNodes("", &shared).Run(20260304);
}

TEST(TwoNodesOfOneUser, LoseAndDoubleNothingOnPostgresql) {
  PostgresServer server;
  TwoNodes(server.MakeDatabase("mail")).Run(20260302);
}

TEST(TwoNodesOfOneUser, LoseAndDoubleNothingOnMariadb) {
  MariadbServer server;
  TwoNodes(server.MakeDatabase("mail")).Run(20260303);
}

}  // namespace
}  // namespace korvane::test
