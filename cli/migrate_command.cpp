// korvane migrate: the tables of an installation copied to another database. The files stay where
// they are, and so does the old database; the settings are changed by "korvane init --database"
// afterwards.
#include <iostream>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "frame/database_copy.h"
#include "frame/schema.h"

namespace korvane::cli {
namespace {

struct MigrateOptions {
  std::string from;
  std::string to;
};

Exit Migrate(const Options& options, MigrateOptions wanted) {
  // A URL with a password in it is not for the command line.
  if (wanted.from == "-") std::getline(std::cin, wanted.from);
  if (wanted.to == "-") std::getline(std::cin, wanted.to);
  if (wanted.from == wanted.to) throw Failure(Exit::kUsage, "both are the same database");
  // What this program does not know it could not copy.
  const int32_t version = SchemaVersion(wanted.from);
  if (version == 0) throw Failure(Exit::kDatabase, "the database to copy from has no tables");
  if (version != kSchemaVersion) {
    throw Failure(Exit::kDatabase, "the tables to copy from are of version " +
                                       std::to_string(version) + ", this program needs " +
                                       std::to_string(kSchemaVersion) +
                                       ": run korvane init on them");
  }
  CreateSchema(wanted.to);
  const auto from = OpenDatabase(wanted.from);
  const auto to = OpenDatabase(wanted.to);
  const auto copied = CopyDatabase(*from, *to);
  const std::string difference = FirstDifference(*from, *to);
  if (!difference.empty()) {
    throw Failure(Exit::kDatabase, "the copy is not the same: " + difference +
                                       ". Was one of the databases in use, or not empty at first?");
  }
  if (options.json) {
    std::vector<std::string> tables;
    tables.reserve(copied.size());
    for (const CopiedTable& table : copied) {
      tables.push_back(JsonObject()
                           .Text("table", table.name)
                           .Number("there", table.there)
                           .Number("copied", table.copied)
                           .Str());
    }
    std::cout << JsonObject().Raw("tables", JsonArray(tables)).Str() << "\n";
    return Exit::kSuccess;
  }
  for (const CopiedTable& table : copied) {
    std::cout << table.name << ": " << table.copied << " rows";
    if (table.there > 0) std::cout << ", " << table.there << " were there";
    std::cout << "\n";
  }
  std::cout << "Every row was read again in both and is the same.\n"
            << "Next: korvane init --database URL\n";
  return Exit::kSuccess;
}

}  // namespace

void AddMigrateCommand(Program& program) {
  auto wanted = std::make_shared<MigrateOptions>();
  CLI::App* command =
      program.AddCommand(program.app, "migrate", "copy the tables to another database",
                         [&program, wanted] { return Migrate(program.options, *wanted); });
  command
      ->add_option("--from", wanted->from, "URL to copy from; - reads it from the standard input")
      ->type_name("URL")
      ->required();
  command
      ->add_option("--to", wanted->to,
                   "URL to copy to, of an empty database or of a copy that was broken off; - reads "
                   "it from the standard input")
      ->type_name("URL")
      ->required();
}

}  // namespace korvane::cli
