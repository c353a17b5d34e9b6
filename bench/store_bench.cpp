// The message file: how fast a compaction copies beside cp, and how much memory storing one large
// message takes. "store_bench compaction FOLDER MEGABYTES RECORD_BYTES" prints seconds round by
// round: copied, read back, and on the disk, then cp and cp with its bytes on the disk;
// "store_bench memory FOLDER MEGABYTES KIND" prints the message's size and the peak of the memory;
// "store_bench batches FOLDER URL USER BATCHES MESSAGES BYTES" stores downloads of MESSAGES
// messages into a database that has its tables and prints for each the seconds that it took, waited
// for the lock of the identifiers and held it, and how often it was begun;
// "store_bench rows FOLDER MESSAGES BATCH" prints how many messages a second are stored, so many in
// one commit (0: as many as a download stores in one).
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "engine/downloaded_store.h"
#include "facade/mail_user.h"
#include "frame/schema.h"
#include "frame/sql_text.h"
#include "maintenance/cleaner.h"
#include "maintenance/compaction_steps.h"
#include "message/mail_message.h"
#include "message/message_file.h"
#include "pop3/mail_server.h"
#include "pop3/new_messages.h"

using namespace korvane;

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::shared_ptr<MailUser> AccountIn(const std::string& folder, int32_t user = 7) {
  const std::string settings = folder + "/registry.reg";
  std::ofstream(settings) << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\"
                             "Korvane1\\KorvaneDll]\n\"PathAtcmts\"=\""
                          << folder << "\"\n\"PathAtcmtsInvio\"=\"\"\n\"URLAtcmts\"=\"/f\"\n"
                          << "\"PathMessages\"=\"" << folder << "\"\n\"PathLog\"=\"\"\n"
                          << "\"PathBackgrDownloader\"=\"\"\n\"DbConnectionString\"=\"\"\n"
                          << "\"ServerTimeout\"=dword:00001b58\n";
  setenv("KORVANE_REGISTRY", settings.c_str(), 1);
  BossObject boss;
  boss.Init(1);
  auto account = std::make_shared<MailUser>();
  account->InitFromConfig(boss, nullptr, user, MailUser::kNoAccount);
  return account;
}

std::shared_ptr<Connection> DatabaseIn(const std::string& folder) {
  const std::string url = "sqlite://" + folder + "/mail.db";
  CreateSchema(url);
  return OpenDatabase(url);
}

void Store(MailMessage& message, int32_t id, Connection& connection, BinaryFile& file, bool sync) {
  message.SetId(id);
  const auto row = connection.Open("mail");
  row->AddNew();
  row->SetField("Letto", Any(false));
  row->SetField("DwnldCorrettoFAQ", Any(false));
  MailMessage::StoreOptions options;
  options.sync = sync;
  if (!message.StoreRecordAndRow(*row, file, options) ||
      row->Field("body_scaricato").ToInt32() == -1) {
    std::fprintf(stderr, "the message could not be stored\n");
    std::exit(1);
  }
  row->Update();
}

// Every fourth message is dead; the rest has to be copied.
void FillMessageFile(const std::shared_ptr<MailUser>& account, Connection& connection,
                     size_t megabytes, size_t record) {
  BinaryFile file;
  file.Open(MessageFilePath(*account), BinaryFile::Mode::kReadWrite);
  Transaction transaction(connection);
  const int32_t count = static_cast<int32_t>(megabytes * 1'000'000 / record);
  for (int32_t id = 1; id <= count; ++id) {
    MailMessage message;
    message.LoadWholeMessage(
        account, id, static_cast<int32_t>(record), "u", "",
        "Subject: number " + std::to_string(id) + "\r\n\r\n" + std::string(record, 'x'));
    Store(message, id, connection, file, false);
  }
  file.Sync();
  connection.Execute("UPDATE mail SET Cancellata=-1 WHERE id_mail%4=0");
  connection.Execute("INSERT INTO Pulizia VALUES (1, 7, 2000000000)");
  transaction.Commit();
}

