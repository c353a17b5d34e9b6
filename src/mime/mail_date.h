// Mail dates (RFC 5322 section 3.3 and what mailers make of it) in the normalised form
// "dd/mm/yyyy hh:mm:ss": exactly 19 characters, an unknown field as question marks of its width,
// from "01/01/0001 00:00:00" to "31/12/9999 23:59:59". No platform date parser is asked: what a
// mail says must read the same everywhere.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace korvane {

/// The normalised form with question marks for unknown fields.
std::string NormaliseMailDate(std::string_view text);

/// The date text after the last ";" of a "received" value and its zone token; both views are into
/// `value` except for the zone, which is upper-cased. Both are empty without a ";". Comments in
/// parentheses at the end are dropped first.
struct ReceivedDateText {
  std::string_view date;
  std::string zone;
};
ReceivedDateText SplitReceivedDate(std::string_view value);

/// The complete normalised form of a "received" value's date. Unknown fields are filled with the
/// first or the last moment; `guessed` tells whether any was. `apply_zone` shifts it to GMT.
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

/// True of a padded date that the calendar knows: the rules for dates in mail take every century
/// year for a leap year, and no database takes 29 February of one that was none.
bool IsInCalendar(std::string_view date);

/// The date as it is (day first), or with day and month in each other's place. The same call leads
/// back.
std::string ArrangeDateOrder(std::string_view date, bool day_first);

/// 1 when the first of two normalised dates is later, 0 when they are equal, -1 otherwise. An
/// unknown field is later than any known one.
int32_t CompareMailDates(std::string_view first, std::string_view second);

/// Any date text that the store writes ("5/3/2002 9:5:7" as well) in the normalised form; unknown
/// as question marks. A date without a time has an unknown time.
std::string PadDate(std::string_view date);

}  // namespace korvane
