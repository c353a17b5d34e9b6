#include "mime/mail_attachments.h"

#include <gtest/gtest.h>

#include "support/entity_tree.h"

namespace korvane {
namespace {

using test::MultipartOf;

std::shared_ptr<UUAtcmt> UUFile(int32_t number, const std::string& name) {
  auto file = std::make_shared<UUAtcmt>();
  file->InitFromText(nullptr, number, "begin 644 " + name + "\r\n#86)C\r\n`\r\nend");
  return file;
}

TEST(MailAttachment, WithoutASourceItIsEmpty) {
  MailAttachment attachment;
  EXPECT_EQ(attachment.Id(), 0);
  EXPECT_EQ(attachment.Name(), "");
  EXPECT_EQ(attachment.NameOnServer(), "");
  attachment.NM_FileName("x");
  EXPECT_EQ(attachment.Name(), "");
  EXPECT_EQ(attachment.GetLastError(), 0);
}

TEST(MailAttachment, AnEmptyEntityIs1009) {
  MailAttachment attachment;
  EXPECT_FALSE(attachment.SetEntitySource(nullptr));
  EXPECT_EQ(attachment.GetLastError(), 1009);
  EXPECT_EQ(attachment.GetLastErrorDesc(), "XXX");
  EXPECT_TRUE(attachment.SetEntitySource(std::make_shared<MultipartEntity>()));
  EXPECT_EQ(attachment.GetLastError(), 0);
}

TEST(MailAttachment, AnEmptyUuencodedFileIs1010) {
  MailAttachment attachment;
  EXPECT_FALSE(attachment.SetUUSource(nullptr));
  EXPECT_EQ(attachment.GetLastError(), 1010);
  EXPECT_EQ(attachment.GetLastErrorDesc(), "XXX");
}

TEST(MailAttachment, ItTakesWhatItShowsFromItsSource) {
  MailAttachment attachment;
  EXPECT_TRUE(attachment.SetUUSource(UUFile(3, "a.bin")));
  EXPECT_EQ(attachment.Id(), 3);
  EXPECT_EQ(attachment.Name(), "a.bin");
  EXPECT_TRUE(attachment.SetEntitySource(test::PartOf("Content-Type: image/gif; name=x.gif")));
  EXPECT_EQ(attachment.Id(), 1);
  EXPECT_EQ(attachment.Name(), "x.gif");
}

TEST(MailAttachment, AComposedOneIsNamedByThePageAndAnEntityIsNot) {
  MailAttachment composed;
  auto file = std::make_shared<UUAtcmt>();
  file->InitForNew(nullptr, 1);
  composed.SetUUSource(file);
  composed.NM_FileName("C:\\my files\\note.txt");
  EXPECT_EQ(composed.Name(), "note.txt");
  MailAttachment entity;
  entity.SetEntitySource(test::PartOf("Content-Type: image/gif; name=x.gif"));
  entity.NM_FileName("other.gif");
  EXPECT_EQ(entity.Name(), "x.gif");
}

TEST(MailAttachments, PartsComeInDocumentOrderAndUuencodedFilesBehindThem) {
  const auto root = MultipartOf("multipart/mixed; boundary=b",
                                "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\ntext\n"
                                "--c\nContent-Type: image/gif; name=one.gif\n\nx\n--c--\n"
                                "--b\nContent-Type: application/pdf; name=two.pdf\n\nx\n--b--\n");
  MailAttachments list;
  EXPECT_TRUE(list.BuildAttachmentList(root, {UUFile(1, "three.zip")}));
  ASSERT_EQ(list.Count(), 3);
  EXPECT_EQ(list.ItemIndex(1)->Name(), "one.gif");
  EXPECT_EQ(list.ItemIndex(2)->Name(), "two.pdf");
  EXPECT_EQ(list.ItemIndex(3)->Name(), "three.zip");
  EXPECT_EQ(list.Item(4)->Name(), "two.pdf");
}

TEST(MailAttachments, AnIdThatIsNotThereFailsThroughTheCollectionsOwnError) {
  MailAttachments list;
  list.BuildAttachmentList(nullptr, {UUFile(7, "a")});
  EXPECT_EQ(list.Item(8), nullptr);
  EXPECT_EQ(list.GetLastError(), 5);
  EXPECT_TRUE(list.Item(7));
  EXPECT_EQ(list.GetLastError(), 0);
}

TEST(MailAttachments, APositionThatIsNotThereFailsThroughTheCollectionsOwnError) {
  MailAttachments list;
  list.BuildAttachmentList(nullptr, {UUFile(7, "a")});
  for (const int32_t position : {0, 2, -1, 2'000'000'000}) {
    EXPECT_EQ(list.ItemIndex(position), nullptr);
    EXPECT_EQ(list.GetLastError(), 9);
  }
  EXPECT_TRUE(list.ItemIndex(1));
}

TEST(MailAttachments, AMessageWithoutAttachmentsHasAnEmptyList) {
  MailAttachments list;
  EXPECT_TRUE(list.BuildAttachmentList(nullptr, {}));
  EXPECT_EQ(list.Count(), 0);
  EXPECT_EQ(list.GetLastError(), 0);
}

TEST(MailAttachments, AUuencodedFileThatCannotBeListedIs1013) {
  MailAttachments list;
  EXPECT_FALSE(list.BuildAttachmentList(nullptr, {nullptr}));
  EXPECT_EQ(list.GetLastError(), 1013);
  EXPECT_EQ(list.GetLastErrorDesc(), "XXX");
}

TEST(MailAttachments, APartThatCannotBeListedIs1012) {
  // Only a tree with a hole has such a part.
  MailAttachments list;
  EXPECT_FALSE(list.ListEntities(nullptr));
  EXPECT_EQ(list.GetLastError(), 1012);
  EXPECT_EQ(list.GetLastErrorDesc(), "XXX");
}

TEST(MailAttachments, WithOneThatCouldBeListedAPartialFailureIsNotReported) {
  MailAttachments list;
  EXPECT_TRUE(list.BuildAttachmentList(nullptr, {nullptr, UUFile(1, "a")}));
  EXPECT_EQ(list.Count(), 1);
  EXPECT_EQ(list.GetLastError(), 0);
}

}  // namespace
}  // namespace korvane
