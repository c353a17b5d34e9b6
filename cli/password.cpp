#include "cli/password.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "cli/failure.h"

namespace korvane::cli {
namespace {

std::string FirstLine(std::istream& input) {
  std::string line;
  std::getline(input, line);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

termios settings_before;

/// An interrupted question must not leave the terminal silent.
extern "C" void RestoreAndEnd(int signal) {
  tcsetattr(STDIN_FILENO, TCSANOW, &settings_before);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

std::string Ask(const std::string& prompt) {
  if (tcgetattr(STDIN_FILENO, &settings_before) != 0) {
    throw Failure(Exit::kOther, "the terminal cannot be asked for a password");
  }
  const auto on_interrupt = signal(SIGINT, RestoreAndEnd);
  const auto on_end = signal(SIGTERM, RestoreAndEnd);
  termios silent = settings_before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  std::cerr << prompt << ": " << std::flush;
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
  std::string password = FirstLine(std::cin);
  tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings_before);
  std::cerr << "\n";
  signal(SIGINT, on_interrupt);
  signal(SIGTERM, on_end);
  return password;
}

}  // namespace

std::string ReadPassword(const std::string& file, const std::string& prompt) {
  if (!file.empty() && file != "-") {
    std::ifstream input(file);
    if (!input) throw Failure(Exit::kUsage, "the password file " + file + " cannot be read");
    return FirstLine(input);
  }
  if (file.empty()) {
    if (const char* password = std::getenv("KORVANE_PASSWORD")) return password;
    if (isatty(STDIN_FILENO)) return Ask(prompt);
  }
  if (!std::cin) throw Failure(Exit::kUsage, "no password on the standard input");
  std::string password = FirstLine(std::cin);
  if (password.empty() && std::cin.eof()) {
    throw Failure(Exit::kUsage,
                  "no password: name a --password-file, set KORVANE_PASSWORD or write it to the "
                  "standard input");
  }
  return password;
}

}  // namespace korvane::cli
