#include "mime/mail_date.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>

#include "mime/header_fields.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;
// Escaped, because two question marks and a slash are a trigraph.
constexpr std::string_view kUnknown = "\?\?/\?\?/\?\?\?\? \?\?:\?\?:\?\?";
constexpr std::array<std::string_view, 12> kMonths = {"jan", "feb", "mar", "apr", "may", "jun",
                                                      "jul", "aug", "sep", "oct", "nov", "dec"};

// Where each field stands in the normalised form.
struct Field {
  size_t at;
  size_t width;
};
constexpr Field kDay{0, 2}, kMonth{3, 2}, kYear{6, 4}, kHour{11, 2}, kMinute{14, 2}, kSecond{17, 2};

std::string_view TrimLeft(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  return text;
}

// The value of a token of digits, saturated; nothing when it is none.
std::optional<int32_t> Number(std::string_view token) {
  if (token.empty()) return std::nullopt;
  int32_t value = 0;
  for (const char c : token) {
    if (c < '0' || c > '9') return std::nullopt;
    value = std::min(value * 10 + (c - '0'), 100000000);
  }
  return value;
}

std::optional<int32_t> NumberBetween(std::string_view token, int32_t low, int32_t high) {
  const std::optional<int32_t> value = Number(token);
  return value && *value >= low && *value <= high ? value : std::nullopt;
}

// Cuts the text up to `separator` off `rest` and left-trims what remains.
std::string_view TakeToken(std::string_view& rest, char separator) {
  const size_t at = rest.find(separator);
  const std::string_view token = TrimBlanks(rest.substr(0, at));
  rest = at == kNone ? std::string_view{} : TrimLeft(rest.substr(at + 1));
  return token;
}

void Put(std::string& form, Field field, int32_t value) {
  for (size_t i = field.width; i-- > 0; value /= 10) {
    form[field.at + i] = static_cast<char>('0' + value % 10);
  }
}

void PutUnknown(std::string& form, Field field) {
  form.replace(field.at, field.width, field.width, '?');
}

std::optional<int32_t> Get(std::string_view form, Field field) {
  return Number(form.substr(field.at, field.width));
}

std::optional<int32_t> MonthNumber(std::string_view token) {
  if (token.size() != 3) return std::nullopt;
  const auto month = std::find(kMonths.begin(), kMonths.end(), LowerCase(token));
  if (month == kMonths.end()) return std::nullopt;
  return static_cast<int32_t>(month - kMonths.begin()) + 1;
}

// Years of two and three digits belong to this century, as mailers of its first years wrote them.
std::optional<int32_t> MailYear(std::string_view token) {
  const std::optional<int32_t> value = Number(token);
  if (!value) return std::nullopt;
  switch (token.size()) {
    case 2:
    case 3:
      return 2000 + *value;
    case 4:
      return *value > 0 ? value : std::nullopt;
    default:
      return std::nullopt;
  }
}

std::chrono::sys_seconds Now() {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

int32_t CurrentYear() {
  const std::chrono::year_month_day today{std::chrono::floor<std::chrono::days>(Now())};
  return static_cast<int32_t>(today.year());
}

std::string PlainForm(int32_t day, int32_t month, int32_t year, int32_t hour, int32_t minute,
                      int32_t second) {
  std::string text = std::to_string(day);
  for (const auto& [separator, value] :
       {std::pair{'/', month}, {'/', year}, {' ', hour}, {':', minute}, {':', second}}) {
    text += separator;
    text += std::to_string(value);
  }
  return text;
}

// The text without comments in parentheses at its end: "+0200 (CEST)". One whose "(" is missing
// stays.
std::string_view WithoutTrailingComments(std::string_view text) {
  for (text = TrimBlanks(text); text.ends_with(')'); text = TrimBlanks(text)) {
    size_t open = text.size();
    size_t depth = 0;
    while (open > 0) {
      --open;
      if (text[open] == ')') ++depth;
      if (text[open] == '(' && --depth == 0) break;
    }
    if (depth != 0) break;
    text = text.substr(0, open);
  }
  return text;
}

// A complete date that can be moved by a zone.
struct Moment {
  int32_t day, month, year, hour, minute;

  // False when it would leave the years 1 to 9999.
  bool Add(int32_t hours, int32_t minutes) {
    minute += minutes;
    hour += hours;
    if (minute < 0) minute += 60, --hour;
    if (minute > 59) minute -= 60, ++hour;
    if (hour < 0) {
      hour += 24;
      if (--day < 1) {
        if (--month < 1) month = 12, --year;
        day = DaysInMonth(month, year);
      }
    } else if (hour > 23) {
      hour -= 24;
      if (++day > DaysInMonth(month, year)) {
        day = 1;
        if (++month > 12) month = 1, ++year;
      }
    }
    return year >= 1 && year <= 9999;
  }
};

// The form shifted to GMT by a zone's hours and minutes.
void ShiftToGmt(std::string& form, int32_t hours, int32_t minutes) {
  const bool east = hours >= 1 || (hours == 0 && minutes > 0);
  hours = std::abs(hours);
  minutes = std::abs(minutes);
  Moment moment{*Get(form, kDay), *Get(form, kMonth), *Get(form, kYear), *Get(form, kHour),
                *Get(form, kMinute)};
  if (!moment.Add(east ? -hours : hours, east ? -minutes : minutes)) {
    form = moment.year < 1 ? "01/01/0001 00:00:00" : "31/12/9999 23:59:59";
    return;
  }
  Put(form, kDay, moment.day);
  Put(form, kMonth, moment.month);
  Put(form, kYear, moment.year);
  Put(form, kHour, moment.hour);
  Put(form, kMinute, moment.minute);
}

}  // namespace