// Seconds until the records are copied, read back, and put on the disk with everything else.
struct CompactionTime {
  double copied = 0;
  double read_back = 0;
  double whole = 0;
};

struct Enough {};

// One compaction. Unless it is the last it ends before it changes anything, so that the next one
// finds the same file.
CompactionTime TimeCompaction(Connection& connection, const std::string& folder, bool last) {
  CompactionTime time;
  const auto start = Clock::now();
  try {
    CompactMessageFile(connection, folder, 7, [&](const char* step) {
      if (std::strcmp(step, "copied") == 0) time.copied = SecondsSince(start);
      if (std::strcmp(step, "read back") == 0) time.read_back = SecondsSince(start);
      if (std::strcmp(step, "synced") == 0 && !last) throw Enough();
    });
  } catch (const Enough&) {
  }
  time.whole = SecondsSince(start);
  return time;
}

double TimeCp(const std::string& source, const std::string& target) {
  std::string program = "cp";
  std::string option = "--reflink=never";
  std::string from = source;
  std::string to = target;
  char* arguments[] = {program.data(), option.data(), from.data(), to.data(), nullptr};
  const auto start = Clock::now();
  pid_t child = 0;
  int status = 1;
  if (posix_spawnp(&child, "cp", nullptr, nullptr, arguments, environ) != 0 ||
      waitpid(child, &status, 0) != child || status != 0) {
    std::fprintf(stderr, "cp failed\n");
    std::exit(1);
  }
  return SecondsSince(start);
}

double TimeSync(const std::string& path) {
  const auto start = Clock::now();
  SyncFile(path);
  return SecondsSince(start);
}

// A virtual machine gives memory that is not in use back to its host, and gets it again page by
// page: who happens to write into such memory pays for it. The pages of a file that was removed
// just before are there.
void MakeRoom(const std::string& path, size_t bytes) {
  const std::string block(1'000'000, 'r');
  BinaryFile file;
  file.Open(path, BinaryFile::Mode::kReadWrite);
  for (size_t done = 0; done < bytes; done += block.size()) file.Write(block);
  file.Close();
  sync();
  RemoveFile(path);
}

// Both sides read the same file from the cache and write a new file. They take turns at going
// first; before each everything unwritten is put on the disk, and there is room in memory. The
// first round is not counted.
int Compaction(const std::string& folder, size_t megabytes, size_t record) {
  constexpr int kRounds = 9;
  const auto account = AccountIn(folder);
  const auto connection = DatabaseIn(folder);
  FillMessageFile(account, *connection, megabytes, record);
  const std::string source = MessageFilePath(*account);
  const std::string copy = source + ".copy";
  const auto length = static_cast<long long>(std::filesystem::file_size(source));
  for (int round = 0; round <= kRounds; ++round) {
    CompactionTime compaction;
    double cp = 0;
    double cp_synced = 0;
    const auto prepare = [&] { MakeRoom(folder + "/room", static_cast<size_t>(length) * 3 / 2); };
    const auto compact = [&] {
      prepare();
      compaction = TimeCompaction(*connection, folder, false);
    };
    const auto run_cp = [&] {
      prepare();
      cp = TimeCp(source, copy);
      cp_synced = cp + TimeSync(copy);
      RemoveFile(copy);
    };
    if (round % 2 == 0) {
      compact();
      run_cp();
    } else {
      run_cp();
      compact();
    }
    if (round > 0) {
      std::printf("round %f %f %f %f %f\n", compaction.copied, compaction.read_back,
                  compaction.whole, cp, cp_synced);
    }
  }
  sync();
  const CompactionTime last = TimeCompaction(*connection, folder, true);
  std::printf("sizes %lld %lld %f\n", length,
              static_cast<long long>(std::filesystem::file_size(source)), last.whole);
  return 0;
}

