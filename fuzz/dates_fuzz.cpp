// Whatever a date text holds, the result has the normalised form.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mime/mail_date.h"

namespace {

bool IsNormalised(const std::string& date, bool complete) {
  constexpr std::string_view kForm = "00/00/0000 00:00:00";
  if (date.size() != kForm.size()) return false;
  for (size_t i = 0; i < date.size(); ++i) {
    const bool digit = date[i] >= '0' && date[i] <= '9';
    const bool unknown = date[i] == '?' && !complete;
    if (kForm[i] == '0' ? !digit && !unknown : date[i] != kForm[i]) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string normalised = NormaliseMailDate(text);
  if (!IsNormalised(normalised, false)) std::abort();
  if (PadDate(normalised) != normalised) std::abort();
  if (!IsNormalised(PadDate(text), false)) std::abort();
  for (const bool first_moment : {false, true}) {
    bool guessed = false;
    const std::string local = ParseMailDate(text, first_moment, false, guessed);
    const std::string gmt = ParseMailDate(text, first_moment, true, guessed);
    if (!IsNormalised(local, true) || !IsNormalised(gmt, true)) std::abort();
    if (PadDate(gmt) != gmt) std::abort();
    if (CompareMailDates(local, gmt) != -CompareMailDates(gmt, local)) std::abort();
  }
  int32_t hours = 0;
  int32_t minutes = 0;
  ParseZone(text, hours, minutes);
  ArrangeDateOrder(text, false);
  return 0;
}
