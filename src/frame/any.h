// The any-value: what a script variable, an automation argument or a database cell holds.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace korvane {

/// Base of everything that an any-value can hold by reference.
class Object {
 public:
  virtual ~Object() = default;

 protected:
  Object() = default;
  Object(const Object&) = default;
  Object& operator=(const Object&) = default;
};

class Any {
 public:
  struct Null {
    bool operator==(const Null&) const = default;
  };
  using Value = std::variant<std::monostate, Null, bool, int64_t, double, std::string,
                             std::shared_ptr<Object>>;

  Any() = default;  ///< empty
  Any(std::nullptr_t) : value_(Null{}) {}
  Any(Null) : value_(Null{}) {}
  Any(bool value) : value_(value) {}
  Any(int32_t value) : value_(int64_t{value}) {}
  Any(int64_t value) : value_(value) {}
  Any(double value) : value_(value) {}
  Any(std::string value) : value_(std::move(value)) {}
  Any(std::string_view value) : value_(std::string(value)) {}
  Any(const char* value) : value_(std::string(value)) {}
  template <class T>
  requires std::is_base_of_v<Object, T> Any(std::shared_ptr<T> object)
      : value_(std::shared_ptr<Object>(std::move(object))) {}

  const Value& value() const { return value_; }
  bool IsEmpty() const { return std::holds_alternative<std::monostate>(value_); }
  bool IsNull() const { return std::holds_alternative<Null>(value_); }
  bool IsText() const { return std::holds_alternative<std::string>(value_); }
  bool IsObject() const { return std::holds_alternative<std::shared_ptr<Object>>(value_); }

  /// The value as a whole number, as automation converts: empty is 0, true is -1, a number is
  /// rounded half to even, a text is read as a decimal number. Nothing when it is none.
  std::optional<int64_t> ToInt64() const;
  /// The same, nothing when it is outside 32 bits.
  std::optional<int32_t> ToInt32() const;
  /// True for any number but 0 and for the texts "True" and "-1"; nothing when it is none.
  std::optional<bool> ToBool() const;
  /// The value as text: empty and null are "", true is "True", numbers are decimal.
  std::string ToText() const;
  /// The object, cast to T; null when it is no object or another one.
  template <class T>
  std::shared_ptr<T> ToObject() const {
    const auto* object = std::get_if<std::shared_ptr<Object>>(&value_);
    return object ? std::dynamic_pointer_cast<T>(*object) : nullptr;
  }

  bool operator==(const Any&) const = default;

 private:
  Value value_;
};

}  // namespace korvane
