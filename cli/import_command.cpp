// korvane import: messages of an mbox, .eml files or a Maildir as messages saved here.
#include <algorithm>
#include <climits>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/mail_archive.h"
#include "cli/program.h"
#include "cli/progress.h"
#include "cli/stored_messages.h"
#include "engine/store_files.h"
#include "facade/mail_user.h"
#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "message/message_file.h"
#include "message/row_text.h"
#include "mime/mail_date.h"

namespace korvane::cli {
namespace {

/// So much is stored at once: what is stored together is put on the disk together.
constexpr size_t kMessagesTogether = 200;
constexpr size_t kBytesTogether = 16 << 20;
constexpr int32_t kNeverOnServer = -10;

struct ImportOptions {
  std::vector<std::string> paths;
  int32_t box = 1;
  bool again = false;
};

std::string DateOf(const MailMessage& message) {
  return PadDate(message.SendDate().empty() ? message.ReceivedDate() : message.SendDate());
}

std::string TextOf(MailMessage& message) {
  std::string text;
  message.MessageBody(text, ETextAlternativeType::AlterType_Default,
                      ETextFormat::TextFormat_Normal);
  return text;
}

class Importer {
 public:
  Importer(const StoredMessages& stored, int32_t box, bool again)
      : stored_(stored), box_(box), again_(again) {
    if (!again_) NoteStored();
  }

  void Add(const ArchivedMessage& archived) {
    if (archived.text.empty()) return;
    const auto size = static_cast<int32_t>(std::min<size_t>(archived.text.size(), INT_MAX));
    auto message = std::make_shared<MailMessage>();
    message->LoadWholeMessage(stored_.account(), kNeverOnServer, size, "", "",
                              WithTransportDots(archived.text));
    // Of a message that never arrived anywhere the time of sending is the only one.
    if (message->Received().empty() && !message->SendDate().empty()) {
      message->NM_SendDate(message->SendDate());
    }
    if (!again_ && IsHere(*message)) {
      ++duplicates_;
      return;
    }
    bytes_ += archived.text.size();
    pending_.push_back({std::move(message), archived.read});
    if (pending_.size() >= kMessagesTogether || bytes_ >= kBytesTogether) Store();
  }

  /// Writes what was added since the last time. Throws Failure and DatabaseError.
  void Store() {
    if (pending_.empty()) return;
    const MessageFileLock lock(stored_.database(), *stored_.account());
    BinaryFile file;
    const std::string path = MessageFilePath(*stored_.account());
    if (!lock.Held() || !file.Open(path, BinaryFile::Mode::kReadWrite)) {
      throw Failure(Exit::kFiles, "the message file " + path + " cannot be opened");
    }
    const int64_t begin = file.Length() + 1;
    std::vector<std::string> files;
    try {
      RetriedTransaction(
          stored_.database(), Transaction::Kind::kAllocating,
          [&] {
            UndoStoredRecord(file, begin, files);
            files.clear();
            WriteAll(file, files);
          },
          [&] {
            return HasMessageOf(stored_.database(), stored_.account()->UserId(),
                                pending_.back().message->Id());
          });
    } catch (const CommitInDoubt&) {
      throw;  // the rows may be there, so what they point at has to stay
    } catch (...) {
      UndoStoredRecord(file, begin, files);
      throw;
    }
    imported_ += static_cast<int64_t>(pending_.size());
    for (const Pending& item : pending_) Note(*item.message);
    pending_.clear();
    bytes_ = 0;
  }

  int64_t imported() const { return imported_; }
  int64_t duplicates() const { return duplicates_; }

 private:
  struct Pending {
    std::shared_ptr<MailMessage> message;
    bool read;
  };

  static std::string KeyOf(const std::string& message_id, const std::string& sender,
                           const std::string& subject) {
    return message_id + "\n" + sender + "\n" + subject;
  }
  static std::string KeyOf(const MailMessage& message) {
    return KeyOf(RowText(message.MessageID(), kMessageIdCharacters),
                 RowText(message.From(), kSenderCharacters),
                 RowText(message.Subject(ETextFormat::TextFormat_Normal), kSubjectCharacters));
  }

  void NoteStored() {
    const auto rows = stored_.database().Execute(
        "SELECT id_mail, campo_MessageId, mittente, oggetto FROM mail WHERE id_utente=" +
        std::to_string(stored_.account()->UserId()) + " AND Cancellata=0");
    for (; !rows->Eof(); rows->MoveNext()) {
      known_.emplace(KeyOf(rows->Field("campo_MessageId").ToText(),
                           rows->Field("mittente").ToText(), rows->Field("oggetto").ToText()),
                     rows->Field("id_mail").ToInt32().value_or(0));
    }
    rows->Close();
  }
  void Note(const MailMessage& message) { known_.emplace(KeyOf(message), message.Id()); }