std::string NormaliseMailDate(std::string_view text) {
  std::string form(kUnknown);
  text = WithoutTrailingComments(text);
  if (const size_t comma = text.find(','); comma != kNone) text.remove_prefix(comma + 1);
  std::string_view rest = TrimLeft(text);

  const std::optional<int32_t> day = NumberBetween(TakeToken(rest, ' '), 1, 31);
  if (!day) return form;
  Put(form, kDay, *day);

  const std::optional<int32_t> month = MonthNumber(TakeToken(rest, ' '));
  if (!month) return form;
  Put(form, kMonth, *month);

  const std::optional<int32_t> year = MailYear(TakeToken(rest, ' '));
  if (*day > DaysInMonth(*month, year ? *year : CurrentYear())) PutUnknown(form, kDay);
  if (!year) return form;
  Put(form, kYear, *year);

  const std::optional<int32_t> hour = NumberBetween(TakeToken(rest, ':'), 0, 23);
  if (!hour) return form;
  Put(form, kHour, *hour);

  const std::optional<int32_t> minute = NumberBetween(TakeToken(rest, ':'), 0, 59);
  if (!minute) return form;
  Put(form, kMinute, *minute);

  const std::optional<int32_t> second = NumberBetween(TakeToken(rest, ' '), 0, 59);
  if (second) Put(form, kSecond, *second);
  return form;
}

ReceivedDateText SplitReceivedDate(std::string_view value) {
  value = WithoutTrailingComments(value);
  const size_t semicolon = value.rfind(';');
  if (semicolon == kNone) return {};
  ReceivedDateText result{TrimBlanks(value.substr(semicolon + 1)), {}};
  if (const size_t blank = value.rfind(' '); blank != kNone) {
    result.zone = value.substr(blank + 1);
    for (char& c : result.zone) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
    }
  }
  return result;
}

std::string ParseMailDate(std::string_view value, bool first_moment, bool apply_zone,
                          bool& guessed) {
  const ReceivedDateText received = SplitReceivedDate(value);
  std::string form = NormaliseMailDate(received.date);
  // Without a time the last token may be the year: taken for a zone it would move the date by
  // nearly a day.
  const bool ends_with_year = form[kHour.at] == '?' && Number(received.zone).has_value();
  const std::string_view filling = first_moment ? "01/01/0001 00:00:00" : "31/12/9999 23:59:59";
  guessed = false;
  for (size_t i = 0; i < form.size(); ++i) {
    if (form[i] != '?') continue;
    form[i] = filling[i];
    guessed = true;
  }
  const int32_t last_day = DaysInMonth(*Get(form, kMonth), *Get(form, kYear));
  if (*Get(form, kDay) > last_day) Put(form, kDay, last_day);

  int32_t hours = 0;
  int32_t minutes = 0;
  if (apply_zone && !ends_with_year && ParseZone(received.zone, hours, minutes)) {
    ShiftToGmt(form, hours, minutes);
  }
  return form;
}

