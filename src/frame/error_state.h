// The error convention that every class shares: a number and a text, cleared on entry to each
// operation that can fail, read directly after it. Operations do not throw; they return false or no
// object and leave their number here. The component's own errors carry the text "XXX".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

class ErrorState {
 public:
  /// The number of the last operation's fault, 0 when it succeeded.
  int32_t GetLastError() const { return number_; }
  /// The text that goes with it, "" when it succeeded.
  const std::string& GetLastErrorDesc() const { return text_; }

 protected:
  ErrorState() = default;
  ErrorState(const ErrorState&) = default;
  ErrorState(ErrorState&&) = default;
  ErrorState& operator=(const ErrorState&) = default;
  ErrorState& operator=(ErrorState&&) = default;
  ~ErrorState() = default;

  void ClearError() {
    number_ = 0;
    text_.clear();
  }
  void SetError(int32_t number, std::string_view text = "XXX") {
    number_ = number;
    text_ = text;
  }
  /// Takes over an inner object's number and text as they are.
  void CopyError(const ErrorState& inner) {
    number_ = inner.number_;
    text_ = inner.text_;
  }
  bool NoError() const { return number_ == 0; }

 private:
  int32_t number_ = 0;
  std::string text_;
};

}  // namespace korvane
