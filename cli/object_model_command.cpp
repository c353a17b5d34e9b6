// korvane object-model: the published classes, their members and the enumerations.
#include <iostream>

#include "cli/program.h"
#include "frame/object_model.h"

namespace korvane::cli {

void AddObjectModelCommand(Program& program) {
  program.AddCommand(program.app, "object-model",
                     "print the classes that scripts use, as Markdown or JSON", [&program] {
                       std::string text =
                           program.options.json ? model::ToJson() : model::ToMarkdown();
                       if (!text.ends_with('\n')) text += '\n';
                       std::cout << text;
                       return Exit::kSuccess;
                     });
}

}  // namespace korvane::cli
