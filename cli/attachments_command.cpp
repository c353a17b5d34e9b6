// korvane attachments: the attachments of a message, listed or saved.
#include <iostream>
#include <memory>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "cli/saved_file.h"
#include "cli/stored_messages.h"
#include "cli/table.h"
#include "cli/terminal_text.h"

namespace korvane::cli {
namespace {

struct AttachmentsOptions {
  int32_t id = 0;
  std::string folder;
  std::string password_file;
};

Exit Attachments(const Options& options, const AttachmentsOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  UsePassword(*web, wanted.password_file);
  StoredMessages(installation, *web).Find(wanted.id);
  const auto message = web->GetMessage(wanted.id);
  if (!message) throw Failure(*web);
  const auto attachments = AttachmentsOf(*message, *web->Account());
  if (!wanted.folder.empty() && !attachments.empty()) NeedFolder(wanted.folder);

  Exit status = Exit::kSuccess;
  Table table({{"Id", true},
               {"Name", false, 10},
               {"Bytes", true},
               {wanted.folder.empty() ? "Address" : "Saved as"}});
  std::vector<std::string> items;
  for (const StoredAttachment& item : attachments) {
    std::string saved;
    if (!wanted.folder.empty() && item.size >= 0) {
      NewFile file(wanted.folder, SafeFileName(item.name));
      CopyInto(file, item.path);
      file.Close();
      saved = file.path();
    } else if (item.size < 0) {
      std::cerr << "korvane: the file of attachment " << item.id << " (" << Printable(item.name)
                << ") is missing: " << Printable(item.path) << "\n";
      status = Exit::kFiles;
    }
    table.AddRow({std::to_string(item.id), item.name,
                  item.size < 0 ? "missing" : std::to_string(item.size),
                  wanted.folder.empty() ? item.address : saved});
    JsonObject json;
    json.Number("id", item.id).Text("name", item.name).Text("url", item.address);
    json.Number("size", item.size);
    if (!saved.empty()) json.Text("saved", saved);
    items.push_back(json.Str());
  }
  if (options.json) {
    std::cout << JsonObject().Raw("attachments", JsonArray(items)).Str() << "\n";
  } else if (attachments.empty()) {
    std::cout << "Message " << wanted.id << " has no attachments.\n";
  } else {
    table.Print(std::cout, TerminalWidth());
  }
  return status;
}

}  // namespace

void AddAttachmentsCommand(Program& program) {
  auto wanted = std::make_shared<AttachmentsOptions>();
  CLI::App* command = program.AddCommand(
      program.app, "attachments", "list the attachments of a message, or save them",
      [&program, wanted] { return Attachments(program.options, *wanted); });
  command->add_option("id", wanted->id, "the message's number in the list")->required();
  command
      ->add_option("--save-to", wanted->folder,
                   "copy the files into this folder; none that is there is overwritten")
      ->type_name("DIR");
  AddPasswordFile(*command, wanted->password_file);
}

}  // namespace korvane::cli
