// korvane compose: saves a message into a box. Nothing is sent.
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "cli/saved_file.h"
#include "cli/stored_messages.h"
#include "cli/terminal_text.h"
#include "frame/code_page.h"
#include "frame/files.h"

namespace korvane::cli {
namespace {

namespace fs = std::filesystem;

struct ComposeOptions {
  std::string from;
  std::vector<std::string> to;
  std::vector<std::string> cc;
  std::vector<std::string> bcc;
  std::string reply_to;
  std::string in_reply_to;
  std::string subject;
  std::string date;
  std::string body = "-";
  std::vector<std::string> attachments;
  int32_t box = 3;
};

std::string Joined(const std::vector<std::string>& items) {
  std::string list;
  for (const std::string& item : items) list += (list.empty() ? "" : ", ") + ToUtf8(item);
  return list;
}

std::string ReadBody(const std::string& file) {
  std::string text;
  if (file == "-") {
    text.assign(std::istreambuf_iterator<char>(std::cin), {});
  } else if (!ReadWholeFile(file, text)) {
    throw Failure(Exit::kFiles, "the text " + file + " cannot be read");
  }
  // A text of a mail has CR LF line ends.
  std::string lines;
  lines.reserve(text.size() + text.size() / 32);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) lines += '\r';
    lines += text[i];
  }
  return ToUtf8(std::move(lines));
}

int64_t SizeOf(const std::string& file) {
  BinaryFile opened;
  if (fs::is_directory(file) || !opened.Open(file, BinaryFile::Mode::kRead)) {
    throw Failure(Exit::kFiles, "the attachment " + file + " cannot be read");
  }
  return opened.Length();
}

// The content goes where the message says, in the place of what a former message of that number
// may have left there.
void PutInPlace(const std::string& file, const std::string& place) {
  if (place.empty()) throw Failure(Exit::kFiles, "the installation has no folder for attachments");
  const fs::path path(place);
  NewFile copy(path.parent_path().string(), "." + path.filename().string().substr(0, 200) + ".new");
  CopyInto(copy, file);
  copy.Close();
  if (!RenameFile(copy.path(), place)) {
    RemoveFile(copy.path());
    throw Failure(Exit::kFiles, place + ": cannot be written");
  }
  SyncDirectory(path.parent_path().string());
}

Exit Compose(const Options& options, const ComposeOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  int64_t size = 0;
  for (const std::string& file : wanted.attachments) size += SizeOf(file);
  std::string body = ReadBody(wanted.body);
  size += static_cast<int64_t>(body.size());

  const auto message = web->NewMessage();
  if (!message) throw Failure(*web);
  if (!wanted.from.empty()) message->NM_From(ToUtf8(wanted.from));
  if (!wanted.to.empty()) message->NM_MessageTo(Joined(wanted.to));
  message->NM_CC(Joined(wanted.cc));
  message->NM_BCC(Joined(wanted.bcc));
  message->NM_ReplyTo(ToUtf8(wanted.reply_to));
  message->NM_InReplyTo(ToUtf8(wanted.in_reply_to));
  message->NM_Subject(ToUtf8(wanted.subject));
  if (!wanted.date.empty()) message->NM_SendDate(wanted.date);
  message->NM_MessageBody(std::move(body));
  message->NM_Size(static_cast<int32_t>(std::min<int64_t>(size, INT32_MAX)));
  std::vector<std::shared_ptr<MailAttachment>> attachments;
  for (const std::string& file : wanted.attachments) {
    attachments.push_back(message->NM_NewAttachment());
    attachments.back()->NM_FileName(fs::path(file).filename().string());
  }
  if (!message->NM_Save(installation.connection, wanted.box)) throw Failure(*message);
  try {
    for (size_t i = 0; i < attachments.size(); ++i) {
      PutInPlace(wanted.attachments[i], attachments[i]->NameOnServer());
    }
  } catch (const Failure&) {
    // A message without its attachments is not what was asked for.
    web->DeleteMessage(Any(message->Id()), EDelType::DEL_TYPE_LOCALE);
    throw;
  }
  if (options.json) {
    std::cout << JsonObject().Number("id", message->Id()).Number("box", wanted.box).Str() << "\n";
  } else {
    std::cout << "Message " << message->Id() << " saved in box " << wanted.box << "\n";
  }
  return Exit::kSuccess;
}

}  // namespace

void AddComposeCommand(Program& program) {
  auto wanted = std::make_shared<ComposeOptions>();
  CLI::App* command =
      program.AddCommand(program.app, "compose", "save a new message into a box; nothing is sent",
                         [&program, wanted] { return Compose(program.options, *wanted); });
  command->add_option("--from", wanted->from, "the sender")->type_name("ADDRESS");
  command->add_option("--to", wanted->to, "recipients")->type_name("ADDRESS");
  command->add_option("--cc", wanted->cc, "recipients of a copy")->type_name("ADDRESS");
  command->add_option("--bcc", wanted->bcc, "recipients of a hidden copy")->type_name("ADDRESS");
  command->add_option("--reply-to", wanted->reply_to, "where answers go")->type_name("ADDRESS");
  command->add_option("--in-reply-to", wanted->in_reply_to, "Message-ID of what it answers");
  command->add_option("--subject", wanted->subject, "the subject");
  command->add_option("--date", wanted->date, "dd/mm/yyyy hh:mm:ss; the present when left out");
  command->add_option("--body", wanted->body, "file of the text; - is the standard input")
      ->capture_default_str()
      ->type_name("FILE");
  command->add_option("--attach", wanted->attachments, "files to attach")->type_name("FILE");
  command->add_option("--box", wanted->box, "the box")->capture_default_str();
}

}  // namespace korvane::cli
