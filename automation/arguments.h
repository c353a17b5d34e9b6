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
  enum class Kind {
    kType,     ///< it is nothing that the parameter takes
    kRange,    ///< it is a number beyond 32 bits
    kCount,    ///< there are too many
    kName,     ///< there is no parameter of that name, or it is given already
    kMissing,  ///< one that has no default is not given
  };
  /// `argument` is which of the arguments as passed, -1 when none of them is meant.
  explicit ArgumentError(const std::string& what, Kind kind = Kind::kType, int32_t argument = -1)
      : std::invalid_argument(what), kind_(kind), argument_(argument) {}
  Kind kind() const { return kind_; }
  int32_t argument() const { return argument_; }

 private:
  Kind kind_;
  int32_t argument_;
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
