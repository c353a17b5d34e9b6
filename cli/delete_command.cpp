// korvane delete: deletes messages here, on their servers or both.
#include <algorithm>
#include <iostream>
#include <memory>
#include <vector>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "cli/stored_messages.h"

namespace korvane::cli {
namespace {

struct DeleteOptions {
  std::vector<int32_t> ids;
  bool here = false;
  bool server = false;
  bool both = false;
  std::string password_file;
};

Exit Delete(const Options& options, DeleteOptions wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  UsePassword(*web, wanted.password_file);
  const StoredMessages stored(installation, *web);

  std::sort(wanted.ids.begin(), wanted.ids.end());
  wanted.ids.erase(std::unique(wanted.ids.begin(), wanted.ids.end()), wanted.ids.end());
  Exit status = Exit::kSuccess;
  std::vector<std::string> left_out;
  std::vector<std::string> deleted;
  std::string ids;
  for (const int32_t id : wanted.ids) {
    try {
      const MailRow row = stored.Find(id);
      // What is to stay here has to be here first.
      if (wanted.server && row.position == -1 && !web->GetMessage(id)) throw Failure(*web);
      ids += (ids.empty() ? "" : ",") + std::to_string(id);
      deleted.push_back(std::to_string(id));
    } catch (const Failure& failure) {
      if (status == Exit::kSuccess) status = failure.status();
      std::cerr << "korvane: message " << id << " is left as it is: " << failure.Text() << "\n";
      left_out.push_back(JsonObject().Number("id", id).Raw("error", failure.Json()).Str());
    }
  }
  if (!ids.empty()) {
    const EDelType type = wanted.here     ? EDelType::DEL_TYPE_LOCALE
                          : wanted.server ? EDelType::DEL_TYPE_SERVER
                                          : EDelType::DEL_TYPE_LOCALE_SERVER;
    if (!web->DeleteMessage(Any(ids), type)) throw Failure(*web);
  }
  if (options.json) {
    std::cout << JsonObject()
                     .Raw("deleted", JsonArray(deleted))
                     .Raw("left_out", JsonArray(left_out))
                     .Str()
              << "\n";
  } else {
    std::cout << deleted.size() << (deleted.size() == 1 ? " message" : " messages") << " deleted"
              << (wanted.here     ? " here"
                  : wanted.server ? " on the server, kept here"
                                  : " here and on the server")
              << "\n";
  }
  return status;
}

}  // namespace

void AddDeleteCommand(Program& program) {
  auto wanted = std::make_shared<DeleteOptions>();
  CLI::App* command =
      program.AddCommand(program.app, "delete", "delete messages here, on the server or both",
                         [&program, wanted] { return Delete(program.options, *wanted); });
  command->add_option("ids", wanted->ids, "their numbers in the list")->required();
  auto* where = command->add_option_group("where", "one of these has to be said");
  where->add_flag("--local", wanted->here, "here; the server keeps it");
  where->add_flag(
      "--server", wanted->server,
      "on the server, kept here; one of which only the header is here is fetched first");
  where->add_flag("--both", wanted->both, "here and on the server");
  where->require_option(1);
  AddPasswordFile(*command, wanted->password_file);
}

}  // namespace korvane::cli
