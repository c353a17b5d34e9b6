// The one exception that the facades raise on purpose: an operation before a successful Init.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace korvane {

class AutomationException : public std::runtime_error {
 public:
  AutomationException(int32_t number, std::string source, const std::string& description)
      : std::runtime_error(description), number_(number), source_(std::move(source)) {}
  int32_t number() const { return number_; }
  const std::string& source() const { return source_; }

 private:
  int32_t number_;
  std::string source_;
};

}  // namespace korvane
