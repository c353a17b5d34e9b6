// The times that the scans compare.
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>

#include "mime/mail_date.h"
#include "pop3/received_time.h"

namespace korvane {
namespace {

/// "from a by b; " and the present moment moved by so many hours, in GMT.
std::string InHours(int hours) {
  const std::time_t moment = std::time(nullptr) + hours * 3600;
  char text[64];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S +0000", std::gmtime(&moment));
  return std::string("from a by b; ") + text;
}

TEST(ScanTimes, AReceivedTimeIsShiftedToGmt) {
  const ScanTime time = MessageTime("from a by b; Tue, 5 Mar 2002 10:20:30 +0100");
  EXPECT_EQ(time.text, "05/03/2002 09:20:30");
  EXPECT_TRUE(time.readable);
}

TEST(ScanTimes, AMessagesUnknownFieldsAreTheLastMomentAndAWantedOnesTheFirst) {
  EXPECT_EQ(MessageTime("from a; Tue, 5 Mar 2002").text, "05/03/2002 23:59:59");
  EXPECT_FALSE(MessageTime("from a; Tue, 5 Mar 2002").readable);
  EXPECT_EQ(MessageTime("from a by b").text, kLastMoment);
  EXPECT_EQ(MessageTime("").text, kLastMoment);
  EXPECT_EQ(WantedTime("").text, kFirstMoment);
  EXPECT_FALSE(WantedTime("").readable);
}

TEST(ScanTimes, AYearBehindADateWithoutATimeIsNoZone) {
  EXPECT_EQ(MessageTime("from a; 5 Mar 2002").text, "05/03/2002 23:59:59");
  EXPECT_EQ(WantedTime("from a; 5 Mar 2002").text, "05/03/2002 00:00:00");
}

TEST(ScanTimes, MoreThanADayAheadOfTheClockIsUnreadable) {
  EXPECT_TRUE(MessageTime(InHours(23)).readable);
  EXPECT_FALSE(MessageTime(InHours(26)).readable);
  EXPECT_EQ(MessageTime(InHours(26)).text, kLastMoment);
  EXPECT_EQ(WantedTime(InHours(26)).text, kFirstMoment);
}

TEST(ScanTimes, TheLastDownloadsUnknownFieldsAreTheFirstMoment) {
  EXPECT_EQ(LastDownloadTime("05/03/2002 ??:??:??").text, "05/03/2002 00:00:00");
  EXPECT_FALSE(LastDownloadTime("05/03/2002 ??:??:??").readable);
  EXPECT_EQ(LastDownloadTime("").text, kFirstMoment);
  EXPECT_EQ(LastDownloadTime("nonsense").text, kFirstMoment);
  EXPECT_TRUE(LastDownloadTime("01/01/0001 00:00:00").readable);
  EXPECT_EQ(LastDownloadTime("5/3/2002 9:5:7").text, "05/03/2002 09:05:07");
}

TEST(ScanTimes, ALastDownloadMoreThanADayAheadIsTheFirstMoment) {
  EXPECT_EQ(LastDownloadTime("31/12/9999 23:59:59").text, kFirstMoment);
  EXPECT_FALSE(LastDownloadTime("31/12/9999 23:59:59").readable);
}

TEST(ScanTimes, AMomentIsSecondsSince1970) {
  EXPECT_EQ(MomentOf("01/01/1970 00:00:00"), 0);
  EXPECT_EQ(MomentOf("05/03/2002 09:20:30"), 1015320030);
  EXPECT_EQ(MomentOf("29/02/1900 00:00:00"), MomentOf("01/03/1900 00:00:00"));
  EXPECT_LT(MomentOf("01/01/0001 00:00:00"), 0);
  EXPECT_EQ(MomentOf("05/03/2002 ??:??:??"), std::nullopt);
  EXPECT_EQ(MomentOf("5/3/2002"), std::nullopt);
  EXPECT_EQ(MomentOf(""), std::nullopt);
}

}  // namespace
}  // namespace korvane