std::string LargeMessage(const std::string& kind, size_t bytes) {
  const std::string line = kind == "base64"
                               ? std::string(76, 'Q') + "\r\n"
                               : "A line of text as people write it, with caf\xC3\xA9.\r\n";
  std::string text = "From: a@example.org\r\nSubject: large\r\nMIME-Version: 1.0\r\n";
  if (kind == "base64") {
    text +=
        "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: "
        "text/plain\r\n\r\n"
        "See the file.\r\n--b\r\nContent-Type: application/octet-stream; name=\"f.bin\"\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\n";
  } else if (kind == "quoted-printable") {
    text += "Content-Type: text/html\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";
  } else {
    text += "Content-Type: text/plain; charset=utf-8\r\n\r\n";
  }
  text.reserve(bytes + 100);
  while (text.size() < bytes) text += line;
  if (kind == "base64") text += "--b--\r\n";
  return text;
}

int Memory(const std::string& folder, size_t megabytes, const std::string& kind) {
  const auto account = AccountIn(folder);
  const auto connection = DatabaseIn(folder);
  BinaryFile file;
  file.Open(MessageFilePath(*account), BinaryFile::Mode::kReadWrite);
  std::string text = LargeMessage(kind, megabytes * 1'000'000);
  const size_t size = text.size();
  const auto start = Clock::now();
  MailMessage message;
  message.LoadWholeMessage(account, 1, static_cast<int32_t>(size), "u", "", std::move(text));
  Store(message, 1, *connection, file, true);
  const double seconds = SecondsSince(start);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%zu %lld %f\n", size, static_cast<long long>(usage.ru_maxrss) * 1024, seconds);
  return 0;
}

// Notes when the lock of the identifiers was taken and given back.
class TimedConnection final : public Connection {
 public:
  explicit TimedConnection(std::shared_ptr<Connection> inner) : inner_(std::move(inner)) {}

  std::shared_ptr<Recordset> Execute(const std::string& statement) override {
    return inner_->Execute(statement);
  }
  std::shared_ptr<Recordset> Open(const std::string& statement) override {
    return inner_->Open(statement);
  }
  void Begin() override { inner_->Begin(); }
  void BeginAllocating() override {
    const auto start = Clock::now();
    ++begun;
    inner_->BeginAllocating();
    taken_ = Clock::now();
    waited += std::chrono::duration<double>(taken_ - start).count();
  }
  void Commit() override {
    inner_->Commit();
    held += SecondsSince(taken_);
  }
  void Rollback() override {
    inner_->Rollback();
    held += SecondsSince(taken_);
  }
  bool HasTransactions() const override { return inner_->HasTransactions(); }
  bool HasTable(std::string_view name) override { return inner_->HasTable(name); }

  double waited = 0;
  double held = 0;
  int begun = 0;

 private:
  std::shared_ptr<Connection> inner_;
  Clock::time_point taken_;
};

// One message of text in the usual mix of header fields; every fifth of a larger size has a file.
std::string MailOf(int32_t user, size_t number, size_t bytes) {
  const std::string n = std::to_string(user) + "." + std::to_string(number);
  std::string text =
      "Received: from a.example by b.example with ESMTP id " + n +
      "; Thu, 5 Mar 2020 10:00:00 +0000\r\nMessage-ID: <" + n +
      "@a.example>\r\nFrom: Ann Example <ann@a.example>\r\nTo: Bob Example <bob@b.example>\r\n"
      "Date: Thu, 5 Mar 2020 10:00:00 +0000\r\nSubject: The report of the week, number " +
      n + "\r\nMIME-Version: 1.0\r\n";
  const bool file = number % 5 == 0 && bytes > 8'000;
  text += file ? "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: "
                 "text/plain\r\n\r\nSee the file.\r\n--b\r\nContent-Type: application/pdf; "
                 "name=\"r.pdf\"\r\nContent-Transfer-Encoding: base64\r\n\r\n"
               : "Content-Type: text/plain; charset=utf-8\r\n\r\n";
  const std::string line = file ? std::string(76, 'Q') + "\r\n"
                                : "A line of text as people write it, of an ordinary length.\r\n";
  while (text.size() < bytes) text += line;
  if (file) text += "--b--\r\n";
  return text;
}

