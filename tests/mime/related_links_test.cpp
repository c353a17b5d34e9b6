// The links from HTML to the other parts of its multipart/related.
#include "mime/related_links.h"

#include <gtest/gtest.h>

#include "frame/files.h"
#include "mime/mail_attachments.h"
#include "support/attachment_account.h"
#include "support/entity_tree.h"
#include "support/hostile_input.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::Crlf;
using test::MultipartOf;

class RelatedLinksTest : public testing::Test {
 protected:
  /// A multipart/related of this HTML and parts; each part is header lines without the blank line.
  std::shared_ptr<MultipartEntity> Related(const std::string& html,
                                           const std::vector<std::string>& parts) {
    std::string body = "--r\nContent-Type: text/html\n\n" + html + "\n";
    for (const std::string& part : parts) {
      body += "--r\nContent-Type: image/gif\n" + part + "\n\nGIF\n";
    }
    return MultipartOf("multipart/related; boundary=r", body + "--r--\n", account_);
  }
  std::string Rewritten(const std::string& html, const std::vector<std::string>& parts,
                        int32_t id = 57) {
    const auto root = Related(html, parts);
    EXPECT_TRUE(root->SaveEntityFiles(id, nullptr, true));
    return root->Children()[0]->Data();
  }

  test::TempFolder attachments_;
  std::shared_ptr<MailUser> account_ = test::AccountWithAttachmentsIn(attachments_.path(), 9);
};

TEST_F(RelatedLinksTest, AnImageReferredToByItsContentIdIsNotListedButItsFileIsWritten) {
  const auto root = Related("<img src=\"cid:logo@x\">",
                            {"Content-ID: <logo@x>\nContent-Disposition: inline; filename=l.gif"});
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[0]->Data(), "<img src=\"/files/9_57_2_l.gif\">");
  EXPECT_TRUE(FileExists(attachments_ / "9_57_2_l.gif"));
  EXPECT_FALSE(root->HasAttachments());
  MailAttachments list;
  list.BuildAttachmentList(root, {});
  EXPECT_EQ(list.Count(), 0);
}

TEST_F(RelatedLinksTest, APartIsFoundByLocationByFileNameAndByTypeName) {
  EXPECT_EQ(Rewritten("<img src=\"http://s.example/i/a.gif\"><img src=b.gif><img src='c.gif'>",
                      {"Content-Location: http://s.example/i/a.gif",
                       "Content-Disposition: inline; filename=b.gif",
                       "Content-Type: image/gif; name=c.gif"}),
            "<img src=\"/files/9_57_2_Image.gif\"><img src=\"/files/9_57_3_b.gif\">"
            "<img src='/files/9_57_4_c.gif'>");
}

TEST_F(RelatedLinksTest, ABareValueIsPutInDoubleQuotesAndAQuotedOneKeepsItsQuotes) {
  EXPECT_EQ(Rewritten("<img src=cid:i><img src='cid:i'><img src=\"CID:i\">", {"Content-ID: <i>"}),
            "<img src=\"/files/9_57_2_Image.gif\"><img src='/files/9_57_2_Image.gif'>"
            "<img src=\"/files/9_57_2_Image.gif\">");
}

TEST_F(RelatedLinksTest, UrlInAStyleIsRewritten) {
  EXPECT_EQ(Rewritten("<td style=\"background:url('cid:i')\"><style>a{b:url(cid:i)}</style>",
                      {"Content-ID: <i>"}),
            "<td style=\"background:url('/files/9_57_2_Image.gif')\">"
            "<style>a{b:url(/files/9_57_2_Image.gif)}</style>");
}

TEST_F(RelatedLinksTest, OnlyAttributesThatHoldAnAddressAreRewritten) {
  EXPECT_EQ(Rewritten("<img alt=\"cid:i\" src=\"cid:i\">cid:i", {"Content-ID: <i>"}),
            "<img alt=\"cid:i\" src=\"/files/9_57_2_Image.gif\">cid:i");
}

