// What ends a command: a status, the library's number where it has one, and words.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "exit_codes.h"
#include "frame/error_state.h"

namespace korvane::cli {

class Failure : public std::runtime_error {
 public:
  /// A fault of the command line's own.
  Failure(Exit status, const std::string& what) : std::runtime_error(what), status_(status) {}
  /// A fault of the library: its number, and the text that came with it.
  explicit Failure(const ErrorState& source)
      : std::runtime_error(source.GetLastErrorDesc()),
        status_(ExitFor(source.GetLastError())),
        number_(source.GetLastError()) {}

  Exit status() const { return status_; }
  int32_t number() const { return number_; }

  /// For people: the number, what it means, what the server said, what to do.
  std::string Text() const;
  /// The same as an object of JSON.
  std::string Json() const;

 private:
  /// What a server said, or a fault of the command line's own; the library itself says "XXX".
  std::string Said() const;

  Exit status_;
  int32_t number_ = 0;
};

}  // namespace korvane::cli
