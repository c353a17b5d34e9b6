// korvane export: messages as an mbox, .eml files or a Maildir.
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
#include "cli/terminal_text.h"
#include "message/message_source.h"
#include "mime/mail_date.h"

namespace korvane::cli {
namespace {

const std::map<std::string, ArchiveFormat> kFormats = {{"mbox", ArchiveFormat::kMbox},
                                                       {"eml", ArchiveFormat::kEml},
                                                       {"maildir", ArchiveFormat::kMaildir}};

struct ExportOptions {
  ArchiveFormat format = ArchiveFormat::kMbox;
  std::string path;
  std::vector<int32_t> ids;
  int32_t box = 0;
  bool fetch = false;
  std::string password_file;
};

struct Outcome {
  int64_t written = 0;
  int64_t headers_only = 0;
  Exit status = Exit::kSuccess;

  void Fault(int32_t id, const std::string& what, Exit kind) {
    std::cerr << "korvane: message " << id << ": " << what << "\n";
    if (status == Exit::kSuccess) status = kind;
  }
};

void WriteOne(MailMessage& message, const MailRow& row, const MailUser& account,
              ArchiveWriter& archive, Outcome& outcome) {
  std::string date = PadDate(message.ReceivedDate());
  if (message.Received().empty() && !message.SendDate().empty()) date = PadDate(message.SendDate());
  archive.Begin(row.id, message.FromMailAddress(), date, row.read);
  std::vector<std::string> missing;
  WriteMessageSource(
      message, account,
      [&archive](std::string_view piece) {
        archive.Write(piece);
        return true;
      },
      &missing);
  archive.End();
  ++outcome.written;
  for (const std::string& name : missing) {
    outcome.Fault(row.id, "the file of the attachment " + Printable(name) + " cannot be read",
                  Exit::kFiles);
  }
}

std::vector<MailRow> Chosen(const StoredMessages& stored, const ExportOptions& wanted) {
  std::vector<MailRow> rows;
  for (const int32_t id : wanted.ids) rows.push_back(stored.Find(id));
  if (!wanted.ids.empty()) return rows;
  return stored.Rows(
      " AND Cancellata=0" +
      (wanted.box == 0 ? std::string() : " AND id_cartella=" + std::to_string(wanted.box)));
}

Exit Export(const Options& options, const ExportOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  UsePassword(*web, wanted.password_file);
  const StoredMessages stored(installation, *web);
  const auto rows = Chosen(stored, wanted);
  const auto archive = NewArchive(wanted.format, wanted.path);
  Outcome outcome;
  {
    ProgressLine progress("Export", options.json);
    int32_t done = 0;
    for (const MailRow& row : rows) {
      progress.Show(++done, static_cast<int32_t>(rows.size()), "messages");
      if (row.position == -1 && wanted.fetch && !web->GetMessage(row.id)) {
        outcome.Fault(row.id, Failure(*web).Text(), Failure(*web).status());
        continue;
      }
      const auto message = stored.Read(row.id);
      if (!message) {
        ++outcome.headers_only;
      } else if (message->GetLastError() != 0) {
        outcome.Fault(row.id, Failure(*message).Text(), Exit::kFiles);
      } else {
        WriteOne(*message, row, *stored.account(), *archive, outcome);
      }
    }
    archive->Close();
  }
  if (options.json) {
    std::cout << JsonObject()
                     .Number("exported", outcome.written)
                     .Number("headers_only", outcome.headers_only)
                     .Str()
              << "\n";
    return outcome.status;
  }
  std::cout << outcome.written << (outcome.written == 1 ? " message" : " messages")
            << " exported to " << Printable(wanted.path) << "\n";
  if (outcome.headers_only > 0) {
    std::cout << outcome.headers_only
              << " left out, of which only the header is here: --fetch fetches them\n";
  }
  return outcome.status;
}

}  // namespace

void AddExportCommand(Program& program) {
  auto wanted = std::make_shared<ExportOptions>();
  CLI::App* command = program.AddCommand(
      program.app, "export", "write messages to an mbox, .eml files or a Maildir",
      [&program, wanted] { return Export(program.options, *wanted); });
  command->add_option("path", wanted->path, "the mbox, which must not be there yet, or the folder")
      ->required();
  command->add_option("ids", wanted->ids, "numbers of messages; all when left out");
  command->add_option("--format", wanted->format, "mbox (the default), eml or maildir")
      ->transform(CLI::CheckedTransformer(kFormats, CLI::ignore_case).description(""))
      ->type_name("FORMAT");
  command->add_option("--box", wanted->box, "only the messages of this box");
  command->add_flag("--fetch", wanted->fetch,
                    "fetch the messages of which only the header is here");
  AddPasswordFile(*command, wanted->password_file);
}

}  // namespace korvane::cli