TEST_F(RelatedLinksTest, TheKeyMustBeTheWholeLastComponent) {
  EXPECT_EQ(
      Rewritten("<a href=\"xa.gif\"><a href=\"a.gif?x\"><a href=\"a.gif/\"><a href=\"d/a.gif\">"
                "<a href=\"cid:xa.gif\"><a href=\"d\\a.gif\">",
                {"Content-Disposition: inline; filename=a.gif"}),
      "<a href=\"xa.gif\"><a href=\"a.gif?x\"><a href=\"a.gif/\"><a href=\"/files/9_57_2_a.gif\">"
      "<a href=\"cid:xa.gif\"><a href=\"/files/9_57_2_a.gif\">");
}

TEST_F(RelatedLinksTest, ReferencesAndPercentSignsInAnAddressAreUndone) {
  EXPECT_EQ(
      Rewritten("<img src=\"cid:a&amp;b\"><img src=\"cid:a%26b\"><img src=\"my%20pic.gif\">",
                {"Content-ID: <a&b>", "Content-Disposition: inline; filename=\"my pic.gif\""}),
      "<img src=\"/files/9_57_2_Image.gif\"><img src=\"/files/9_57_2_Image.gif\">"
      "<img src=\"/files/9_57_3_my%20pic.gif\">");
}

TEST_F(RelatedLinksTest, TheAddressOfAStoredFileIsPercentEncoded) {
  EXPECT_EQ(
      Rewritten("<img src=cid:i>",
                {"Content-ID: <i>\nContent-Disposition: inline; filename=\"a b'c(\xC3\xA8).gif\""}),
      "<img src=\"/files/9_57_2_a%20b%27c%28%C3%A8%29.gif\">");
}

TEST_F(RelatedLinksTest, APartThatNoLinkUsesBecomesAnAttachment) {
  const auto root =
      Related("<img src=cid:used>", {"Content-ID: <used>",
                                     "Content-ID: <unused>\nContent-Type: application/pdf; "
                                     "name=offer.pdf"});
  EXPECT_FALSE(root->Children()[1]->IsAttachment());
  EXPECT_TRUE(root->Children()[2]->IsAttachment());
  EXPECT_TRUE(root->HasAttachments());
}

TEST_F(RelatedLinksTest, WithoutHtmlEveryPartBecomesAnAttachment) {
  const auto root =
      MultipartOf("multipart/related; boundary=r",
                  "--r\n\ntext\n--r\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n--r--\n");
  EXPECT_TRUE(root->Children()[1]->IsAttachment());
}

TEST_F(RelatedLinksTest, HtmlDeepBelowTheRelatedIsRewritten) {
  const auto root =
      MultipartOf("multipart/related; boundary=r",
                  "--r\nContent-Type: multipart/alternative; boundary=a\n\n--a\n\ntext\n"
                  "--a\nContent-Type: text/html\n\n<img src=cid:i>\n--a--\n"
                  "--r\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n--r--\n",
                  account_);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[0]->Children()[1]->Data(), "<img src=\"/files/9_57_4_Image.gif\">");
  EXPECT_FALSE(root->HasAttachments());
}

TEST_F(RelatedLinksTest, TheInnermostRelatedComesFirst) {
  const auto root =
      MultipartOf("multipart/related; boundary=o",
                  "--o\nContent-Type: multipart/related; boundary=r\n\n"
                  "--r\nContent-Type: text/html\n\n<img src=cid:i><img src=cid:outer>\n"
                  "--r\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n--r--\n"
                  "--o\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n"
                  "--o\nContent-Type: image/gif\nContent-ID: <outer>\n\nG\n--o--\n",
                  account_);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[0]->Children()[0]->Data(),
            "<img src=\"/files/9_57_3_Image.gif\"><img src=\"/files/9_57_5_Image.gif\">");
  EXPECT_TRUE(root->Children()[1]->IsAttachment()) << "hidden by the inner one of its name";
  EXPECT_FALSE(root->Children()[2]->IsAttachment());
}

TEST_F(RelatedLinksTest, AttachedHtmlIsNotRewritten) {
  const auto root = MultipartOf(
      "multipart/related; boundary=r",
      "--r\nContent-Type: text/html\nContent-Disposition: attachment\n\n<img src=cid:i>\n"
      "--r\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n--r--\n",
      account_);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[0]->Data(), "<img src=cid:i>");
  EXPECT_TRUE(root->Children()[1]->IsAttachment());
}

