// The object "Test" of the scripts: claims, and what the driver gave them.
#pragma once

#include <string>
#include <vector>

#include "support/late_bound.h"

namespace korvane::test {

class TestObject : public LateBound {
 public:
  explicit TestObject(std::vector<std::wstring> arguments);
  int passed() const { return passed_; }
  int failed() const { return failed_; }
  void Fail(const std::wstring& claim);

 private:
  Variant Do(DISPID member, Use use, const Arguments& arguments) override;
  void Claim(bool holds, const std::wstring& claim);

  std::vector<std::wstring> arguments_;
  int passed_ = 0;
  int failed_ = 0;
};

/// One line of UTF-8 to the standard output.
void PrintLine(const std::wstring& text);

}  // namespace korvane::test
