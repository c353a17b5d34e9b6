#include "frame/record_io.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/temp_folder.h"

namespace korvane {
namespace {

class RecordIo : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(file_.Open(folder_ / "file", BinaryFile::Mode::kReadWrite)); }
  void Holding(std::string_view bytes) {
    ASSERT_TRUE(file_.Truncate(0));
    ASSERT_TRUE(file_.Seek(1));
    ASSERT_TRUE(file_.Write(bytes));
    ASSERT_TRUE(file_.Seek(1));
  }
  std::string Bytes() {
    EXPECT_TRUE(file_.Flush());
    std::string bytes;
    EXPECT_TRUE(ReadWholeFile(folder_ / "file", bytes));
    return bytes;
  }

  test::TempFolder folder_;
  BinaryFile file_;
};

TEST_F(RecordIo, IntegersAreLittleEndianAndTextsAreCounted) {
  RecordWriter writer(file_);
  writer.Int32(0x01020304);
  writer.Int32(-2);
  writer.Bool16(true);
  writer.Bool16(false);
  writer.Text("ab");
  writer.Text("");
  EXPECT_TRUE(writer.Ok());
  EXPECT_EQ(Bytes(),
            std::string("\x04\x03\x02\x01\xFE\xFF\xFF\xFF\xFF\xFF\0\0\x02\0\0\0ab\0\0\0\0", 22));
}

TEST_F(RecordIo, WhatIsWrittenReadsBack) {
  RecordWriter writer(file_);
  writer.Int32(std::numeric_limits<int32_t>::min());
  writer.Bool16(true);
  writer.Text("Citt\xC3\xA0");
  writer.Text(std::string("a\0b", 3));
  ASSERT_TRUE(file_.Seek(1));
  RecordReader reader(file_);
  EXPECT_EQ(reader.Int32(), std::numeric_limits<int32_t>::min());
  EXPECT_TRUE(reader.Bool16());
  EXPECT_EQ(reader.Text(), "Citt\xC3\xA0");
  EXPECT_EQ(reader.Text(), std::string("a\0b", 3));
  EXPECT_TRUE(reader.Ok());
  EXPECT_EQ(reader.Remaining(), 0);
}

TEST_F(RecordIo, ATextInTheOldCodePageReadsAsUtf8AndItsBytesStayBytes) {
  Holding(std::string("\x05\0\0\0Citt\xE0\x05\0\0\0Citt\xE0", 18));
  RecordReader reader(file_);
  EXPECT_EQ(reader.Text(), "Citt\xC3\xA0");
  EXPECT_EQ(reader.Bytes(), "Citt\xE0");
}

TEST_F(RecordIo, AnyBooleanButZeroIsTrue) {
  Holding(std::string("\x01\0\0\0\0\x01", 6));
  RecordReader reader(file_);
  EXPECT_TRUE(reader.Bool16());
  EXPECT_FALSE(reader.Bool16());
  EXPECT_TRUE(reader.Bool16());
}

TEST_F(RecordIo, ALengthBeyondWhatRemainsFailsBeforeAnythingIsAllocated) {
  Holding(std::string("\xFF\xFF\xFF\x7F", 4) + "abc");
  RecordReader reader(file_);
  EXPECT_EQ(reader.Text(), "");
  EXPECT_FALSE(reader.Ok());
  EXPECT_EQ(reader.Int32(), 0) << "a failed reader reads nothing more";
}

TEST_F(RecordIo, ANegativeLengthFails) {
  Holding(std::string("\xFF\xFF\xFF\xFF", 4) + "abc");
  RecordReader text(file_);
  EXPECT_EQ(text.Text(), "");
  EXPECT_FALSE(text.Ok());
  ASSERT_TRUE(file_.Seek(1));
  RecordReader skipped(file_);
  skipped.SkipText();
  EXPECT_FALSE(skipped.Ok());
}

TEST_F(RecordIo, EveryCutOfARecordFails) {
  const std::string whole("\x07\0\0\0\xFF\xFF\x03\0\0\0abc\x02\0\0\0de", 19);
  for (size_t length = 0; length < whole.size(); ++length) {
    Holding(whole.substr(0, length));
    RecordReader reader(file_);
    reader.Int32();
    reader.Bool16();
    reader.Text();
    reader.SkipText();
    EXPECT_FALSE(reader.Ok()) << length;
  }
}

TEST_F(RecordIo, APositionBehindTheEndReadsNothing) {
  Holding("abcd");
  ASSERT_TRUE(file_.Seek(1000));
  RecordReader reader(file_);
  EXPECT_FALSE(reader.Ok());
  EXPECT_EQ(reader.Int32(), 0);
  EXPECT_EQ(reader.Text(), "");
}

}  // namespace
}  // namespace korvane
