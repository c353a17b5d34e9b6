#include "mime/mail_date.h"

#include <gtest/gtest.h>

#include <chrono>
#include <regex>

#include "support/hostile_input.h"
#include "support/time_zone_in_use.h"

namespace korvane {
namespace {

using test::CpuSecondsOf;
using test::kGenerousSeconds;
using test::Repeated;

// Tests write "_" for an unknown digit: two question marks and a slash are a trigraph.
std::string Unknown(std::string text) {
  for (char& c : text) {
    if (c == '_') c = '?';
  }
  return text;
}

const std::string kNothing = Unknown("__/__/____ __:__:__");

struct Parsed {
  std::string date;
  bool guessed;
};

Parsed Parse(std::string_view value, bool first_moment = true, bool apply_zone = true) {
  Parsed parsed;
  parsed.date = ParseMailDate(value, first_moment, apply_zone, parsed.guessed);
  return parsed;
}

TEST(MailDate, ReadsTheDateOfAMail) {
  EXPECT_EQ(NormaliseMailDate("Tue, 5 Mar 2002 10:20:30 +0100"), "05/03/2002 10:20:30");
  EXPECT_EQ(NormaliseMailDate("5 Mar 2002 10:20:30"), "05/03/2002 10:20:30");
  EXPECT_EQ(NormaliseMailDate("  Tue,   05   MAR   2002   10 : 20 : 30   GMT"),
            "05/03/2002 10:20:30");
}

TEST(MailDate, AnEmptyTextIsUnknown) {
  EXPECT_EQ(NormaliseMailDate(""), kNothing);
  EXPECT_EQ(NormaliseMailDate("   "), kNothing);
  EXPECT_EQ(NormaliseMailDate("Tue,"), kNothing);
  EXPECT_EQ(NormaliseMailDate("Tue,   "), kNothing);
}

TEST(MailDate, WithoutATimeTheTimeIsUnknownAndCompletesToTheFirstMoment) {
  EXPECT_EQ(NormaliseMailDate("5 mar 02"), Unknown("05/03/2002 __:__:__"));
  const Parsed parsed = Parse("from a by b; 5 mar 02");
  EXPECT_EQ(parsed.date, "05/03/2002 00:00:00");
  EXPECT_TRUE(parsed.guessed);
}

TEST(MailDate, AFullMonthNameIsNotUnderstood) {
  EXPECT_EQ(NormaliseMailDate("5 March 2002 10:20:30"), Unknown("05/__/____ __:__:__"));
}

TEST(MailDate, EveryMonthIsKnownWhateverItsCase) {
  const char* months[] = {"jan", "FEB", "Mar", "aPr", "may", "JUN",
                          "Jul", "aug", "SEP", "oct", "NOV", "Dec"};
  for (int i = 0; i < 12; ++i) {
    const std::string number =
        std::string(i < 9 ? "0" : "1") + static_cast<char>('0' + (i + 1) % 10);
    EXPECT_EQ(NormaliseMailDate(std::string("5 ") + months[i] + " 2002 1:2:3"),
              "05/" + number + "/2002 01:02:03");
  }
}

TEST(MailDate, FromTheFirstUnknownFieldOnEverythingIsUnknown) {
  const struct {
    const char* text;
    const char* normalised;
  } rows[] = {
      {"x Mar 2002 10:20:30", "__/__/____ __:__:__"},
      {"0 Mar 2002 10:20:30", "__/__/____ __:__:__"},
      {"32 Mar 2002 10:20:30", "__/__/____ __:__:__"},
      {"5", "05/__/____ __:__:__"},
      {"5 foo 2002 10:20:30", "05/__/____ __:__:__"},
      {"5 Mar", "05/03/____ __:__:__"},
      {"5 Mar x 10:20:30", "05/03/____ __:__:__"},
      {"5 Mar 2002", "05/03/2002 __:__:__"},
      {"5 Mar 2002 24:20:30", "05/03/2002 __:__:__"},
      {"5 Mar 2002 x:20:30", "05/03/2002 __:__:__"},
      {"5 Mar 2002 10", "05/03/2002 10:__:__"},
      {"5 Mar 2002 10:60:30", "05/03/2002 10:__:__"},
      {"5 Mar 2002 10:x:30", "05/03/2002 10:__:__"},
      {"5 Mar 2002 10:20", "05/03/2002 10:20:__"},
      {"5 Mar 2002 10:20 +0100", "05/03/2002 10:__:__"},
      {"5 Mar 2002 10:20:60", "05/03/2002 10:20:__"},
      {"5 Mar 2002 10:20:x", "05/03/2002 10:20:__"},
      {"5 Mar 2002 10:20:30", "05/03/2002 10:20:30"},
      {"Tue 5 Mar 2002 10:20:30", "__/__/____ __:__:__"},
      {"-5 Mar 2002 10:20:30", "__/__/____ __:__:__"},
      {"5 Mar 2002 -1:20:30", "05/03/2002 __:__:__"},
      {"99999999999999999999 Mar 2002", "__/__/____ __:__:__"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(NormaliseMailDate(row.text), Unknown(row.normalised)) << row.text;
  }
}

TEST(MailDate, YearsOfTwoAndThreeDigitsBelongToThisCentury) {
  EXPECT_EQ(NormaliseMailDate("5 Mar 99 1:2:3"), "05/03/2099 01:02:03");
  EXPECT_EQ(NormaliseMailDate("5 Mar 02 1:2:3"), "05/03/2002 01:02:03");
  EXPECT_EQ(NormaliseMailDate("5 Mar 102 1:2:3"), "05/03/2102 01:02:03");
  EXPECT_EQ(NormaliseMailDate("5 Mar 999 1:2:3"), "05/03/2999 01:02:03");
}

TEST(MailDate, YearsOfAnyOtherLengthAreUnknown) {
  for (const char* year : {"2", "20021", "0"}) {
    EXPECT_EQ(NormaliseMailDate(std::string("5 Mar ") + year + " 1:2:3"),
              Unknown("05/03/____ __:__:__"))
        << year;
  }
}

TEST(MailDate, TheYearNoughtIsOutsideTheRange) {
  EXPECT_EQ(NormaliseMailDate("5 Mar 0000 1:2:3"), Unknown("05/03/____ __:__:__"));
  EXPECT_EQ(NormaliseMailDate("5 Mar 0001 1:2:3"), "05/03/0001 01:02:03");
}

TEST(MailDate, ADayBeyondItsMonthIsUnknownAndTheRestIsRead) {
  EXPECT_EQ(NormaliseMailDate("31 Feb 2001 1:2:3"), Unknown("__/02/2001 01:02:03"));
  EXPECT_EQ(Parse("x; 31 Feb 2001 1:2:3", true).date, "01/02/2001 01:02:03");
  EXPECT_EQ(Parse("x; 31 Feb 2001 1:2:3", false).date, "28/02/2001 01:02:03");
  EXPECT_TRUE(Parse("x; 31 Feb 2001 1:2:3", false).guessed);
  EXPECT_EQ(NormaliseMailDate("31 Apr 2002 1:2:3"), Unknown("__/04/2002 01:02:03"));
}

TEST(MailDate, WithAnUnknownYearTheDayIsHeldAgainstTheCurrentOne) {
  EXPECT_EQ(NormaliseMailDate("31 Apr"), Unknown("__/04/____ __:__:__"));
  EXPECT_EQ(NormaliseMailDate("30 Feb x"), Unknown("__/02/____ __:__:__"));
  EXPECT_EQ(NormaliseMailDate("28 Feb x"), Unknown("28/02/____ __:__:__"));
}

TEST(MailDate, TheCalendarLacksTheLeapDaysOfMostCenturyYears) {
  for (const char* date : {"29/02/1900 01:02:03", "29/02/2100 01:02:03"}) {
    EXPECT_FALSE(IsInCalendar(date)) << date;
  }
  for (const char* date : {"29/02/2000 01:02:03", "29/02/2004 01:02:03", "28/02/1900 01:02:03",
                           "29/02/????", "", "29/02/"}) {
    EXPECT_TRUE(IsInCalendar(date)) << date;
  }
}

TEST(MailDate, CenturyYearsAreLeapYears) {
  EXPECT_EQ(NormaliseMailDate("29 Feb 1900 1:2:3"), "29/02/1900 01:02:03");
  EXPECT_EQ(NormaliseMailDate("29 Feb 2100 1:2:3"), "29/02/2100 01:02:03");
  EXPECT_EQ(NormaliseMailDate("29 Feb 2001 1:2:3"), Unknown("__/02/2001 01:02:03"));
}

TEST(MailDate, ACommentAtTheEndIsNoPartOfIt) {
  EXPECT_EQ(NormaliseMailDate("5 Mar 2002 10:20:30 +0100 (Rome, Italy)"), "05/03/2002 10:20:30");
}

TEST(ReceivedDate, IsWhatStandsBehindTheLastSemicolon) {
  const ReceivedDateText text = SplitReceivedDate("from a; by b;  5 Mar 2002 10:20:30 est ");
  EXPECT_EQ(text.date, "5 Mar 2002 10:20:30 est");
  EXPECT_EQ(text.zone, "EST");
}

TEST(ReceivedDate, WithoutASemicolonIsNothing) {
  const ReceivedDateText text = SplitReceivedDate("5 Mar 2002 10:20:30 +0100");
  EXPECT_EQ(text.date, "");
  EXPECT_EQ(text.zone, "");
}

TEST(ReceivedDate, WithoutABlankHasNoZone) { EXPECT_EQ(SplitReceivedDate("a;b").zone, ""); }

TEST(ReceivedDate, CommentsAtItsEndAreDroppedBeforeItsZone) {
  for (const char* comment : {"(CEST)", "(CEST) ", "(a (b) c)", "(a) (b)", "(x; y)", "()"}) {
    const std::string value = std::string("from a; 5 Mar 2002 10:20:30 +0200 ") + comment;
    EXPECT_EQ(SplitReceivedDate(value).zone, "+0200") << comment;
    EXPECT_EQ(Parse(value).date, "05/03/2002 08:20:30") << comment;
  }
}

TEST(ReceivedDate, ACommentWithoutItsBeginningStays) {
  EXPECT_EQ(SplitReceivedDate("from a; 5 Mar 2002 10:20:30 +0200 CEST)").zone, "CEST)");
}

TEST(ReceivedDate, ItsZoneIsApplied) {
  EXPECT_EQ(Parse("from x; Tue, 5 Mar 2002 10:20:30 +0100").date, "05/03/2002 09:20:30");
  EXPECT_EQ(Parse("from x; Tue, 5 Mar 2002 10:20:30 EST").date, "05/03/2002 15:20:30");
  EXPECT_FALSE(Parse("from x; Tue, 5 Mar 2002 10:20:30 EST").guessed);
}

TEST(ReceivedDate, ItsZoneIsLeftAsideOnRequest) {
  EXPECT_EQ(Parse("from x; Tue, 5 Mar 2002 10:20:30 +0100", true, false).date,
            "05/03/2002 10:20:30");
}

TEST(ReceivedDate, AnUnknownZoneMovesNothing) {
  EXPECT_EQ(Parse("from x; Tue, 5 Mar 2002 10:20:30 CEST").date, "05/03/2002 10:20:30");
  EXPECT_EQ(Parse("from x; Tue, 5 Mar 2002 10:20:30").date, "05/03/2002 10:20:30");
}

TEST(ReceivedDate, WithoutASemicolonEveryFieldIsFilled) {
  EXPECT_EQ(Parse("no date here", true).date, "01/01/0001 00:00:00");
  EXPECT_EQ(Parse("no date here", false).date, "31/12/9999 23:59:59");
  EXPECT_TRUE(Parse("no date here").guessed);
}

TEST(ReceivedDate, EveryUnknownFieldIsFilledWithTheFirstOrTheLastMoment) {
  const struct {
    const char* text;
    const char* first;
    const char* last;
  } rows[] = {
      {"x; ", "01/01/0001 00:00:00", "31/12/9999 23:59:59"},
      {"x; 5", "05/01/0001 00:00:00", "05/12/9999 23:59:59"},
      {"x; 5 Mar", "05/03/0001 00:00:00", "05/03/9999 23:59:59"},
      {"x; 5 Mar 2002", "05/03/2002 00:00:00", "05/03/2002 23:59:59"},
      {"x; 5 Mar 2002 10", "05/03/2002 10:00:00", "05/03/2002 10:59:59"},
      {"x; 5 Mar 2002 10:20", "05/03/2002 10:20:00", "05/03/2002 10:20:59"},
      {"x; 31 Apr 2002 1:2:3", "01/04/2002 01:02:03", "30/04/2002 01:02:03"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Parse(row.text, true).date, row.first) << row.text;
    EXPECT_EQ(Parse(row.text, false).date, row.last) << row.text;
    EXPECT_TRUE(Parse(row.text, true).guessed) << row.text;
    EXPECT_TRUE(Parse(row.text, false).guessed) << row.text;
  }
  EXPECT_FALSE(Parse("x; 5 Mar 2002 10:20:30").guessed);
}

TEST(ReceivedDate, TheYearOfADateWithoutATimeIsNotTakenForAZone) {
  EXPECT_EQ(Parse("x; 5 Mar 2002").date, "05/03/2002 00:00:00");
  EXPECT_EQ(Parse("x; 5 Mar 2002 +0100", false).date, "05/03/2002 22:59:59");
}

TEST(ReceivedDate, TheShiftCarriesThroughDayMonthAndYear) {
  const struct {
    const char* date;
    const char* gmt;
  } rows[] = {
      {"1 Mar 2002 00:30:00 +0100", "28/02/2002 23:30:00"},
      {"1 Mar 2004 00:30:00 +0100", "29/02/2004 23:30:00"},
      {"1 Mar 1900 00:30:00 +0100", "29/02/1900 23:30:00"},
      {"1 May 2002 00:30:00 +0100", "30/04/2002 23:30:00"},
      {"1 Jan 2002 00:30:00 +0100", "31/12/2001 23:30:00"},
      {"31 Dec 2001 23:30:00 -0100", "01/01/2002 00:30:00"},
      {"28 Feb 2002 23:30:00 -0100", "01/03/2002 00:30:00"},
      {"28 Feb 2004 23:30:00 -0100", "29/02/2004 00:30:00"},
      {"30 Apr 2002 23:30:00 -0100", "01/05/2002 00:30:00"},
      {"5 Mar 2002 10:20:30 +0030", "05/03/2002 09:50:30"},
      {"5 Mar 2002 10:20:30 -0030", "05/03/2002 10:50:30"},
      {"5 Mar 2002 10:20:30 +0530", "05/03/2002 04:50:30"},
      {"5 Mar 2002 10:40:30 -0530", "05/03/2002 16:10:30"},
      {"5 Mar 2002 00:00:00 +2359", "04/03/2002 00:01:00"},
      {"5 Mar 2002 23:59:59 -2359", "06/03/2002 23:58:59"},
      {"5 Mar 2002 10:20:30 0130", "05/03/2002 08:50:30"},
      {"5 Mar 2002 10:20:30 GMT", "05/03/2002 10:20:30"},
      {"5 Mar 2002 10:20:30 +0000", "05/03/2002 10:20:30"},
      {"5 Mar 2002 10:20:30 -0000", "05/03/2002 10:20:30"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Parse(std::string("x; ") + row.date).date, row.gmt) << row.date;
  }
}

TEST(ReceivedDate, NoShiftLeavesTheSupportedYears) {
  EXPECT_EQ(Parse("x; 1 Jan 0001 00:30:15 +0100").date, "01/01/0001 00:00:00");
  EXPECT_EQ(Parse("x; 31 Dec 9999 23:30:15 -0100").date, "31/12/9999 23:59:59");
  EXPECT_EQ(Parse("x; 1 Jan 0001 01:30:15 +0100").date, "01/01/0001 00:30:15");
  EXPECT_EQ(Parse("x; 31 Dec 9999 22:30:15 -0100").date, "31/12/9999 23:30:15");
}

TEST(ReceivedDate, EveryZoneOfADayAgreesWithTheCalendar) {
  using namespace std::chrono;
  for (const auto& day : {2000y / 2 / 29, 2001y / 12 / 31, 2003y / 3 / 1, 1999y / 1 / 1}) {
    for (int minutes = -23 * 60 - 59; minutes <= 23 * 60 + 59; minutes += 7) {
      const sys_seconds local = sys_days{day} + hours{13} + std::chrono::minutes{47} + seconds{11};
      const sys_seconds gmt = local - std::chrono::minutes{minutes};
      const auto midnight = floor<days>(gmt);
      const year_month_day date{midnight};
      const hh_mm_ss time{gmt - midnight};
      char expected[40];
      std::snprintf(expected, sizeof expected, "%02u/%02u/%04d %02d:%02d:%02d",
                    static_cast<unsigned>(date.day()), static_cast<unsigned>(date.month()),
                    static_cast<int>(date.year()), static_cast<int>(time.hours().count()),
                    static_cast<int>(time.minutes().count()),
                    static_cast<int>(time.seconds().count()));
      static const char* const kNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
      char value[80];
      std::snprintf(value, sizeof value, "x; %u %s %d 13:47:11 %c%02d%02d",
                    static_cast<unsigned>(day.day()),
                    kNames[static_cast<unsigned>(day.month()) - 1], static_cast<int>(day.year()),
                    minutes < 0 ? '-' : '+', std::abs(minutes) / 60, std::abs(minutes) % 60);
      ASSERT_EQ(Parse(value).date, expected) << value;
    }
  }
}

TEST(Zone, EveryNameOfTheTableIsKnown) {
  const struct {
    const char* name;
    int32_t hours;
  } rows[] = {{"UT", 0},   {"GMT", 0},  {"Z", 0},    {"EST", -5}, {"EDT", -4},
              {"CST", -6}, {"CDT", -5}, {"MST", -7}, {"MDT", -6}, {"PST", -8},
              {"PDT", -7}, {"A", -1},   {"M", -12},  {"N", 1},    {"Y", 12}};
  for (const auto& row : rows) {
    int32_t hours = 99;
    int32_t minutes = 99;
    EXPECT_TRUE(ParseZone(row.name, hours, minutes)) << row.name;
    EXPECT_EQ(hours, row.hours) << row.name;
    EXPECT_EQ(minutes, 0) << row.name;
  }
}

TEST(Zone, AnyOtherNameIsNotUnderstood) {
  for (const char* name : {"", "B", "L", "O", "X", "CET", "est", "UTC", "gmt", "GMT+1", "+01:00"}) {
    int32_t hours = 99;
    int32_t minutes = 99;
    EXPECT_FALSE(ParseZone(name, hours, minutes)) << name;
    EXPECT_EQ(hours, 0) << name;
    EXPECT_EQ(minutes, 0) << name;
  }
}

TEST(Zone, NumbersAreHoursAndMinutesWithOneSign) {
  const struct {
    const char* token;
    bool understood;
    int32_t hours;
    int32_t minutes;
  } rows[] = {{"+0100", true, 1, 0},   {"-0530", true, -5, -30},
              {"0130", true, 1, 30},   {"+013", true, 1, 3},
              {"-0015", true, 0, -15}, {"+2359", true, 23, 59},
              {"+2400", false, 0, 0},  {"+0160", false, 1, 0},
              {"+9999", false, 0, 0},  {"-2430", false, 0, -30},
              {"+", false, 0, 0},      {"-", false, 0, 0},
              {"+01", false, 0, 0},    {"1", false, 0, 0},
              {"+00000", true, 0, 0},  {"+01999999999999", false, 1, 0}};
  for (const auto& row : rows) {
    int32_t hours = 99;
    int32_t minutes = 99;
    EXPECT_EQ(ParseZone(row.token, hours, minutes), row.understood) << row.token;
    EXPECT_EQ(hours, row.hours) << row.token;
    EXPECT_EQ(minutes, row.minutes) << row.token;
  }
}

TEST(MonthLength, FollowsTheCalendarWithEveryFourthYearALeapYear) {
  const int32_t lengths[] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 0};
  for (int32_t month = -1; month <= 13; ++month) {
    EXPECT_EQ(DaysInMonth(month, 2001), month < 0 ? 0 : lengths[month]) << month;
  }
  EXPECT_EQ(DaysInMonth(2, 2004), 29);
  EXPECT_EQ(DaysInMonth(2, 1900), 29);
  EXPECT_EQ(DaysInMonth(2, 2100), 29);
}

TEST(FormatDate, HasNoLeadingNoughts) {
  std::tm time{};
  time.tm_mday = 5;
  time.tm_mon = 2;
  time.tm_year = 102;
  time.tm_hour = 9;
  time.tm_min = 5;
  time.tm_sec = 7;
  EXPECT_EQ(FormatDateTime(time), "5/3/2002 9:5:7");
}

TEST(FormatDate, NowIsThePresentMomentInGmt) {
  const test::TimeZoneInUse zone("Pacific/Kiritimati");
  std::string now;
  std::string expected[2];
  for (int attempt = 0; attempt < 2; ++attempt) {
    const std::time_t clock = std::time(nullptr) + attempt;
    expected[attempt] = FormatDateTime(*std::gmtime(&clock));
    if (attempt == 0) now = FormatNow();
  }
  EXPECT_TRUE(now == expected[0] || now == expected[1]) << now << " is not " << expected[0];
}

TEST(DateOrder, DayFirstIsLeftAsItIs) {
  EXPECT_EQ(ArrangeDateOrder("05/03/2002 10:20:30", true), "05/03/2002 10:20:30");
}

TEST(DateOrder, MonthFirstChangesPlacesAndBack) {
  EXPECT_EQ(ArrangeDateOrder("05/03/2002 10:20:30", false), "03/05/2002 10:20:30");
  EXPECT_EQ(ArrangeDateOrder("03/05/2002 10:20:30", false), "05/03/2002 10:20:30");
  EXPECT_EQ(ArrangeDateOrder("5/3/2002 9:5:7", false), "3/5/2002 9:5:7");
  EXPECT_EQ(ArrangeDateOrder("15/12/2002", false), "12/15/2002");
}

TEST(DateOrder, WhatIsNoDateStaysAsItIs) {
  for (const char* text : {"", "/", "//", "a/b", "5/"}) {
    EXPECT_EQ(ArrangeDateOrder(text, false), text);
  }
}

TEST(DateComparison, IsOneForALaterFirstDate) {
  const char* rising[] = {"01/01/0001 00:00:00", "31/12/1999 23:59:59", "01/01/2000 00:00:00",
                          "05/03/2002 09:20:29", "05/03/2002 09:20:30", "05/03/2002 10:00:00",
                          "06/03/2002 00:00:00", "01/04/2002 00:00:00", "31/12/9999 23:59:59"};
  for (size_t a = 0; a < std::size(rising); ++a) {
    for (size_t b = 0; b < std::size(rising); ++b) {
      EXPECT_EQ(CompareMailDates(rising[a], rising[b]), a > b ? 1 : a < b ? -1 : 0);
    }
  }
}

TEST(DateComparison, DatesNotPaddedCompareAsDates) {
  EXPECT_EQ(CompareMailDates("5/3/2002 9:5:7", "05/03/2002 09:05:07"), 0);
  EXPECT_EQ(CompareMailDates("5/3/2002 10:5:7", "5/3/2002 9:5:7"), 1);
  EXPECT_EQ(CompareMailDates("5/3/2002 9:5:7", "5/12/2002 9:5:7"), -1);
}

TEST(DateComparison, AnUnknownFieldIsLater) {
  EXPECT_EQ(CompareMailDates(kNothing, "31/12/9999 23:59:59"), 1);
  EXPECT_EQ(CompareMailDates("garbage", kNothing), 0);
}

TEST(PadDate, EveryTextOfTheStoreBecomesTheNormalisedForm) {
  EXPECT_EQ(PadDate("5/3/2002 9:5:7"), "05/03/2002 09:05:07");
  EXPECT_EQ(PadDate("05/03/2002 09:05:07"), "05/03/2002 09:05:07");
  EXPECT_EQ(PadDate(" 31/12/9999 23:59:59 "), "31/12/9999 23:59:59");
  EXPECT_EQ(PadDate("1/1/1 0:0:0"), "01/01/0001 00:00:00");
}

TEST(PadDate, WhatIsUnknownStaysUnknown) {
  EXPECT_EQ(PadDate(""), kNothing);
  EXPECT_EQ(PadDate("yesterday"), kNothing);
  EXPECT_EQ(PadDate("5/3/2002"), Unknown("05/03/2002 __:__:__"));
  EXPECT_EQ(PadDate(Unknown("__/03/2002 09:__:07")), Unknown("__/03/2002 09:__:07"));
  EXPECT_EQ(PadDate("31/2/2002 9:5:7"), Unknown("__/02/2002 09:05:07"));
  EXPECT_EQ(PadDate("5/13/10000 24:60:60"), Unknown("05/__/____ __:__:__"));
  EXPECT_EQ(PadDate("0/0/0 0:0:0"), Unknown("__/__/____ 00:00:00"));
}

TEST(PadDate, WhatThePresentMomentIsWrittenAsIsKnown) {
  EXPECT_EQ(PadDate(FormatNow()).find('?'), std::string::npos);
}

TEST(MailDate, WhateverComesTheFormIsNormalised) {
  const std::regex form(
      R"((\d\d|\?\?)/(\d\d|\?\?)/(\d{4}|\?{4}) (\d\d|\?\?):(\d\d|\?\?):(\d\d|\?\?))");
  for (const char* text :
       {"", ",", ";", "5 5 5 5:5:5", "5 Mar 2002 1:2:3:4:5", "(", ")", "((", "5,5"}) {
    EXPECT_TRUE(std::regex_match(NormaliseMailDate(text), form)) << text;
    EXPECT_TRUE(std::regex_match(PadDate(text), form)) << text;
    EXPECT_TRUE(std::regex_match(Parse(text).date, form)) << text;
  }
}

TEST(MailDate, HostileTextsTakeLinearTime) {
  for (const char* piece : {" ", ")", "(", "()", "(a) ", ";", ",", ":", "5 ", "9", "/"}) {
    const std::string text = Repeated(piece, 2 << 20);
    EXPECT_LT(CpuSecondsOf([&] {
                NormaliseMailDate(text);
                PadDate(text);
                Parse(text);
                ArrangeDateOrder(text, false);
                CompareMailDates(text, text);
                int32_t hours = 0;
                int32_t minutes = 0;
                ParseZone(text, hours, minutes);
              }),
              kGenerousSeconds)
        << piece;
  }
}

}  // namespace
}  // namespace korvane
