// Mail dates (RFC 5322 section 3.3 and what mailers make of it) in the normalised form
// "dd/mm/yyyy hh:mm:ss": exactly 19 characters, an unknown field as question marks of its width.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace korvane {

/// The normalised form with question marks for unknown fields.
std::string NormaliseMailDate(std::string_view text);

/// The date text after the last ";" of a "received" value and its zone token; both views are into
/// `value` except for the zone, which is upper-cased. Both are empty without a ";".
struct ReceivedDateText {
  std::string_view date;
  std::string zone;
};
ReceivedDateText SplitReceivedDate(std::string_view value);

/// The complete normalised form of a "received" value's date. Unknown fields are filled with the
/// first or the last moment; `guessed` tells whether any was.
std::string ParseMailDate(std::string_view value, bool first_moment, bool apply_zone,
                          bool& guessed);

/// Hours and minutes of a zone token, "+0100" or a name. False when it was not understood.
bool ParseZone(std::string_view token, int32_t& hours, int32_t& minutes);

/// 28 to 31, or 0 for a month outside 1..12. Every fourth year is a leap year.
int32_t DaysInMonth(int32_t month, int32_t year);

/// d/m/yyyy h:m:s without leading zeros.
std::string FormatDateTime(const std::tm& time);
/// FormatDateTime of the present moment in GMT.
std::string FormatNow();

/// The date as it is (day first), or with the month in front.
std::string ArrangeDateOrder(std::string_view date, bool day_first);

/// 1 when the first of two normalised dates is later, 0 when they are equal, -1 otherwise.
int32_t CompareMailDates(std::string_view first, std::string_view second);

/// Any date text that the store writes ("5/3/2002 9:5:7" as well) in the normalised form; unknown
/// as question marks.
std::string PadDate(std::string_view date);

}  // namespace korvane
