// What the subcommands share: the options that all of them take, and how one is run. Each
// subcommand is a file of its own with one function that enters it here.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "exit_codes.h"

namespace korvane::cli {

/// Options of every subcommand.
struct Options {
  int32_t instance = 1;
  int32_t user = 1;
  std::string registry;
  bool json = false;
};

struct Program {
  CLI::App app;
  Options options;
  /// What the command line asks for; set by the subcommand that was given. May throw Failure.
  std::function<Exit()> run;

  /// A subcommand with the common options. `action` lives in `run` when it was given.
  CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& what,
                       std::function<Exit()> action);
};

/// The option --password-file of a command that may have to log in to a mail server.
void AddPasswordFile(CLI::App& command, std::string& file);

void AddInitCommand(Program& program);
void AddMigrateCommand(Program& program);
void AddAccountCommand(Program& program);
void AddSyncCommand(Program& program);
void AddListCommand(Program& program);
void AddErrorsCommand(Program& program);
void AddShowCommand(Program& program);
void AddAttachmentsCommand(Program& program);
void AddDeleteCommand(Program& program);
void AddComposeCommand(Program& program);
void AddCleanCommand(Program& program);
void AddCheckCommand(Program& program);
void AddExportCommand(Program& program);
void AddImportCommand(Program& program);
void AddObjectModelCommand(Program& program);

}  // namespace korvane::cli