  // A message without an identifier is the same only when its date and text are.
  bool IsHere(MailMessage& message) {
    const std::string key = KeyOf(message);
    const auto same = [&key](const Pending& item) { return KeyOf(*item.message) == key; };
    if (std::any_of(pending_.begin(), pending_.end(), same)) Store();
    const auto [first, last] = known_.equal_range(key);
    if (!message.MessageID().empty()) return first != last;
    for (auto candidate = first; candidate != last; ++candidate) {
      const auto other = stored_.Read(candidate->second);
      if (other && other->GetLastError() == 0 && DateOf(*other) == DateOf(message) &&
          TextOf(*other) == TextOf(message)) {
        return true;
      }
    }
    return false;
  }

  void WriteAll(BinaryFile& file, std::vector<std::string>& files) {
    Connection& database = stored_.database();
    MailUser& account = *stored_.account();
    account.BoxId(box_);
    int32_t id = NextIdentifier(database, "SELECT MAX(id_mail) FROM mail");
    MailMessage::StoreOptions options;
    options.local = true;
    options.sync = false;
    const auto row = database.Open("mail");
    for (const Pending& item : pending_) {
      MailMessage& message = *item.message;
      message.SetId(id++);
      message.SetIdOnServer(kNeverOnServer);
      row->AddNew();
      row->SetField("DwnldCorrettoFAQ", Any(false));
      if (!message.StoreRecordAndRow(*row, file, options, &files) ||
          row->Field("body_scaricato").ToInt64().value_or(-1) == -1) {
        row->CancelUpdate();
        throw Failure(Exit::kFiles,
                      "a message cannot be written: check the free space and the rights of " +
                          account.PathMessages() + " and " + account.PathAtcmts());
      }
      row->SetField("Letto", Any(item.read));
      // The order of the box it comes from: by arrival where the message tells it.
      if (!message.Received().empty()) {
        row->SetField("data", Any(ArrangeDateOrder(message.ReceivedDate(), account.DayFirst())));
      }
      row->Update();
    }
    row->Close();
    if (!SyncFiles(files) || !file.Sync()) {
      throw Failure(Exit::kFiles, "the messages cannot be put on the disk");
    }
  }

  const StoredMessages& stored_;
  int32_t box_;
  bool again_;
  std::vector<Pending> pending_;
  size_t bytes_ = 0;
  int64_t imported_ = 0;
  int64_t duplicates_ = 0;
  std::multimap<std::string, int32_t> known_;
};

Exit Import(const Options& options, const ImportOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  const StoredMessages stored(installation, *web);
  Importer importer(stored, wanted.box, wanted.again);
  Exit status = Exit::kSuccess;
  std::string fault;
  try {
    ProgressLine progress("Import", options.json);
    for (const std::string& path : wanted.paths) {
      ReadArchive(path, [&](const ArchivedMessage& message, int64_t done, int64_t total) {
        importer.Add(message);
        const int64_t scale = std::max<int64_t>(1, total / 1'000'000);
        progress.Show(static_cast<int32_t>(done / scale), static_cast<int32_t>(total / scale),
                      std::to_string(importer.imported()) + " stored");
      });
    }
    importer.Store();
  } catch (const Failure& failure) {
    // What came before the fault stays.
    status = failure.status();
    fault = failure.Text();
    try {
      importer.Store();
    } catch (const Failure&) {
    }
  }
  if (options.json) {
    JsonObject json;
    json.Number("imported", importer.imported()).Number("duplicates", importer.duplicates());
    if (!fault.empty()) json.Text("error", fault);
    std::cout << json.Str() << "\n";
  } else {
    std::cout << importer.imported() << (importer.imported() == 1 ? " message" : " messages")
              << " imported into box " << wanted.box;
    if (importer.duplicates() > 0) {
      std::cout << ", " << importer.duplicates() << " left out that are here already";
    }
    std::cout << "\n";
  }
  if (!fault.empty()) std::cerr << "korvane: " << fault << "\n";
  return status;
}

}  // namespace

void AddImportCommand(Program& program) {
  auto wanted = std::make_shared<ImportOptions>();
  CLI::App* command = program.AddCommand(
      program.app, "import", "take messages from an mbox, .eml files or a Maildir",
      [&program, wanted] { return Import(program.options, *wanted); });
  command
      ->add_option("paths", wanted->paths,
                   "an mbox, an .eml file, a folder of .eml files, or a Maildir")
      ->required();
  command->add_option("--box", wanted->box, "the box they go to")->capture_default_str();
  command->add_flag("--again", wanted->again, "also messages that are here already");
}

}  // namespace korvane::cli