int Batches(const std::string& folder, const std::string& url, int32_t user, size_t batches,
            size_t each, size_t bytes) {
  const auto account = AccountIn(folder, user);
  TimedConnection connection(OpenDatabase(url));
  MailServer server;
  DownloadedStore store(account, connection, server);
  size_t number = 0;
  for (size_t batch = 0; batch < batches; ++batch) {
    // What is added last is the oldest and stored first.
    NewMessages messages(account, true, "", folder);
    for (size_t i = each; i > 0; --i) {
      const size_t which = number + i;
      std::string text = MailOf(user, which, bytes);
      const auto size = static_cast<int32_t>(text.size());
      messages.Add({static_cast<int32_t>(which), size, "", std::move(text)});
    }
    number += each;
    connection.waited = connection.held = 0;
    connection.begun = 0;
    LastDownload state;
    const auto start = Clock::now();
    if (!store.Store(messages, false, state)) {
      std::fprintf(stderr, "batch %zu could not be stored\n", batch);
      return 1;
    }
    std::printf("%f %f %f %d\n", SecondsSince(start), connection.waited, connection.held,
                connection.begun);
  }
  return 0;
}

/// Small messages as a download stores them: record and row, on the disk at the end of each
/// batch.
int Rows(const std::string& folder, int32_t messages, size_t batch) {
  const auto account = AccountIn(folder);
  const auto connection = DatabaseIn(folder);
  BinaryFile file;
  file.Open(MessageFilePath(*account), BinaryFile::Mode::kReadWrite);
  if (batch == 0) batch = DownloadedStore::kBatchMessages;
  const auto start = Clock::now();
  for (int32_t done = 0; done < messages;) {
    Transaction transaction(*connection, Transaction::Kind::kAllocating);
    for (size_t in_batch = 0; in_batch < batch && done < messages; ++in_batch, ++done) {
      const std::string number = std::to_string(done);
      std::string text = "Received: from a by b; Thu, 5 Mar 2020 10:00:00 +0000\r\nMessage-ID: <" +
                         number + "@a>\r\nSubject: Report " + number + "\r\n\r\n";
      text.append(800, 'x');
      MailMessage message;
      message.LoadWholeMessage(account, done + 1, static_cast<int32_t>(text.size()), "u" + number,
                               "", std::move(text));
      Store(message, NextIdentifier(*connection, "SELECT MAX(id_mail) FROM mail"), *connection,
            file, false);
    }
    file.Sync();
    transaction.Commit();
  }
  std::printf("%f\n", messages / SecondsSince(start));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 4 ? argv[1] : "";
  if (what == "compaction") return Compaction(argv[2], std::stoul(argv[3]), std::stoul(argv[4]));
  if (what == "memory") return Memory(argv[2], std::stoul(argv[3]), argv[4]);
  if (what == "batches" && argc > 7) {
    return Batches(argv[2], argv[3], std::stoi(argv[4]), std::stoul(argv[5]), std::stoul(argv[6]),
                   std::stoul(argv[7]));
  }
  if (what == "rows") return Rows(argv[2], std::stoi(argv[3]), std::stoul(argv[4]));
  std::fprintf(stderr,
               "usage: store_bench compaction|memory FOLDER MEGABYTES RECORD_BYTES|KIND\n"
               "       store_bench batches FOLDER URL USER BATCHES MESSAGES BYTES\n"
               "       store_bench rows FOLDER MESSAGES BATCH\n");
  return 2;
}
