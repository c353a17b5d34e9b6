// korvane show: one message.
#include <ctime>
#include <iostream>
#include <map>
#include <memory>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/message_date.h"
#include "cli/program.h"
#include "cli/stored_messages.h"
#include "cli/terminal_text.h"
#include "frame/code_page.h"

namespace korvane::cli {
namespace {

const std::map<std::string, ETextFormat> kFormats = {{"plain", ETextFormat::TextFormat_Normal},
                                                     {"html", ETextFormat::TextFormat_HTML},
                                                     {"bare", ETextFormat::TextFormat_HTMLNoPRE}};
const std::map<std::string, ETextAlternativeType> kAlternatives = {
    {"text", ETextAlternativeType::AlterType_Text},
    {"html", ETextAlternativeType::AlterType_Html},
    {"any", ETextAlternativeType::AlterType_Default}};

struct ShowOptions {
  int32_t id = 0;
  bool full_header = false;
  ETextFormat format = ETextFormat::TextFormat_Normal;
  ETextAlternativeType alternative = ETextAlternativeType::AlterType_Text;
  std::string password_file;
};

void PrintLines(std::string_view text) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    // Tabs are part of a text's layout.
    while (true) {
      const size_t tab = std::min(line.find('\t'), line.size());
      std::cout << Printable(line.substr(0, tab));
      if (tab == line.size()) break;
      std::cout << '\t';
      line.remove_prefix(tab + 1);
    }
    std::cout << '\n';
  }
}

void PrintField(const char* name, const std::string& value) {
  if (!value.empty()) std::cout << name << Printable(value) << "\n";
}

void Print(MailMessage& message, const ShowOptions& wanted, const std::string& text,
           const std::vector<StoredAttachment>& attachments) {
  if (wanted.full_header && !message.OriginalHeader().empty()) {
    PrintLines(ToUtf8(message.OriginalHeader()));
  } else {
    const std::time_t now = std::time(nullptr);
    PrintField("From:     ", message.From());
    PrintField("To:       ", message.MessageTo());
    PrintField("Cc:       ", message.CC());
    PrintField("Reply-To: ", message.ReplyTo());
    PrintField("Date:     ", ReadableDate(message.ReceivedDate(), now));
    PrintField("Subject:  ", message.Subject(ETextFormat::TextFormat_Normal));
  }
  for (const StoredAttachment& item : attachments) {
    std::cout << "Attached: " << Printable(item.name);
    if (item.size >= 0) std::cout << ", " << item.size << " bytes";
    std::cout << (item.size >= 0 ? ", " : ", file missing") << Printable(item.address) << "\n";
  }
  std::cout << "\n";
  PrintLines(text);
}

std::string JsonOf(MailMessage& message, const ShowOptions& wanted, const std::string& text,
                   const std::vector<StoredAttachment>& attachments) {
  std::vector<std::string> items;
  items.reserve(attachments.size());
  for (const StoredAttachment& item : attachments) {
    items.push_back(JsonObject()
                        .Number("id", item.id)
                        .Text("name", item.name)
                        .Text("url", item.address)
                        .Number("size", item.size)
                        .Str());
  }
  JsonObject json;
  json.Number("id", message.Id())
      .Text("date", IsoDate(message.ReceivedDate()))
      .Text("from", message.From())
      .Text("to", message.MessageTo())
      .Text("cc", message.CC())
      .Text("bcc", message.BCC())
      .Text("reply_to", message.ReplyTo())
      .Text("message_id", message.MessageID())
      .Text("subject", message.Subject(ETextFormat::TextFormat_Normal))
      .Number("size", message.Size());
  if (wanted.full_header) json.Text("header", ToUtf8(message.OriginalHeader()));
  return json.Text("text", text).Raw("attachments", JsonArray(items)).Str();
}

Exit Show(const Options& options, const ShowOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  UsePassword(*web, wanted.password_file);
  StoredMessages(installation, *web).Find(wanted.id);
  const auto message = web->GetMessage(wanted.id);
  if (!message) throw Failure(*web);
  std::string text;
  // A message without a text of that kind is shown without one.
  message->MessageBody(text, wanted.alternative, wanted.format);
  const auto attachments = AttachmentsOf(*message, *web->Account());
  if (options.json) {
    std::cout << JsonOf(*message, wanted, text, attachments) << "\n";
  } else {
    Print(*message, wanted, text, attachments);
  }
  return Exit::kSuccess;
}

}  // namespace

void AddShowCommand(Program& program) {
  auto wanted = std::make_shared<ShowOptions>();
  CLI::App* command = program.AddCommand(
      program.app, "show", "show a message; one of which only the header is here is fetched first",
      [&program, wanted] { return Show(program.options, *wanted); });
  command->add_option("id", wanted->id, "its number in the list")->required();
  command->add_flag("--full-header", wanted->full_header, "the header as it came");
  command
      ->add_option("--format", wanted->format,
                   "plain: as it is; html: as HTML, plain text within <pre>; bare: without <pre>")
      ->transform(CLI::CheckedTransformer(kFormats, CLI::ignore_case).description(""))
      ->type_name("FORMAT");
  command
      ->add_option("--alternative", wanted->alternative,
                   "text (the default), html or any: which of several forms of the same text")
      ->transform(CLI::CheckedTransformer(kAlternatives, CLI::ignore_case).description(""))
      ->type_name("KIND");
  AddPasswordFile(*command, wanted->password_file);
}

}  // namespace korvane::cli