bool ParseZone(std::string_view token, int32_t& hours, int32_t& minutes) {
  hours = 0;
  minutes = 0;
  std::string_view digits = token;
  const bool negative = digits.starts_with('-');
  if (negative || digits.starts_with('+')) digits.remove_prefix(1);
  if (Number(digits)) {
    if (digits.size() < 3) return false;
    const int32_t h = *Number(digits.substr(0, 2));
    const int32_t m = *Number(digits.substr(2));
    const int32_t sign = negative ? -1 : 1;
    if (h <= 23) hours = sign * h;
    if (m <= 59) minutes = sign * m;
    return h <= 23 && m <= 59;
  }
  struct Zone {
    std::string_view name;
    int32_t hours;
  };
  static constexpr std::array<Zone, 15> kZones = {{{"UT", 0},
                                                   {"GMT", 0},
                                                   {"Z", 0},
                                                   {"EST", -5},
                                                   {"EDT", -4},
                                                   {"CST", -6},
                                                   {"CDT", -5},
                                                   {"MST", -7},
                                                   {"MDT", -6},
                                                   {"PST", -8},
                                                   {"PDT", -7},
                                                   {"A", -1},
                                                   {"M", -12},
                                                   {"N", 1},
                                                   {"Y", 12}}};
  for (const Zone& zone : kZones) {
    if (zone.name != token) continue;
    hours = zone.hours;
    return true;
  }
  return false;
}

int32_t DaysInMonth(int32_t month, int32_t year) {
  switch (month) {
    case 4:
    case 6:
    case 9:
    case 11:
      return 30;
    case 2:
      return year % 4 == 0 ? 29 : 28;
    default:
      return month >= 1 && month <= 12 ? 31 : 0;
  }
}

std::string FormatDateTime(const std::tm& time) {
  return PlainForm(time.tm_mday, time.tm_mon + 1, time.tm_year + 1900, time.tm_hour, time.tm_min,
                   time.tm_sec);
}

std::string FormatNow() {
  const std::chrono::sys_seconds now = Now();
  const auto midnight = std::chrono::floor<std::chrono::days>(now);
  const std::chrono::year_month_day date{midnight};
  const std::chrono::hh_mm_ss time{now - midnight};
  return PlainForm(static_cast<int32_t>(static_cast<unsigned>(date.day())),
                   static_cast<int32_t>(static_cast<unsigned>(date.month())),
                   static_cast<int32_t>(date.year()), static_cast<int32_t>(time.hours().count()),
                   static_cast<int32_t>(time.minutes().count()),
                   static_cast<int32_t>(time.seconds().count()));
}

bool IsInCalendar(std::string_view date) {
  if (!date.starts_with("29/02/") || date.size() < 10) return true;
  const std::optional<int32_t> year = NumberBetween(date.substr(6, 4), 1, 9999);
  return !year || std::chrono::year(*year).is_leap();
}

std::string ArrangeDateOrder(std::string_view date, bool day_first) {
  std::string text(date);
  if (day_first) return text;
  const size_t first = date.find('/', 1);
  const size_t second = first == kNone ? kNone : date.find('/', first + 2);
  if (second == kNone) return text;
  text = date.substr(first + 1, second - first);
  text += date.substr(0, first + 1);
  text += date.substr(second + 1);
  return text;
}

int32_t CompareMailDates(std::string_view first, std::string_view second) {
  const auto compare = [](std::string_view a, std::string_view b) {
    for (const Field field : {kYear, kMonth, kDay}) {
      const int order = a.substr(field.at, field.width).compare(b.substr(field.at, field.width));
      if (order != 0) return order;
    }
    return a.substr(kHour.at).compare(b.substr(kHour.at));
  };
  const auto sign = [](int order) { return order > 0 ? 1 : order < 0 ? -1 : 0; };
  if (first.size() == kUnknown.size() && second.size() == kUnknown.size()) {
    return sign(compare(first, second));
  }
  return sign(compare(PadDate(first), PadDate(second)));
}

std::string PadDate(std::string_view date) {
  std::string form(kUnknown);
  std::string_view rest = TrimBlanks(date);
  const std::optional<int32_t> day = NumberBetween(TakeToken(rest, '/'), 1, 31);
  const std::optional<int32_t> month = NumberBetween(TakeToken(rest, '/'), 1, 12);
  const std::optional<int32_t> year = NumberBetween(TakeToken(rest, ' '), 1, 9999);
  const std::optional<int32_t> hour = NumberBetween(TakeToken(rest, ':'), 0, 23);
  const std::optional<int32_t> minute = NumberBetween(TakeToken(rest, ':'), 0, 59);
  const std::optional<int32_t> second = NumberBetween(TakeToken(rest, ' '), 0, 59);
  if (day) Put(form, kDay, *day);
  if (month) Put(form, kMonth, *month);
  if (year) Put(form, kYear, *year);
  if (day && month && *day > DaysInMonth(*month, year ? *year : CurrentYear())) {
    PutUnknown(form, kDay);
  }
  if (hour) Put(form, kHour, *hour);
  if (minute) Put(form, kMinute, *minute);
  if (second) Put(form, kSecond, *second);
  return form;
}

}  // namespace korvane
