// The files of a tree, its blocks in a record, and what reading them back gives.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "frame/files.h"
#include "frame/record_io.h"
#include "mime/mail_attachments.h"
#include "mime/multipart_entity.h"
#include "support/attachment_account.h"
#include "support/entity_tree.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::Crlf;
using test::MultipartOf;
using test::TempFolder;
using test::TreeOf;

constexpr const char* kTwoReports =
    "--b\nContent-Type: text/plain\n\nhello\n"
    "--b\nContent-Type: application/pdf; name=report.pdf\n\nfirst\n"
    "--b\nContent-Type: application/pdf; name=report.pdf\nContent-Transfer-Encoding: base64\n\n"
    "c2Vjb25k\n--b--\n";

std::string FileText(const std::string& path) {
  std::string data;
  return ReadWholeFile(path, data) ? data : "(no file)";
}

size_t FilesIn(const TempFolder& folder) {
  size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    ++files;
  }
  return files;
}

class EntityStore : public testing::Test {
 protected:
  std::shared_ptr<MultipartEntity> Mixed(std::string_view body) {
    return MultipartOf("multipart/mixed; boundary=b", body, account_);
  }
  /// Writes the blocks to a file of their own and reads them back.
  std::shared_ptr<MultipartEntity> ReadBack(MultipartEntity& entity, int32_t id = 57) {
    BinaryFile file;
    EXPECT_TRUE(file.Open(records_ / "record", BinaryFile::Mode::kReadWrite));
    RecordWriter writer(file);
    EXPECT_TRUE(entity.SaveEntityFiles(id, &writer, true));
    EXPECT_TRUE(file.Flush());
    EXPECT_TRUE(file.Seek(1));
    RecordReader reader(file);
    auto back = std::make_shared<MultipartEntity>();
    int32_t counter = 0;
    EXPECT_TRUE(back->LoadEntity(account_, counter, reader));
    EXPECT_EQ(reader.Remaining(), 0);
    return back;
  }

  TempFolder attachments_;
  TempFolder records_;
  std::shared_ptr<MailUser> account_ = test::AccountWithAttachmentsIn(attachments_.path(), 9);
};

TEST_F(EntityStore, TwoPartsWithOneNameAreStoredUnderTheirNumbers) {
  const auto root = Mixed(kTwoReports);
  std::vector<std::string> written;
  EXPECT_TRUE(root->SaveEntityFiles(57, nullptr, true, &written));
  EXPECT_EQ(FileText(attachments_ / "9_57_2_report.pdf"), "first");
  EXPECT_EQ(FileText(attachments_ / "9_57_3_report.pdf"), "second");
  EXPECT_EQ(written, (std::vector<std::string>{attachments_ / "9_57_2_report.pdf",
                                               attachments_ / "9_57_3_report.pdf"}));
  MailAttachments list;
  EXPECT_TRUE(list.BuildAttachmentList(root, {}));
  ASSERT_EQ(list.Count(), 2);
  EXPECT_EQ(list.Item(2)->NameOnServer(), "9_57_2_report.pdf");
  EXPECT_EQ(list.Item(3)->NameOnServer(), "9_57_3_report.pdf");
  EXPECT_EQ(list.Item(3)->Name(), "report.pdf");
}

TEST_F(EntityStore, SavingTheSameMessageTwiceRewritesTheSameFiles) {
  const auto root = Mixed(kTwoReports);
  EXPECT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  ASSERT_TRUE(WriteWholeFile(attachments_ / "9_57_2_report.pdf", "spoilt"));
  EXPECT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(FileText(attachments_ / "9_57_2_report.pdf"), "first");
  EXPECT_EQ(FilesIn(attachments_), 2u);
}

TEST_F(EntityStore, UnderAnotherNumberTheFilesHaveOtherNames) {
  const auto root = Mixed(kTwoReports);
  EXPECT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_TRUE(root->SaveEntityFiles(58, nullptr, true));
  EXPECT_EQ(FileText(attachments_ / "9_58_2_report.pdf"), "first");
  EXPECT_EQ(root->Children()[1]->NameOnServer(), "9_58_2_report.pdf");
}

TEST_F(EntityStore, ShownTextHasNoFileAndAttachedTextHas) {
  const auto root = Mixed(
      "--b\n\nshown\n--b\nContent-Disposition: attachment; filename=a.txt\n\nattached\n--b--\n");
  EXPECT_TRUE(root->SaveEntityFiles(1, nullptr, true));
  EXPECT_EQ(root->NameOnServer(), "");
  EXPECT_EQ(root->Children()[0]->NameOnServer(), "");
  EXPECT_EQ(root->Children()[1]->NameOnServer(), "9_1_2_a.txt");
  EXPECT_EQ(FilesIn(attachments_), 1u);
}

