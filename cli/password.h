// Where a password comes from: never from the command line, which everybody on the machine can see.
#pragma once

#include <string>

namespace korvane::cli {

/// The first line of `file` ("-" is the standard input) when one is named; else $KORVANE_PASSWORD;
/// else asked for at the terminal, without echo; else the first line of the standard input. Throws
/// Failure.
std::string ReadPassword(const std::string& file, const std::string& prompt);

}  // namespace korvane::cli
