// korvane: the mail store from the command line. It uses the component as any site does.
#include <clocale>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "frame/database.h"

namespace korvane::cli {
namespace {

constexpr const char* kFooter =
    "\nThe settings are read from $KORVANE_REGISTRY, else /etc/korvane/registry.reg.\n"
    "Status: 0 done, 1 other, 2 wrong command line, 3 settings, 4 database, 5 no such account,\n"
    "6 server not reached, 7 login refused, 8 server failed, 9 file of the store, 10 not found.\n"
    "korvane COMMAND --help tells more about a command.";

Exit Report(const Failure& failure, bool json) {
  if (json) std::cout << JsonObject().Raw("error", failure.Json()).Str() << "\n";
  std::cerr << "korvane: " << failure.Text() << "\n";
  return failure.status();
}

Exit Run(Program& program) {
  const bool json = program.options.json;
  try {
    return program.run();
  } catch (const Failure& failure) {
    return Report(failure, json);
  } catch (const DatabaseError& fault) {
    return Report(Failure(Exit::kDatabase, std::string("the database: ") + fault.what()), json);
  } catch (const std::exception& fault) {
    return Report(Failure(Exit::kOther, fault.what()), json);
  }
}

int Main(int argc, char** argv) {
  // How wide characters are; nothing else depends on the language of the machine.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  Program program;
  program.app.description("Keeps a local copy of POP3 mailboxes.");
  program.app.name("korvane");
  program.app.set_version_flag("--version", std::string("korvane ") + KORVANE_VERSION);
  program.app.footer(kFooter);
  program.app.require_subcommand(1);
  AddInitCommand(program);
  AddMigrateCommand(program);
  AddAccountCommand(program);
  AddSyncCommand(program);
  AddListCommand(program);
  AddShowCommand(program);
  AddAttachmentsCommand(program);
  AddDeleteCommand(program);
  AddComposeCommand(program);
  AddCleanCommand(program);
  AddCheckCommand(program);
  AddExportCommand(program);
  AddImportCommand(program);
  AddObjectModelCommand(program);
  AddErrorsCommand(program);
  try {
    program.app.parse(argc, argv);
  } catch (const CLI::ParseError& wrong) {
    return program.app.exit(wrong) == 0 ? 0 : static_cast<int>(Exit::kUsage);
  }
  if (!program.options.registry.empty()) {
    setenv("KORVANE_REGISTRY", program.options.registry.c_str(), 1);
  }
  return static_cast<int>(Run(program));
}

}  // namespace

CLI::App* Program::AddCommand(CLI::App& parent, const std::string& name, const std::string& what,
                              std::function<Exit()> action) {
  CLI::App* command = parent.add_subcommand(name, what);
  if (!action) return command;
  command->add_option("--instance", options.instance, "number of the installation")
      ->capture_default_str()
      ->check(CLI::Range(1, 999999));
  command->add_option("--user", options.user, "number of the user")->capture_default_str();
  command->add_option("--registry", options.registry, "settings file")->type_name("FILE");
  command->add_flag("--json", options.json, "results as JSON");
  command->callback([this, action = std::move(action)] { run = action; });
  return command;
}

void AddPasswordFile(CLI::App& command, std::string& file) {
  command
      .add_option("--password-file", file,
                  "for accounts whose password is not kept; see korvane account add --help")
      ->type_name("FILE");
}

}  // namespace korvane::cli

int main(int argc, char** argv) { return korvane::cli::Main(argc, argv); }
