#include "arguments.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace korvane::automation {

namespace {

using model::Parameter;
using model::Type;

Any DefaultValue(const Parameter& parameter) {
  switch (parameter.omitted.kind) {
    case model::Default::Kind::kNumber:
      return parameter.omitted.number;
    case model::Default::Kind::kBool:
      return parameter.omitted.number != 0;
    case model::Default::Kind::kEmptyText:
      return "";
    case model::Default::Kind::kRequired:
      break;
  }
  return {};
}

std::string Named(const model::Member& member, const Parameter& parameter) {
  return std::string(member.name) + ": " + std::string(parameter.name);
}

/// The value as the parameter's type, or nothing when it cannot be one. Null and objects are no
/// number, truth value or text.
std::optional<Any> Convert(const Parameter& parameter, Any value) {
  const bool scalar = !value.IsNull() && !value.IsObject();
  switch (parameter.type) {
    case Type::kAny:
      return value;
    case Type::kInt32:
    case Type::kEnum:
      if (const auto number = scalar ? value.ToInt32() : std::nullopt) return Any(*number);
      return std::nullopt;
    case Type::kBool:
      if (const auto truth = scalar ? value.ToBool() : std::nullopt) return Any(*truth);
      return std::nullopt;
    case Type::kText:
      if (!scalar) return std::nullopt;
      return value.IsText() ? std::move(value) : Any(value.ToText());
    case Type::kObject:
      if (value.IsObject()) return value;
      return std::nullopt;
    case Type::kNothing:
      break;
  }
  return std::nullopt;
}

/// Why a value was refused.
ArgumentError::Kind RefusalOf(const Parameter& parameter, const Any& value) {
  const bool number = parameter.type == Type::kInt32 || parameter.type == Type::kEnum;
  const auto* real = std::get_if<double>(&value.value());
  const bool beyond = !value.IsNull() && !value.IsObject() && (value.ToInt64() || real);
  return number && beyond ? ArgumentError::Kind::kRange : ArgumentError::Kind::kType;
}

std::string_view WantedText(const Parameter& parameter) {
  switch (parameter.type) {
    case Type::kInt32:
      return "a 32-bit number";
    case Type::kEnum:
      return "a 32-bit number of the enumeration";
    case Type::kBool:
      return "true or false";
    case Type::kText:
      return "a text";
    default:
      return parameter.of;
  }
}

}  // namespace

MatchedArguments Match(const model::Member& member, std::span<Argument> arguments) {
  const auto& parameters = member.parameters;
  MatchedArguments matched;
  matched.values.resize(parameters.size());
  matched.passed_from.assign(parameters.size(), -1);

  using Mistake = ArgumentError::Kind;
  bool named = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const auto argument = static_cast<int32_t>(i);
    size_t place = i;
    if (!arguments[i].name.empty()) {
      named = true;
      place =
          std::ranges::find(parameters, arguments[i].name, &Parameter::name) - parameters.begin();
      if (place == parameters.size()) {
        throw ArgumentError(
            std::string(member.name) + " has no parameter '" + std::string(arguments[i].name) + "'",
            Mistake::kName, argument);
      }
    } else if (named) {
      throw ArgumentError(
          std::string(member.name) + ": an argument by position follows one by name",
          Mistake::kName, argument);
    } else if (place >= parameters.size()) {
      throw ArgumentError(std::string(member.name) + " takes " + std::to_string(parameters.size()) +
                              " arguments, not " + std::to_string(arguments.size()),
                          Mistake::kCount, argument);
    }
    if (arguments[i].missing) continue;
    if (matched.passed_from[place] >= 0) {
      throw ArgumentError(Named(member, parameters[place]) + " is given twice", Mistake::kName,
                          argument);
    }
    matched.passed_from[place] = argument;
  }

  for (size_t place = 0; place < parameters.size(); ++place) {
    const Parameter& parameter = parameters[place];
    const int32_t from = matched.passed_from[place];
    if (from < 0) {
      if (!parameter.Optional()) {
        throw ArgumentError(Named(member, parameter) + " is missing", Mistake::kMissing);
      }
      matched.values[place] = DefaultValue(parameter);
      continue;
    }
    Any& value = arguments[from].value;
    const Mistake refusal = RefusalOf(parameter, value);
    auto converted = Convert(parameter, std::move(value));
    if (!converted) {
      throw ArgumentError(
          Named(member, parameter) + " must be " + std::string(WantedText(parameter)), refusal,
          from);
    }
    matched.values[place] = std::move(*converted);
  }
  return matched;
}

}  // namespace korvane::automation