TEST_F(EntityStore, EveryTypeThatIsNoTextHasAFile) {
  for (const char* type :
       {"image/gif", "audio/basic", "video/mpeg", "application/pdf", "message/rfc822", "foo/bar"}) {
    const auto root = Mixed(std::string("--b\nContent-Type: ") + type + "\n\nx\n--b--\n");
    EXPECT_TRUE(root->SaveEntityFiles(1, nullptr, true));
    EXPECT_EQ(FileText(attachments_ / root->Children()[0]->NameOnServer()), "x") << type;
  }
}

TEST_F(EntityStore, AnAttachmentsFileHoldsTheSendersBytes) {
  const auto root = Mixed(
      "--b\nContent-Type: text/plain; charset=utf-8; name=a.txt\nContent-Disposition: attachment\n"
      "Content-Transfer-Encoding: base64\n\n4OAA/w==\n--b--\n");
  EXPECT_TRUE(root->SaveEntityFiles(1, nullptr, true));
  EXPECT_EQ(FileText(attachments_ / "9_1_1_a.txt"), std::string("\xE0\xE0\0\xFF", 4));
}

TEST_F(EntityStore, AFileThatCannotBeWrittenIs1028AndHasNoName) {
  const auto root = Mixed(kTwoReports);
  // A folder stands where the file should go.
  std::filesystem::create_directories(attachments_ / "9_57_2_report.pdf/x");
  std::vector<std::string> written;
  EXPECT_FALSE(root->SaveEntityFiles(57, nullptr, true, &written));
  EXPECT_EQ(root->GetLastError(), 1028);
  EXPECT_EQ(root->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(root->Children()[1]->GetLastError(), 1028);
  EXPECT_EQ(root->Children()[1]->NameOnServer(), "");
  EXPECT_EQ(root->Children()[2]->NameOnServer(), "9_57_3_report.pdf") << "the others are written";
  EXPECT_EQ(written.size(), 1u);
  MailAttachments list;
  list.BuildAttachmentList(root, {});
  EXPECT_EQ(list.Count(), 2) << "it stays in the list";
  EXPECT_EQ(list.ItemIndex(1)->NameOnServer(), "");
}

TEST_F(EntityStore, ARecordThatCannotBeWrittenIs1028AndTheFilesAreWrittenAllTheSame) {
  const auto root = Mixed(kTwoReports);
  BinaryFile file;  // not open
  RecordWriter writer(file);
  EXPECT_FALSE(root->SaveEntityFiles(57, &writer, true));
  EXPECT_EQ(root->GetLastError(), 1028);
  EXPECT_EQ(FilesIn(attachments_), 2u);
}

TEST_F(EntityStore, WithoutAFolderForAttachmentsNothingIsWrittenAndNothingFails) {
  account_ = test::AccountWithAttachmentsIn("", 9);
  const auto root = Mixed(kTwoReports);
  EXPECT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[1]->NameOnServer(), "");
}

TEST_F(EntityStore, WithFilesSuppressedThePartsAreNamedAndNothingIsWritten) {
  const auto root = Mixed(kTwoReports);
  EXPECT_TRUE(root->SaveEntityFiles(57, nullptr, false));
  EXPECT_EQ(root->Children()[1]->NameOnServer(), "9_57_2_report.pdf");
  EXPECT_EQ(FilesIn(attachments_), 0u);
}

TEST_F(EntityStore, WhatIsReadBackIsWhatWasParsed) {
  const auto root = Mixed(
      "--b\nContent-Type: multipart/alternative; boundary=c\n\n--c\n\none \xE0\n"
      "--c\nContent-Type: text/html; charset=utf-8\nContent-Transfer-Encoding: quoted-printable\n\n"
      "<p>=C3=A8\n--c--\n"
      "--b\nContent-Type: image/png\nContent-ID: <i@x>\nContent-Location: http://x/i.png\n"
      "Content-Disposition: inline; filename=\"i.png\"\nContent-Transfer-Encoding: base64\n\nAAEC\n"
      "--b--\n");
  const auto back = ReadBack(*root);
  EXPECT_EQ(TreeOf(*back), TreeOf(*root));
  const MultipartEntity& image = *back->Children()[1];
  const MultipartEntity& parsed = *root->Children()[1];
  EXPECT_EQ(image.Fields().content_type, parsed.Fields().content_type);
  EXPECT_EQ(image.Fields().transfer_encoding, "base64");
  EXPECT_EQ(image.Fields().disposition, parsed.Fields().disposition);
  EXPECT_EQ(image.Fields().location, "http://x/i.png");
  EXPECT_EQ(image.Fields().id, "<i@x>");
  EXPECT_EQ(image.Fields().encoding, EContentTransferEncoding::base64);
  EXPECT_EQ(image.Fields().disposition_kind, EContentDisposition::ContDisp_Inline);
  EXPECT_EQ(image.NameOnServer(), "9_57_4_i.png");
  EXPECT_EQ(image.ParentSubType(), EEntitySubType::Mixed);
  EXPECT_EQ(image.RelatedReference(), parsed.RelatedReference());
  EXPECT_EQ(back->Boundary(), "b");
  EXPECT_EQ(back->Children()[0]->Children()[1]->Data(), "<p>\xC3\xA8");
  EXPECT_EQ(image.Data(), "") << "its content is in its file";
}

