#include "mime/uu_attachment.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "frame/files.h"
#include "frame/record_io.h"
#include "support/attachment_account.h"
#include "support/hostile_input.h"
#include "support/temp_folder.h"
#ifndef _WIN32
#include "support/file_size_limit.h"
#endif

namespace korvane {
namespace {

using test::AccountWithAttachmentsIn;
using test::CpuSecondsOf;
using test::kGenerousSeconds;
using test::Repeated;
using test::TempFolder;

const std::string kBlock = "begin 644 a.txt\r\n#0V%T\r\n`\r\nend";  // "Cat"

std::vector<std::string> BlocksOf(std::string_view text) {
  std::vector<std::string> blocks;
  UUBlockFinder finder(text);
  UUBlock block{};
  while (finder.Next(block)) blocks.emplace_back(text.substr(block.begin, block.end - block.begin));
  return blocks;
}

using Blocks = std::vector<std::string>;

TEST(UUBlockFinder, FindsABlockBehindALineEnd) {
  EXPECT_EQ(BlocksOf("hello\r\n" + kBlock + "\r\nbye"), (Blocks{kBlock}));
}

TEST(UUBlockFinder, ATextMayBeginDirectlyWithABlock) {
  EXPECT_EQ(BlocksOf(kBlock), (Blocks{kBlock}));
}

TEST(UUBlockFinder, OnlyTheFirstSearchLooksAtTheStartOfTheText) {
  // The first search consumes the start; a "begin" that later stands behind no line end is none.
  const std::string text = "x" + kBlock + "\r\n";
  EXPECT_EQ(BlocksOf(text), Blocks{});
  const std::string twice = kBlock + kBlock;
  EXPECT_EQ(BlocksOf(twice), Blocks{});  // "end" must end its line
}

TEST(UUBlockFinder, FindsEveryBlockOfAText) {
  const std::string other = "begin 600 b c.bin\r\n`\r\nend";
  EXPECT_EQ(BlocksOf(kBlock + "\r\n" + other + "\r\n\r\ntext\r\n" + kBlock),
            (Blocks{kBlock, other, kBlock}));
}

TEST(UUBlockFinder, AModeThatIsNoNumberIsNoBlock) {
  EXPECT_EQ(BlocksOf("begin abc a.txt\r\n#0V%T\r\n`\r\nend"), Blocks{});
  EXPECT_EQ(BlocksOf("begin the day\r\nwell\r\n" + kBlock), (Blocks{kBlock}));
}

TEST(UUBlockFinder, ABeginLineWithAnEmptyNameIsNoBlockAndTheScanGoesOn) {
  EXPECT_EQ(BlocksOf("begin 644 \r\n" + kBlock), (Blocks{kBlock}));
  EXPECT_EQ(BlocksOf("begin 644\r\n" + kBlock), (Blocks{kBlock}));
  EXPECT_EQ(BlocksOf("begin 644\r\n#0V%T\r\n`\r\nend"), Blocks{});
  EXPECT_EQ(BlocksOf("begin 644 \r\n#0V%T\r\n`\r\nend"), Blocks{});
}

TEST(UUBlockFinder, ANameMayHave255CharactersAndNoMore) {
  const auto with_name = [](const std::string& name) {
    return "begin 644 " + name + "\r\n#0V%T\r\n`\r\nend";
  };
  EXPECT_EQ(BlocksOf(with_name(std::string(255, 'a'))).size(), 1u);
  EXPECT_EQ(BlocksOf(with_name(std::string(256, 'a'))).size(), 0u);
  EXPECT_EQ(BlocksOf(with_name(std::string(256, 'a')) + "\r\n" + kBlock), (Blocks{kBlock}));
  std::string accents;
  for (int i = 0; i < 255; ++i) accents += "\xC3\xA0";
  EXPECT_EQ(BlocksOf(with_name(accents)).size(), 1u);
  EXPECT_EQ(BlocksOf(with_name(accents + "a")).size(), 0u);
  EXPECT_EQ(BlocksOf(with_name(std::string(5000, 'a'))).size(), 0u);
}

TEST(UUBlockFinder, ABlockWhoseLastLineIsNoGraveAccentIsNotRecognised) {
  EXPECT_EQ(BlocksOf("begin 644 a.txt\r\n#0V%T\r\n \r\nend"), Blocks{});
  EXPECT_EQ(BlocksOf("begin 644 a.txt\r\n#0V%T\r\n``\r\nend"), Blocks{});
  EXPECT_EQ(BlocksOf("begin 644 a.txt\r\n#0V%T\r\nend"), Blocks{});
}

TEST(UUBlockFinder, WithoutAnEndThereIsNoBlock) {
  EXPECT_EQ(BlocksOf("begin 644 a.txt\r\n#0V%T\r\n`\r\n"), Blocks{});
  EXPECT_EQ(BlocksOf("begin 644 a.txt"), Blocks{});
}

TEST(UUBlockFinder, MoreTextInTheEndsLineIsNoBlock) {
  EXPECT_EQ(BlocksOf(kBlock + "ing"), Blocks{});
  EXPECT_EQ(BlocksOf(kBlock + "x"), (Blocks{kBlock}));  // one character cannot tell
  EXPECT_EQ(BlocksOf(kBlock + "ing\r\n" + kBlock), (Blocks{kBlock}));
}

TEST(UUBlockFinder, ShortTextsHoldNothing) {
  for (size_t n = 0; n < kBlock.size(); ++n) {
    const std::string text = kBlock.substr(0, n);
    EXPECT_EQ(BlocksOf(text), Blocks{}) << text;
  }
}

TEST(UUBlockFinder, HostileTextsTakeLinearTime) {
  for (const char* piece :
       {"\r\nbegin 644 a", "\r\nbegin 644 a\r\nx", "\r\nbegin ", "\r\n`\r\nendx",
        "\r\nbegin 644 a\r\n`\r\nendx", "\r\n", "begin 644 a\r\n", "\r\nbegin 644 \r\n"}) {
    const std::string text = Repeated(piece, 5 << 20);
    EXPECT_LT(CpuSecondsOf([&] { BlocksOf(text); }), kGenerousSeconds) << piece;
    const std::string with_end = text + "\r\n`\r\nendx" + text;
    EXPECT_LT(CpuSecondsOf([&] { BlocksOf(with_end); }), kGenerousSeconds) << piece;
  }
}

UUAtcmt Read(std::string_view block) {
  UUAtcmt file;
  file.InitFromText(nullptr, 1, block);
  return file;
}

TEST(UUAttachment, ReadsModeNameAndData) {
  UUAtcmt file;
  EXPECT_TRUE(file.InitFromText(nullptr, 7, kBlock));
  EXPECT_EQ(file.UUNumber(), 7);
  EXPECT_EQ(file.UUMode(), "644");
  EXPECT_EQ(file.UUName(), "a.txt");
  EXPECT_EQ(file.UUData(), "Cat");
  EXPECT_EQ(file.UUNameOnServer(), "");
  EXPECT_EQ(file.GetLastError(), 0);
}

TEST(UUAttachment, SeveralLinesAreDecoded) {
  const std::string line = "M" + std::string(60, '`') + "\r\n";
  EXPECT_EQ(Read("begin 644 a\r\n" + line + line + "#0V%T\r\n`\r\nend").UUData(),
            std::string(90, '\0') + "Cat");
}

TEST(UUAttachment, ANameIsReducedToABareOne) {
  const struct {
    const char* name;
    const char* bare;
  } rows[] = {{"C:\\temp\\x.bin", "x.bin"},
              {"/etc/passwd", "passwd"},
              {"a:b", "b"},
              {"\\", "Stream.dat"},
              {"a/", "Stream.dat"},
              {":", "Stream.dat"},
              {"a\\b/c:d", "d"},
              {"a/b\\c", "c"},
              {" a b ", " a b "},
              {"Citt\xE0", "Citt\xC3\xA0"},
              {"Citt\xC3\xA0", "Citt\xC3\xA0"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Read(std::string("begin 644 ") + row.name + "\r\n`\r\nend").UUName(), row.bare)
        << row.name;
  }
}

TEST(UUAttachment, ABlockWithoutLinesHasNoData) {
  EXPECT_EQ(Read("begin 644 a\r\n`\r\nend").UUData(), "");
  EXPECT_EQ(Read("begin 644 a\r\n\r\n`\r\nend").UUData(), "");
  EXPECT_EQ(Read("begin 644 a\r\nend").UUData(), "");
}

TEST(UUAttachment, WithoutTheGraveAccentTheLinesEndBeforeEnd) {
  EXPECT_EQ(Read("begin 644 a\r\n#0V%T\r\nend").UUData(), "Cat");
}

TEST(UUAttachment, AModeThatIsNoNumberIs1040) {
  EXPECT_EQ(Read("begin abc a\r\n`\r\nend").GetLastError(), 1040);
  EXPECT_EQ(Read("begin    a\r\n`\r\nend").GetLastError(), 1040);
  EXPECT_EQ(Read("begin").GetLastError(), 1040);
  EXPECT_EQ(Read("").GetLastError(), 1040);
  EXPECT_EQ(Read("").GetLastErrorDesc(), "XXX");
}

TEST(UUAttachment, AModeIsTrimmed) { EXPECT_EQ(Read("begin 64  a\r\n`\r\nend").UUMode(), "64"); }

TEST(UUAttachment, ANameThatIsEmptyOrTooLongIs1041) {
  EXPECT_EQ(Read("begin 644 \r\n`\r\nend").GetLastError(), 1041);
  EXPECT_EQ(Read("begin 644 " + std::string(256, 'a') + "\r\n`\r\nend").GetLastError(), 1041);
  EXPECT_EQ(Read("begin 644 " + std::string(255, 'a') + "\r\n`\r\nend").GetLastError(), 0);
}

TEST(UUAttachment, ABeginLineThatDoesNotEndIs1042) {
  EXPECT_EQ(Read("begin 644 a.txt").GetLastError(), 1042);
  EXPECT_EQ(Read("begin 644").GetLastError(), 1042);
  EXPECT_EQ(Read("begin 644 a.txt").GetLastErrorDesc(), "XXX");
}

TEST(UUAttachment, AFailureIsForgottenByTheNextReading) {
  UUAtcmt file;
  EXPECT_FALSE(file.InitFromText(nullptr, 1, ""));
  EXPECT_TRUE(file.InitFromText(nullptr, 1, kBlock));
  EXPECT_EQ(file.GetLastError(), 0);
  EXPECT_EQ(file.GetLastErrorDesc(), "");
}

TEST(UUAttachment, EveryShortBlockIsReadWithoutHarm) {
  for (size_t n = 0; n <= kBlock.size(); ++n) {
    const std::string copy = kBlock.substr(0, n);
    Read(copy);
  }
}

TEST(UUAttachment, OneBeingComposedHasADefaultModeAndName) {
  UUAtcmt file;
  file.InitForNew(nullptr, 3);
  EXPECT_EQ(file.UUNumber(), 3);
  EXPECT_EQ(file.UUMode(), "666");
  EXPECT_EQ(file.UUName(), "Stream.dat");
  EXPECT_EQ(file.UUNameOnServer(), "");
  EXPECT_EQ(file.UUData(), "");
}

TEST(UUAttachment, TheNameOfOneBeingComposedIsReducedToABareOne) {
  UUAtcmt file;
  file.InitForNew(nullptr, 3);
  file.UUName("../../C:\\x.bin");
  EXPECT_EQ(file.UUName(), "x.bin");
}

class UUStore : public testing::Test {
 protected:
  std::string Record() const { return folder_ / "record.dat"; }

