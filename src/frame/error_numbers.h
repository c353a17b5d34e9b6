// The error numbers by name, and their texts for people. The numbers are published: callers tell
// faults apart by the number alone.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace korvane {

namespace error {
enum Number : int32_t {
  None = 0,
#define KORVANE_ERROR(number, name, owner, meaning, advice) name = (number),
#include "errors.def"
#undef KORVANE_ERROR
};
}  // namespace error

/// One line of the table of errors. The views live as long as the program.
struct ErrorEntry {
  int32_t number;
  std::string_view name;
  std::string_view owner;    ///< the class whose check sets it
  std::string_view meaning;  ///< what went wrong
  std::string_view advice;   ///< what to do about it
};

/// All errors in the order of their numbers.
std::span<const ErrorEntry> AllErrors();

/// The line of `number`, or none.
const ErrorEntry* FindError(int32_t number);

}  // namespace korvane