TEST_F(EntityStore, NumbersAreTheSameAfterAPartWasDropped) {
  const auto root = Mixed("--b\n--b\n--b\nContent-Type: image/gif\n\nx\n--b--\n");
  EXPECT_EQ(ReadBack(*root)->Children()[0]->EntityNumber(), 1);
}

TEST_F(EntityStore, SavingWhatWasReadBackTouchesNoFileAndNoName) {
  const auto root = Mixed(kTwoReports);
  const auto back = ReadBack(*root);
  std::vector<std::string> written;
  EXPECT_TRUE(back->SaveEntityFiles(99, nullptr, true, &written));
  EXPECT_TRUE(written.empty());
  EXPECT_EQ(back->Children()[1]->NameOnServer(), "9_57_2_report.pdf");
  EXPECT_EQ(FileText(attachments_ / "9_57_2_report.pdf"), "first");
  EXPECT_EQ(FilesIn(attachments_), 2u);
}

std::string Shown(MultipartEntity& entity) {
  std::string text;
  entity.GetMajorText(text, ETextAlternativeType::AlterType_Default, ETextFormat::TextFormat_Normal,
                      false, "|", false);
  return text;
}

TEST_F(EntityStore, AnInlineTextWithAFileNameIsShownAndListed) {
  const auto root = Mixed(
      "--b\nContent-Type: text/plain; charset=iso-8859-1\n"
      "Content-Disposition: inline; filename=n.txt\n\nnot\xE8\n--b--\n");
  EXPECT_EQ(Shown(*root), "not\xC3\xA8|");
  const auto back = ReadBack(*root);
  EXPECT_TRUE(back->Children()[0]->IsAttachment());
  EXPECT_EQ(FileText(attachments_ / "9_57_1_n.txt"), "not\xE8");
  EXPECT_EQ(Shown(*back), "not\xC3\xA8|") << "read back, it takes its text from its file";
}

TEST_F(EntityStore, AnInlineTextWhoseFileIsMissingIsAnErrorAndNoEmptyText) {
  const auto root = Mixed("--b\nContent-Disposition: inline; filename=n.txt\n\nnote\n--b--\n");
  const auto back = ReadBack(*root);
  ASSERT_TRUE(RemoveFile(attachments_ / "9_57_1_n.txt"));
  EXPECT_EQ(Shown(*back), "");
  EXPECT_EQ(back->Children()[0]->GetLastError(), 1029);
}

TEST_F(EntityStore, AStoredNameWithASeparatorIsNotFollowed) {
  ASSERT_TRUE(WriteWholeFile(records_ / "secret", "secret"));
  const auto root = Mixed("--b\nContent-Disposition: inline; filename=n.txt\n\nnote\n--b--\n");
  const auto back = ReadBack(*root);
  EXPECT_EQ(back->Children()[0]->FilePath(), attachments_ / "9_57_1_n.txt");
  // The same block with another name in it.
  std::string record;
  ASSERT_TRUE(ReadWholeFile(records_ / "record", record));
  const size_t at = record.find("9_57_1_n.txt");
  record.replace(at, 12, "../a/secretX");
  ASSERT_TRUE(WriteWholeFile(records_ / "record", record));
  BinaryFile file;
  ASSERT_TRUE(file.Open(records_ / "record", BinaryFile::Mode::kRead));
  RecordReader reader(file);
  MultipartEntity evil;
  int32_t counter = 0;
  ASSERT_TRUE(evil.LoadEntity(account_, counter, reader));
  EXPECT_EQ(evil.Children()[0]->FilePath(), "");
}

TEST_F(EntityStore, ADamagedBlockIsRefusedAtEveryLength) {
  const auto root = Mixed(kTwoReports);
  ReadBack(*root);
  std::string record;
  ASSERT_TRUE(ReadWholeFile(records_ / "record", record));
  for (size_t n = 0; n < record.size(); ++n) {
    ASSERT_TRUE(WriteWholeFile(records_ / "cut", std::string_view(record).substr(0, n)));
    BinaryFile file;
    ASSERT_TRUE(file.Open(records_ / "cut", BinaryFile::Mode::kRead));
    RecordReader reader(file);
    MultipartEntity back;
    int32_t counter = 0;
    EXPECT_FALSE(back.LoadEntity(account_, counter, reader)) << n << " bytes";
  }
}

