// From what a caller passed to what a member takes: arguments by position and by name are put in
// order, omitted ones take their published defaults, and each is converted to its parameter's type
// as automation converts ("12" is 12, "abc" is a mistake).
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "frame/any.h"
#include "frame/object_model.h"

namespace korvane::automation {

/// A caller's mistake; the text says which argument and why.
class ArgumentError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

struct Argument {
  std::string_view name;  ///< "" when given by position
  Any value;
  bool missing = false;
};

struct MatchedArguments {
  std::vector<Any> values;           ///< one for each parameter
  std::vector<int32_t> passed_from;  ///< which argument each came from, -1 when omitted
};

/// Throws ArgumentError.
MatchedArguments Match(const model::Member& member, std::span<Argument> arguments);

}  // namespace korvane::automation
