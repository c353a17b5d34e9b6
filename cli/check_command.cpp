// korvane check: looks an installation over, for all its users, and repairs what can be repaired.
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "cli/progress.h"
#include "cli/stored_messages.h"
#include "cli/terminal_text.h"
#include "engine/mail_engine.h"
#include "facade/account_directory.h"
#include "facade/mail_user.h"
#include "frame/files.h"
#include "frame/schema.h"
#include "frame/sql_text.h"
#include "message/message_file.h"

namespace korvane::cli {
namespace {

namespace fs = std::filesystem;

struct CheckOptions {
  bool repair = false;
};

class Report {
 public:
  struct Finding {
    std::string what;
    bool repaired;
    Exit kind;
  };
  void Found(Exit kind, const std::string& what, bool repaired = false) {
    findings_.push_back({what, repaired, kind});
  }
  const std::vector<Finding>& findings() const { return findings_; }
  /// The kind of the first fault that is left.
  Exit Status() const {
    for (const Finding& finding : findings_) {
      if (!finding.repaired) return finding.kind;
    }
    return Exit::kSuccess;
  }

 private:
  std::vector<Finding> findings_;
};

void CheckFolders(const BossObject& boss, Report& report) {
  const std::map<std::string, std::string> folders = {{"PathAtcmts", boss.PathAtcmts()},
                                                      {"PathMessages", boss.PathMessages()},
                                                      {"PathLog", boss.PathLog()}};
  for (const auto& [name, folder] : folders) {
    if (folder.empty()) {
      report.Found(Exit::kSettings, "the setting " + name + " is empty");
    } else if (::access(folder.c_str(), R_OK | W_OK | X_OK) != 0 || !fs::is_directory(folder)) {
      std::string found = "the folder ";
      found.append(folder).append(" (").append(name).append(") is missing or cannot be written");
      report.Found(Exit::kFiles, found);
    }
  }
}

/// Every user of whom there is something: rows, accounts or files.
std::set<int32_t> Users(Connection& database, const std::string& path_messages) {
  std::set<int32_t> users;
  for (const char* statement : {"SELECT DISTINCT id_utente FROM mail",
                                "SELECT DISTINCT id_utente FROM ultimi_scaricamenti"}) {
    const auto rows = database.Execute(statement);
    for (; !rows->Eof(); rows->MoveNext()) users.insert(rows->FieldAt(0).ToInt32().value_or(0));
    rows->Close();
  }
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(path_messages, error)) {
    const std::string name = entry.path().filename().string();
    const size_t digits = name.find_first_not_of("0123456789");
    if (digits == 0 || digits == std::string::npos || digits > 9) continue;
    if (name.substr(digits).starts_with("_Messaggi"))
      users.insert(std::stoi(name.substr(0, digits)));
  }
  return users;
}

class UserCheck {
 public:
  UserCheck(const Installation& installation, Options options, bool repair, Report& report)
      : installation_(installation),
        options_(std::move(options)),
        repair_(repair),
        report_(report),
        web_(OpenFacade(installation, options_)),
        stored_(installation, *web_) {}

  void Run() {
    if (Compaction()) Messages();
    Accounts();
  }
  int64_t messages() const { return messages_; }

 private:
  std::string Who() const { return "user " + std::to_string(options_.user) + ": "; }

  // False when the file cannot be looked at before the compaction is settled.
  bool Compaction() {
    const std::string& folder = web_->Account()->PathMessages();
    const UserLock lock(MessageFilePath(folder, options_.user));
    if (!lock.Held()) {
      report_.Found(Exit::kFiles, Who() + "the lock in " + folder + " cannot be taken");
      return false;
    }
    const bool backup = FileExists(BackupFilePath(folder, options_.user));
    const bool half = FileExists(CompactedFilePath(folder, options_.user));
    bool done = false;
    if (repair_ && backup) {
      done = RecoverMessageFile(*installation_.connection, folder, options_.user);
    } else if (repair_ && half) {
      done = RemoveFile(CompactedFilePath(folder, options_.user));
    }
    if (backup || half) {
      report_.Found(Exit::kFiles, Who() + "a compaction was interrupted", done);
    }
    return !backup || done;
  }

  void Messages() {
    ProgressLine progress("User " + std::to_string(options_.user), options_.json);
    for (const AccountEntry& account :
         AccountDirectory(*installation_.connection).List(options_.user)) {
      accounts_.insert(account.id);
    }
    const auto rows = stored_.Rows(" AND Cancellata=0 AND body_scaricato<>-1");
    for (const MailRow& row : rows) {
      progress.Show(static_cast<int32_t>(++messages_), static_cast<int32_t>(rows.size()),
                    "messages");
      const std::string fault = FaultOf(row);
      if (fault.empty()) continue;
      const bool repaired = repair_ && FetchAgain(row);
      progress.Clear();
      report_.Found(Exit::kFiles, Who() + "message " + std::to_string(row.id) + ": " + fault,
                    repaired);
    }
  }

  std::string FaultOf(const MailRow& row) {
    std::shared_ptr<MailMessage> message;
    try {
      message = stored_.Read(row.id);
    } catch (const Failure& failure) {
      return failure.Text();
    }
    if (!message) return "";  // deleted or compacted meanwhile
    if (message->GetLastError() != 0) return "its record cannot be read";
    std::string missing;
    if (message->Entity()) MissingFiles(*message->Entity(), missing);
    for (const auto& file : message->UUFiles()) {
      const bool there = FileExists(file->UUNameOnServer());
      if (!file->UUNameOnServer().empty() && !there) Add(missing, file->UUName());
    }
    return missing.empty() ? "" : "files of attachments are missing: " + missing;
  }

