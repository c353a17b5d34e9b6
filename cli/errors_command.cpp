// korvane errors: every error number, what it means and what to do.
#include <iostream>
#include <memory>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "frame/error_numbers.h"

namespace korvane::cli {
namespace {

std::string JsonOf(const ErrorEntry& entry) {
  return JsonObject()
      .Number("number", entry.number)
      .Text("name", entry.name)
      .Text("class", entry.owner)
      .Text("meaning", entry.meaning)
      .Text("advice", entry.advice)
      .Number("status", static_cast<int>(ExitFor(entry.number)))
      .Str();
}

Exit Errors(const Options& options, int32_t number) {
  std::vector<const ErrorEntry*> entries;
  if (number != 0) {
    const ErrorEntry* entry = FindError(number);
    if (!entry) throw Failure(Exit::kNotFound, "no error has the number " + std::to_string(number));
    entries.push_back(entry);
  } else {
    for (const ErrorEntry& entry : AllErrors()) entries.push_back(&entry);
  }
  std::vector<std::string> items;
  for (const ErrorEntry* entry : entries) {
    if (options.json) {
      items.push_back(JsonOf(*entry));
    } else {
      std::cout << entry->number << "  " << entry->owner << ": " << entry->meaning << "\n      "
                << entry->advice << "\n";
    }
  }
  if (options.json) std::cout << JsonObject().Raw("errors", JsonArray(items)).Str() << "\n";
  return Exit::kSuccess;
}

}  // namespace

void AddErrorsCommand(Program& program) {
  auto number = std::make_shared<int32_t>(0);
  CLI::App* command =
      program.AddCommand(program.app, "errors", "what the error numbers mean",
                         [&program, number] { return Errors(program.options, *number); });
  command->add_option("number", *number, "only this one");
}

}  // namespace korvane::cli