TEST_F(RelatedLinksTest, OutsideAMultipartRelatedNothingIsRewritten) {
  const auto root = MultipartOf("multipart/mixed; boundary=b",
                                "--b\nContent-Type: text/html\n\n<img src=cid:i>\n"
                                "--b\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n--b--\n",
                                account_);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[0]->Data(), "<img src=cid:i>");
}

TEST_F(RelatedLinksTest, EveryAttemptStartsFromTheUntouchedHtml) {
  const auto root = Related("<img src=cid:i>", {"Content-ID: <i>"});
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  ASSERT_TRUE(root->SaveEntityFiles(58, nullptr, true));
  EXPECT_EQ(root->Children()[0]->Data(), "<img src=\"/files/9_58_2_Image.gif\">");
  ASSERT_TRUE(root->SaveEntityFiles(59, nullptr, false));
  EXPECT_EQ(root->Children()[0]->Data(), "<img src=cid:i>") << "no files, no links to them";
}

TEST_F(RelatedLinksTest, ALinkToAPartBehindTheHtmlAndToOneBeforeItBothWork) {
  const auto root =
      MultipartOf("multipart/related; boundary=r",
                  "--r\nContent-Type: image/gif\nContent-ID: <before>\n\nG\n"
                  "--r\nContent-Type: text/html\n\n<img src=cid:before><img src=cid:behind>\n"
                  "--r\nContent-Type: image/gif\nContent-ID: <behind>\n\nG\n--r--\n",
                  account_);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  EXPECT_EQ(root->Children()[1]->Data(),
            "<img src=\"/files/9_57_1_Image.gif\"><img src=\"/files/9_57_3_Image.gif\">");
}

TEST_F(RelatedLinksTest, OfTwoPartsWithOneIdentifierTheFirstCounts) {
  EXPECT_EQ(Rewritten("<img src=cid:i>", {"Content-ID: <i>", "Content-ID: <i>"}),
            "<img src=\"/files/9_57_2_Image.gif\">");
}

TEST_F(RelatedLinksTest, AMegabyteOfHtmlWithTwoHundredPartsTakesLinearTime) {
  std::string html;
  std::vector<std::string> parts;
  for (int i = 0; i < 200; ++i) parts.push_back("Content-ID: <part" + std::to_string(i) + "@x>");
  size_t links = 0;
  while (html.size() < 1'000'000) {
    html += "<p>text</p><img alt=x src=\"cid:part" + std::to_string(links++ % 200) + "@x\">";
  }
  std::string rewritten;
  EXPECT_LT(test::SecondsOf([&] { rewritten = Rewritten(html, parts); }), test::kGenerousSeconds);
  EXPECT_EQ(rewritten.find("cid:"), std::string::npos);
  size_t found = 0;
  for (size_t at = rewritten.find("/files/9_57_"); at != std::string::npos;
       at = rewritten.find("/files/9_57_", at + 1)) {
    ++found;
  }
  EXPECT_EQ(found, links);
}

TEST_F(RelatedLinksTest, LinksBeyondAHundredThousandInOneMessageStay) {
  const std::string link = "<a href=cid:i>";
  const auto links = [&link](size_t count) {
    return "--r\nContent-Type: text/html\n\n" + test::Repeated(link, count * link.size()) + "\n";
  };
  const auto root = MultipartOf("multipart/related; boundary=r",
                                "--r\nContent-Type: image/gif\nContent-ID: <i>\n\nG\n" +
                                    links(60'000) + links(50'000) + links(1) + "--r--\n",
                                account_);
  ASSERT_TRUE(root->SaveEntityFiles(57, nullptr, true));
  const auto& parts = root->Children();
  const std::string address = "<a href=\"/files/9_57_1_Image.gif\">";
  EXPECT_EQ(parts[1]->Data(), test::Repeated(address, 60'000 * address.size()));
  EXPECT_EQ(parts[2]->Data(), test::Repeated(address, 40'000 * address.size()) +
                                  test::Repeated(link, 10'000 * link.size()));
  EXPECT_EQ(parts[3]->Data(), link);
}

}  // namespace
}  // namespace korvane