  UUAtcmt Decoded(int32_t number = 1) {
    UUAtcmt file;
    file.InitFromText(account_, number, kBlock);
    return file;
  }

  bool Save(UUAtcmt& file, bool write_file) {
    BinaryFile record;
    if (!record.Open(Record(), BinaryFile::Mode::kReadWrite)) return false;
    RecordWriter writer(record);
    return file.SaveUUFile(57, &writer, write_file) && record.Flush();
  }

  bool Load(UUAtcmt& file) {
    BinaryFile record;
    record.Open(Record(), BinaryFile::Mode::kRead);
    RecordReader reader(record);
    return file.LoadUUFromStore(account_, 5, reader);
  }

  std::string Content(const std::string& path) const {
    std::string data = "no file";
    ReadWholeFile(path, data);
    return data;
  }

  TempFolder folder_;
  std::shared_ptr<MailUser> account_ = AccountWithAttachmentsIn(folder_.path(), 9);
};

TEST_F(UUStore, TheFileIsNamedByItsFullPathAndHoldsTheData) {
  UUAtcmt file = Decoded(2);
  std::vector<std::string> written;
  EXPECT_TRUE(file.SaveUUFile(57, nullptr, true, &written));
  EXPECT_EQ(file.UUNameOnServer(), folder_ / "9_57_2_a.txt");
  EXPECT_EQ(Content(file.UUNameOnServer()), "Cat");
  EXPECT_EQ(written, (std::vector<std::string>{file.UUNameOnServer()}));
}

TEST_F(UUStore, WithFilesSuppressedOnlyTheNameIsMade) {
  UUAtcmt file = Decoded();
  EXPECT_TRUE(file.SaveUUFile(57, nullptr, false));
  EXPECT_EQ(file.UUNameOnServer(), folder_ / "9_57_1_a.txt");
  EXPECT_FALSE(FileExists(file.UUNameOnServer()));
}

TEST_F(UUStore, ARecordReadBackGivesModeNameAndPath) {
  UUAtcmt file = Decoded();
  ASSERT_TRUE(Save(file, true));
  UUAtcmt loaded;
  EXPECT_TRUE(Load(loaded));
  EXPECT_EQ(loaded.UUNumber(), 5);
  EXPECT_EQ(loaded.UUMode(), "644");
  EXPECT_EQ(loaded.UUName(), "a.txt");
  EXPECT_EQ(loaded.UUNameOnServer(), file.UUNameOnServer());
  EXPECT_EQ(loaded.UUData(), "");
  EXPECT_EQ(loaded.GetLastError(), 0);
}

TEST_F(UUStore, TheRecordIsAMarkerThreeTextsAndTheError) {
  UUAtcmt file = Decoded();
  ASSERT_TRUE(Save(file, false));
  const std::string path = folder_ / "9_57_1_a.txt";
  const auto number = [](size_t n) { return std::string{static_cast<char>(n), 0, 0, 0}; };
  EXPECT_EQ(Content(Record()), number(1) + number(3) + "644" + number(5) + "a.txt" +
                                   number(path.size()) + path + number(0) + number(0));
}

TEST_F(UUStore, OneThatWasReadBackKeepsItsNameAndItsFile) {
  UUAtcmt file = Decoded();
  ASSERT_TRUE(Save(file, true));
  UUAtcmt loaded;
  ASSERT_TRUE(Load(loaded));
  std::vector<std::string> written;
  EXPECT_TRUE(loaded.SaveUUFile(99, nullptr, true, &written));
  EXPECT_EQ(loaded.UUNameOnServer(), folder_ / "9_57_1_a.txt");
  EXPECT_EQ(Content(loaded.UUNameOnServer()), "Cat");
  EXPECT_TRUE(written.empty());
}

TEST_F(UUStore, OneBeingComposedIsNamedButNeverWritten) {
  UUAtcmt file;
  file.InitForNew(account_, 1);
  file.UUName("new.doc");
  EXPECT_TRUE(file.SaveUUFile(57, nullptr, true));
  EXPECT_EQ(file.UUNameOnServer(), folder_ / "9_57_1_new.doc");
  EXPECT_FALSE(FileExists(file.UUNameOnServer()));
}

TEST_F(UUStore, WithoutAnAttachmentDirectoryNoFileIsWritten) {
  account_ = AccountWithAttachmentsIn("", 9);
  UUAtcmt file = Decoded();
  EXPECT_TRUE(file.SaveUUFile(57, nullptr, true));
  EXPECT_EQ(file.UUNameOnServer(), "");
  EXPECT_EQ(file.GetLastError(), 0);
}

TEST_F(UUStore, ANameThatAServerMightRunIsMarkedOnDiskOnly) {
  UUAtcmt file;
  file.InitFromText(account_, 1, "begin 644 shell.php\r\n#0V%T\r\n`\r\nend");
  EXPECT_TRUE(file.SaveUUFile(57, nullptr, true));
  EXPECT_EQ(file.UUName(), "shell.php");
  EXPECT_EQ(file.UUNameOnServer(), folder_ / "9_57_1_shell.php_");
  EXPECT_TRUE(FileExists(file.UUNameOnServer()));
}

TEST_F(UUStore, AFileThatCannotBeWrittenIs1036AndHasNoName) {
  account_ = AccountWithAttachmentsIn(folder_ / "missing", 9);
  UUAtcmt file = Decoded();
  std::vector<std::string> written;
  EXPECT_FALSE(file.SaveUUFile(57, nullptr, true, &written));
  EXPECT_EQ(file.GetLastError(), 1036);
  EXPECT_EQ(file.GetLastErrorDesc(), "XXX");
  EXPECT_EQ(file.UUNameOnServer(), "");
  EXPECT_TRUE(written.empty());
}

#ifndef _WIN32
using test::FileSizeLimit;

TEST_F(UUStore, AFullDiskLeavesNoHalfFile) {
  UUAtcmt file;
  const std::string line = "M" + std::string(60, 'a') + "\r\n";
  file.InitFromText(account_, 1, "begin 644 a.bin\r\n" + Repeated(line, 200000) + "`\r\nend");
  ASSERT_GT(file.UUData().size(), 100000u);
  {
    const FileSizeLimit limit(4096);
    EXPECT_FALSE(file.SaveUUFile(57, nullptr, true));
  }
  EXPECT_EQ(file.GetLastError(), 1036);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(UUStore, ARecordThatCannotBeFinishedIs1038) {
  UUAtcmt file;
  file.InitForNew(account_, 1);
  file.UUName(std::string(8 << 20, 'a'));
  BinaryFile record;
  ASSERT_TRUE(record.Open(Record(), BinaryFile::Mode::kReadWrite));
  RecordWriter writer(record);
  {
    const FileSizeLimit limit(4096);
    EXPECT_FALSE(file.SaveUUFile(57, &writer, false));
  }
  EXPECT_EQ(file.GetLastError(), 1038);
  EXPECT_EQ(file.GetLastErrorDesc(), "XXX");
}

#endif

TEST_F(UUStore, ARecordThatCannotBeStartedIs1037) {
  BinaryFile closed;
  RecordWriter writer(closed);
  UUAtcmt file = Decoded();
  EXPECT_FALSE(file.SaveUUFile(57, &writer, false));
  EXPECT_EQ(file.GetLastError(), 1037);
  EXPECT_EQ(file.GetLastErrorDesc(), "XXX");
}

TEST_F(UUStore, ARecordThatIsCutAnywhereIs1039) {
  UUAtcmt file = Decoded();
  ASSERT_TRUE(Save(file, false));
  const std::string whole = Content(Record());
  for (size_t n = 0; n < whole.size(); ++n) {
    ASSERT_TRUE(WriteWholeFile(Record(), std::string_view(whole).substr(0, n)));
    UUAtcmt loaded;
    EXPECT_FALSE(Load(loaded)) << n;
    EXPECT_EQ(loaded.GetLastError(), 1039) << n;
    EXPECT_EQ(loaded.GetLastErrorDesc(), "XXX") << n;
  }
}

TEST_F(UUStore, ARecordWithAnotherMarkerIs1039) {
  ASSERT_TRUE(WriteWholeFile(Record(), std::string("\2\0\0\0", 4) + std::string(20, '\0')));
  UUAtcmt loaded;
  EXPECT_FALSE(Load(loaded));
  EXPECT_EQ(loaded.GetLastError(), 1039);
}

TEST_F(UUStore, AnErrorInTheRecordIsReadBackWithIt) {
  {
    BinaryFile record;
    ASSERT_TRUE(record.Open(Record(), BinaryFile::Mode::kReadWrite));
    RecordWriter writer(record);
    writer.Int32(1);
    for (const char* text : {"644", "a.txt", ""}) writer.Text(text);
    writer.Int32(1041);
    writer.Text("XXX");
    ASSERT_TRUE(record.Flush());
  }
  UUAtcmt loaded;
  EXPECT_TRUE(Load(loaded));
  EXPECT_EQ(loaded.GetLastError(), 1041);
  EXPECT_EQ(loaded.GetLastErrorDesc(), "XXX");
}

TEST_F(UUStore, ABlockThatCouldNotBeReadGetsNeitherNameNorFile) {
  UUAtcmt file;
  ASSERT_FALSE(file.InitFromText(account_, 1, "begin 644 \r\n`\r\nend"));
  EXPECT_TRUE(file.SaveUUFile(57, nullptr, true));
  EXPECT_EQ(file.UUNameOnServer(), "");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

}  // namespace
}  // namespace korvane