TEST_F(EntityStore, ACountOfPartsBeyondWhatRemainsIsRefused) {
  BinaryFile file;
  ASSERT_TRUE(file.Open(records_ / "record", BinaryFile::Mode::kReadWrite));
  RecordWriter writer(file);
  writer.Int32(1);
  writer.Int32(2'000'000'000);
  for (int i = 0; i < 100; ++i) writer.Int32(0);
  ASSERT_TRUE(file.Seek(1));
  RecordReader reader(file);
  MultipartEntity back;
  int32_t counter = 0;
  EXPECT_FALSE(back.LoadEntity(account_, counter, reader));
}

TEST_F(EntityStore, ARecordNestedWithoutEndIsRefused) {
  BinaryFile file;
  ASSERT_TRUE(file.Open(records_ / "record", BinaryFile::Mode::kReadWrite));
  RecordWriter writer(file);
  for (int depth = 0; depth < 50'000; ++depth) {
    writer.Int32(1);
    writer.Int32(1);
    for (int i = 0; i < 6; ++i) writer.Text("");
    writer.Bool16(false);
    for (int i = 0; i < 2; ++i) writer.Text("");
    writer.Int32(static_cast<int32_t>(EEntityType::multipart));
    for (int i = 0; i < 6; ++i) writer.Int32(0);
    writer.Int32(0);
    writer.Text("");
  }
  ASSERT_TRUE(writer.Ok());
  ASSERT_TRUE(file.Seek(1));
  RecordReader reader(file);
  MultipartEntity back;
  int32_t counter = 0;
  EXPECT_FALSE(back.LoadEntity(account_, counter, reader));
}

struct NameCase {
  const char* given;   // as the parameter's value, in quotes
  const char* stored;  // behind "9_1_1_"
};

TEST_F(EntityStore, ANameFromAMailNeverLeavesTheFolder) {
  const NameCase cases[] = {
      {"/etc/passwd", "passwd"},
      {"../../etc/passwd", "passwd"},
      {"..\\\\..\\\\boot.ini", "boot.ini"},
      {"C:\\\\windows\\\\system.ini", "system.ini"},
#ifdef _WIN32
      {"..", "__"},
      {".", "_"},
#else
      {"..", ".."},
      {".", "."},
#endif
      {"a/b\\\\c.txt", "b__c.txt"},
      {"=?utf-8?Q?a=00b=0Ac=1B.txt?=", "a b c .txt"},
      {"a'b.txt", "a'b.txt"},
      {"CON", "CON"},
      {"nul.txt", "nul.txt"},
      {"shell.php", "shell.php_"},
      {"x.PHP.jpg", "x.PHP_.jpg"},
      {"", "AppOctetStream.dat"},
      {"/", "AppOctetStream.dat"},
  };
  for (const NameCase& c : cases) {
    const auto root = Mixed(std::string("--b\nContent-Type: application/x\n"
                                        "Content-Disposition: attachment; filename=\"") +
                            c.given + "\"\n\nx\n--b--\n");
    ASSERT_TRUE(root->SaveEntityFiles(1, nullptr, true)) << c.given;
    EXPECT_EQ(root->Children()[0]->NameOnServer(), std::string("9_1_1_") + c.stored) << c.given;
    EXPECT_EQ(FileText(attachments_ / root->Children()[0]->NameOnServer()), "x") << c.given;
  }
}

TEST_F(EntityStore, APercentEncodedSeparatorDoesNotLeaveTheFolder) {
  const auto root = Mixed(
      "--b\nContent-Disposition: attachment; filename*=utf-8''..%2F..%2F%00x.txt\n\nx\n--b--\n");
  ASSERT_TRUE(root->SaveEntityFiles(1, nullptr, true));
  EXPECT_EQ(root->Children()[0]->NameOnServer(), "9_1_1_x.txt");
}

TEST_F(EntityStore, ANameOf5000CharactersIsCutInItsMiddle) {
  const auto root = Mixed("--b\nContent-Disposition: attachment; filename=\"" +
                          std::string(5000, 'n') + ".pdf\"\n\nx\n--b--\n");
  ASSERT_TRUE(root->SaveEntityFiles(1, nullptr, true));
  const std::string& name = root->Children()[0]->NameOnServer();
  EXPECT_LE(name.size(), 255u);
  EXPECT_TRUE(name.ends_with(".pdf"));
  EXPECT_EQ(FileText(attachments_ / name), "x");
  EXPECT_EQ(root->Children()[0]->Name().size(), 5004u) << "the name to show is whole";
}

#ifndef _WIN32
TEST_F(EntityStore, FilesAreMadeForTheOwnerOnly) {
  const auto root = Mixed(kTwoReports);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  struct stat status {};
  ASSERT_EQ(stat((attachments_ / "9_57_2_report.pdf").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}
#endif

}  // namespace
}  // namespace korvane
