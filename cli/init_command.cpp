// korvane init: the settings file, the folders and the tables of an installation. What is there
// stays, so it can be run again.
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "cli/failure.h"
#include "cli/installation.h"
#include "cli/json.h"
#include "cli/program.h"
#include "frame/files.h"
#include "frame/registry.h"
#include "frame/schema.h"

namespace korvane::cli {
namespace {

namespace fs = std::filesystem;

constexpr int32_t kTimeout = 60'000;  // milliseconds
constexpr std::string_view kEmptySettings = "Windows Registry Editor Version 5.00\r\n\r\n";

struct InitOptions {
  std::string folder;
  std::string database;
  std::string address;
  bool dry_run = false;
};

std::string DefaultFolder() {
  if (geteuid() == 0) return "/var/lib/korvane";
  const char* home = std::getenv("HOME");
  return home && *home ? std::string(home) + "/.local/share/korvane" : "korvane";
}

void MakeFolder(const fs::path& folder) {
  std::error_code error;
  if (fs::is_directory(folder, error)) return;
  fs::create_directories(folder, error);
  if (!error) fs::permissions(folder, fs::perms::owner_all, error);
  if (error) {
    throw Failure(Exit::kFiles, "the folder " + folder.string() + ": " + error.message());
  }
}

/// The path as a URL takes it.
std::string PercentEncoded(const std::string& path) {
  std::string encoded;
  for (const unsigned char c : path) {
    if (std::isalnum(c) || c == '/' || c == '.' || c == '-' || c == '_' || c >= 0x80) {
      encoded += static_cast<char>(c);
    } else {
      const char* digits = "0123456789ABCDEF";
      encoded += {'%', digits[c >> 4], digits[c & 15]};
    }
  }
  return encoded;
}

/// One installation's key in the settings file.
class Settings {
 public:
  explicit Settings(int32_t instance) {
    const std::string file = Registry::FilePath();
    if (!FileExists(file)) {
      MakeFolder(fs::absolute(file).parent_path());
      if (!WriteWholeFile(file, kEmptySettings, true)) {
        throw Failure(Exit::kSettings, "the settings file " + file + " cannot be written");
      }
    }
    const std::string path = "SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane" +
                             std::to_string(instance) + "\\KorvaneDll";
    Registry machine;
    Must(machine.OpenKey(Registry::kLocalMachine, "", Registry::kCreateSubKey));
    Must(machine.CreateKey(path));
    Must(key_.OpenKey(Registry::kLocalMachine, path, Registry::kQueryValue | Registry::kSetValue));
  }

  /// What is set already stays, unless something else was asked for.
  std::string Text(const char* name, const std::string& wanted, bool asked_for) {
    std::string value;
    if (!asked_for && key_.GetStringValue(name, value) == Registry::kSuccess) return value;
    Must(key_.SetStringValue(name, wanted));
    return wanted;
  }
  void Number(const char* name, int32_t wanted) {
    int32_t value = 0;
    if (key_.GetLongValue(name, value) != Registry::kSuccess) Must(key_.SetLongValue(name, wanted));
  }

 private:
  static void Must(int32_t status) {
    if (status == Registry::kSuccess) return;
    throw Failure(Exit::kSettings, "the settings file " + Registry::FilePath() +
                                       " cannot be changed (status " + std::to_string(status) +
                                       ")");
  }

  Registry key_;
};

/// The database that is set, if one is.
std::string DatabaseThatIsSet(int32_t instance) {
  Registry key;
  std::string value;
  const std::string path =
      "SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane" + std::to_string(instance) + "\\KorvaneDll";
  if (key.OpenKey(Registry::kLocalMachine, path, Registry::kQueryValue) == Registry::kSuccess) {
    key.GetStringValue("DbConnectionString", value);
  }
  return value;
}

/// What would be done to the tables; nothing is.
Exit ShowPlan(const Options& options, const std::string& database) {
  const SchemaPlan plan = PlanSchema(database);
  if (options.json) {
    std::vector<std::string> statements;
    statements.reserve(plan.statements.size());
    for (const std::string& statement : plan.statements) {
      statements.push_back(JsonText(statement));
    }
    std::cout << JsonObject()
                     .Number("schema", plan.version)
                     .Number("needed", kSchemaVersion)
                     .Raw("statements", JsonArray(statements))
                     .Str()
              << "\n";
    return Exit::kSuccess;
  }
  for (const std::string& statement : plan.statements) std::cout << statement << ";\n";
  std::cout << "-- The tables are of version " << plan.version << ", needed is " << kSchemaVersion
            << (plan.statements.empty() ? ": nothing to do.\n" : ".\n");
  return Exit::kSuccess;
}

Exit Init(const Options& options, InitOptions wanted) {
  // A URL with a password in it is not for the command line.
  if (wanted.database == "-") std::getline(std::cin, wanted.database);
  const bool folder_given = !wanted.folder.empty();
  const fs::path folder = fs::absolute(folder_given ? wanted.folder : DefaultFolder());
  const bool database_given = !wanted.database.empty();
  const std::string database = database_given
                                   ? wanted.database
                                   : "sqlite://" + PercentEncoded((folder / "mail.db").string());

  if (wanted.dry_run) {
    const std::string set =
        database_given || folder_given ? "" : DatabaseThatIsSet(options.instance);
    return ShowPlan(options, set.empty() ? database : set);
  }

  Settings settings(options.instance);
  const auto path = [&](const char* name, const char* leaf) {
    std::string value = settings.Text(name, (folder / leaf).string(), folder_given);
    MakeFolder(value);
    return value;
  };
  path("PathAtcmts", "attachments");
  path("PathAtcmtsInvio", "outgoing");
  settings.Text("URLAtcmts", wanted.address.empty() ? "/attachments" : wanted.address,
                !wanted.address.empty());
  const std::string messages = path("PathMessages", "messages");
  path("PathLog", "log");
  path("PathBackgrDownloader", "downloads");
  const std::string connection =
      settings.Text("DbConnectionString", database, database_given || folder_given);
  settings.Number("ServerTimeout", kTimeout);
  settings.Number("DebugMode", 0);

  CreateSchema(connection);
  OpenInstallation(options);

  if (options.json) {
    std::cout << JsonObject()
                     .Number("instance", options.instance)
                     .Text("registry", Registry::FilePath())
                     .Text("messages", messages)
                     .Number("schema", SchemaVersion(connection))
                     .Str()
              << "\n";
    return Exit::kSuccess;
  }
  std::cout << "Installation " << options.instance << " is ready.\n"
            << "  settings  " << Registry::FilePath() << "\n"
            << "  messages  " << messages << "\n"
            << "Next: korvane account add --server HOST --username NAME\n";
  return Exit::kSuccess;
}

}  // namespace

void AddInitCommand(Program& program) {
  auto wanted = std::make_shared<InitOptions>();
  CLI::App* command =
      program.AddCommand(program.app, "init", "make the settings, the folders and the tables",
                         [&program, wanted] { return Init(program.options, *wanted); });
  command->add_flag("--dry-run", wanted->dry_run,
                    "change nothing; print the statements that would make or change the tables");
  command->add_option("--dir", wanted->folder, "folder for messages, attachments and logs")
      ->type_name("FOLDER");
  command
      ->add_option("--database", wanted->database,
                   "URL of the database; by default an SQLite file in the folder; - reads it from "
                   "the standard input")
      ->type_name("URL");
  command
      ->add_option("--attachments-url", wanted->address,
                   "address under which the site publishes the folder of the attachments")
      ->type_name("URL");
}

}  // namespace korvane::cli