  static void Add(std::string& list, const std::string& name) {
    list += (list.empty() ? "" : ", ") + Printable(name);
  }
  static void MissingFiles(const MultipartEntity& entity, std::string& missing) {
    const std::string path = entity.FilePath();
    if (!path.empty() && !FileExists(path)) Add(missing, entity.Name());
    for (const auto& child : entity.Children()) MissingFiles(*child, missing);
  }

  void Change(const MailRow& row, const std::string& to) {
    installation_.connection->Execute("UPDATE mail SET " + to +
                                      " WHERE id_mail=" + std::to_string(row.id));
  }

  // A message that is still on its server is fetched from there, as if only its header were here.
  // Where that fails, its row stays as it was.
  bool FetchAgain(const MailRow& row) {
    if (row.on_server < 0 || !accounts_.contains(row.account)) return false;
    Change(row, "body_scaricato=-1");
    const bool fetched = web_->GetMessage(row.id) != nullptr;
    if (!fetched) Change(row, "body_scaricato=" + std::to_string(row.position));
    if (!row.read) Change(row, "Letto=0");
    return fetched && FaultOf(row).empty();
  }

  bool Settled(int32_t account) {
    const auto row = installation_.connection->Execute(
        "SELECT Error FROM ultimi_scaricamenti WHERE id_utente=" + std::to_string(options_.user) +
        " AND id_server=" + std::to_string(account));
    const bool settled = row->Eof() || !row->Field("Error").ToBool().value_or(true);
    row->Close();
    return settled;
  }

  // A complete run that looks every message up ends the doubt.
  void Accounts() {
    for (const AccountEntry& account :
         AccountDirectory(*installation_.connection).List(options_.user)) {
      if (Settled(account.id)) continue;
      std::string fault =
          "account " + std::to_string(account.id) + ": its last download did not come to its end";
      bool repaired = false;
      if (repair_) {
        web_->Engine()->SetOptions({.settle = true, .deep = false});
        web_->MailListPageSize(1);
        web_->GetListMessagesInBox(1, account.id, true, false, "", false, EMailOrder::ORDER_DATA,
                                   EMailOrderDirection::ORDER_DESC, 1);
        const Failure failure(*web_);
        repaired = failure.number() == 0 && Settled(account.id);
        if (failure.number() != 0) fault += "; " + failure.Text();
      }
      report_.Found(Exit::kOther, Who() + fault, repaired);
    }
  }

  const Installation& installation_;
  Options options_;
  bool repair_;
  Report& report_;
  std::shared_ptr<WebInterface> web_;
  StoredMessages stored_;
  std::set<int32_t> accounts_;
  int64_t messages_ = 0;
};

Exit Check(const Options& options, const CheckOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  Report report;
  CheckFolders(*installation.boss, report);
  const int32_t version = SchemaVersion(installation.boss->DbConnectionString());
  if (version != kSchemaVersion) {
    report.Found(Exit::kDatabase, "the tables are of version " + std::to_string(version) +
                                      ", this program needs " + std::to_string(kSchemaVersion) +
                                      ": run korvane init");
  }
  const auto users = Users(*installation.connection, installation.boss->PathMessages());
  int64_t messages = 0;
  for (const int32_t user : users) {
    Options of_user = options;
    of_user.user = user;
    UserCheck check(installation, of_user, wanted.repair, report);
    check.Run();
    messages += check.messages();
  }
  std::vector<std::string> items;
  for (const Report::Finding& finding : report.findings()) {
    items.push_back(JsonObject()
                        .Text("finding", finding.what)
                        .Flag("repaired", finding.repaired)
                        .Number("status", static_cast<int>(finding.kind))
                        .Str());
    if (!options.json) {
      std::cout << (finding.repaired ? "repaired  " : "FAULT     ") << finding.what << "\n";
    }
  }
  if (options.json) {
    std::cout << JsonObject()
                     .Number("users", static_cast<int64_t>(users.size()))
                     .Number("messages", messages)
                     .Raw("findings", JsonArray(items))
                     .Str()
              << "\n";
    return report.Status();
  }
  std::cout << users.size() << (users.size() == 1 ? " user, " : " users, ") << messages
            << " messages looked at: ";
  if (report.findings().empty()) {
    std::cout << "everything is well\n";
  } else if (report.Status() == Exit::kSuccess) {
    std::cout << "everything was repaired\n";
  } else {
    std::cout << (wanted.repair ? "not everything could be repaired\n"
                                : "korvane check --repair repairs what can be repaired\n");
  }
  return report.Status();
}

}  // namespace

void AddCheckCommand(Program& program) {
  auto wanted = std::make_shared<CheckOptions>();
  CLI::App* command = program.AddCommand(
      program.app, "check", "look the installation over: settings, tables, records, attachments",
      [&program, wanted] { return Check(program.options, *wanted); });
  command->add_flag("--repair", wanted->repair,
                    "finish interrupted compactions, fetch what was lost here and is still on the "
                    "server, settle accounts whose last download was interrupted");
}

}  // namespace korvane::cli
