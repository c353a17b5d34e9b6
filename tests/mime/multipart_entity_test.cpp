// Building the tree of a MIME message.
#include "mime/multipart_entity.h"

#include <gtest/gtest.h>

#include "frame/error_numbers.h"
#include "support/entity_tree.h"

namespace korvane {
namespace {

using test::Crlf;
using test::FieldsOf;
using test::MultipartOf;
using test::PartOf;
using test::TreeOf;

std::string Tree(std::string_view body, std::string_view type = "multipart/mixed; boundary=b") {
  return TreeOf(*MultipartOf(type, body));
}

TEST(MultipartRoot, ItTakesThePartsInOrderAndNumbersThem) {
  EXPECT_EQ(Tree("--b\n\none\n--b\nContent-Type: image/gif; name=x.gif\n\nGIF\n--b--\n"),
            "0 multipart(1 Text 'one' 2 Image 'x.gif'*)");
}

TEST(MultipartRoot, PreambleAndEpilogueAreSkipped) {
  EXPECT_EQ(Tree("not at a line's start: --b\n--b\n\none\n--b--\nend\n--b\n\nlate\n--b--\n"),
            "0 multipart(1 Text 'one')");
}

TEST(MultipartRoot, ATextThatMerelyBeginsWithTheBoundaryDelimitsToo) {
  EXPECT_EQ(Tree("--b\n\none\n--bxyz\n\ntwo\n--b--\n"), "0 multipart(1 Text 'one' 2 Text 'two')");
}

TEST(MultipartRoot, WhatFollowsTheBoundaryOnItsLineIsSkipped) {
  EXPECT_EQ(Tree("--b   \t junk\n\none\n--b--\n"), "0 multipart(1 Text 'one')");
}

TEST(MultipartRoot, WithoutAClosingDelimiterTheLastPartRunsToTheEnd) {
  EXPECT_EQ(Tree("--b\n\none\n--b\n\ntwo\nmore\n"),
            "0 multipart(1 Text 'one' 2 Text 'two\r\nmore\r\n')");
}

TEST(MultipartRoot, ANestedMultipartIsNumberedBeforeItsParts) {
  EXPECT_EQ(Tree("--b\nContent-Type: multipart/alternative; boundary=c\n\n"
                 "--c\n\none\n--c\nContent-Type: text/html\n\n<p>\n--c--\n"
                 "--b\nContent-Type: image/gif\n\nx\n--b--\n"),
            "0 multipart(1 multipart(2 Text 'one' 3 Text '<p>') 4 Image 'Image.gif'*)");
}

TEST(MultipartRoot, AnEnclosingDelimiterEndsANestedMultipartThatIsNotClosed) {
  EXPECT_EQ(
      Tree("--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\none\n--b\n\ntwo\n--b--\n"),
      "0 multipart(1 multipart(2 Text 'one') 3 Text 'two')");
}

TEST(MultipartRoot, AnEnclosingBoundaryThatIsThePrefixOfANestedOneComesFirst) {
  EXPECT_EQ(Tree("--b\nContent-Type: multipart/mixed; boundary=bc\n\npre\n--bc\n\none\n--bc--\n"
                 "--b\n\ntwo\n--b--\n"),
            "0 multipart(1 Text 'pre' 2 Text 'one' 3 Text 'two')")
      << "a delimiter of the nested one is one of the enclosing one as well";
}

TEST(MultipartRoot, ADroppedPartGivesItsNumberBack) {
  EXPECT_EQ(Tree("--b\n--b\n--b\n\none\n--b--\n"), "0 multipart(1 Text 'one')");
}

TEST(MultipartRoot, ABoundaryWithBytesBeyondAsciiIsFound) {
  auto root = std::make_shared<MultipartEntity>();
  int32_t counter = 0;
  root->InitMultipartRoot(FieldsOf("multipart/mixed; boundary=\"\xC3\xA8\""), nullptr, counter,
                          Crlf("\n\n--\xE8\n\none\n--\xE8--\n"));
  EXPECT_EQ(TreeOf(*root), "0 multipart(1 Text 'one')");
  EXPECT_EQ(
      Tree("--b\nContent-Type: multipart/mixed; boundary=\"\xE8\"\n\n--\xE8\n\none\n--\xE8--\n"
           "--b--\n"),
      "0 multipart(1 multipart(2 Text 'one'))");
}

TEST(MultipartRoot, AnImpossibleRangeIs1014) {
  for (const char* body : {"", "\r"}) {
    MultipartEntity root;
    int32_t counter = 0;
    EXPECT_FALSE(
        root.InitMultipartRoot(FieldsOf("multipart/mixed; boundary=b"), nullptr, counter, body));
    EXPECT_EQ(root.GetLastError(), error::MultipartRootRange);
    EXPECT_EQ(root.GetLastError(), 1014);
    EXPECT_EQ(root.GetLastErrorDesc(), "XXX");
  }
}

TEST(MultipartRoot, WithoutABoundaryItIs1015) {
  const auto root = MultipartOf("multipart/mixed", "--b\n\none\n--b--\n");
  EXPECT_EQ(root->GetLastError(), 1015);
  EXPECT_EQ(root->GetLastErrorDesc(), "XXX");
}

TEST(MultipartRoot, WithoutAnyDelimiterItIs1030) {
  const auto root = MultipartOf("multipart/mixed; boundary=b", "no delimiter at all\n");
  EXPECT_EQ(root->GetLastError(), 1030);
  EXPECT_TRUE(root->Children().empty());
  EXPECT_EQ(MultipartOf("multipart/mixed; boundary=b", "--b--\n")->GetLastError(), 1030);
}

TEST(MultipartRoot, ASecondAttemptOnTheSameObjectClearsTheError) {
  MultipartEntity root;
  int32_t counter = 0;
  root.InitMultipartRoot(FieldsOf("multipart/mixed; boundary=b"), nullptr, counter, "");
  ASSERT_EQ(root.GetLastError(), 1014);
  EXPECT_TRUE(root.InitMultipartRoot(FieldsOf("multipart/mixed; boundary=b"), nullptr, counter,
                                     Crlf("\n\n--b\n\none\n--b--\n")));
  EXPECT_EQ(root.GetLastError(), 0);
}

TEST(Part, WithoutHeaderLinesItIsPlainText) {
  const auto part = PartOf("", "text");
  ASSERT_TRUE(part);
  EXPECT_EQ(part->Fields().type, EEntityType::Text);
  EXPECT_EQ(part->Fields().subtype, EEntitySubType::plain);
  EXPECT_EQ(part->Fields().charset, ECharset::us_ascii);
  EXPECT_EQ(part->Data(), "text");
}

TEST(Part, WithoutHeaderLinesInADigestItIsAMessage) {
  const auto part = PartOf("", "Subject: x\n\ntext", "multipart/digest");
  ASSERT_TRUE(part);
  EXPECT_EQ(part->Fields().type, EEntityType::message);
  EXPECT_EQ(part->Fields().subtype, EEntitySubType::Rfc822);
  EXPECT_EQ(part->Data(), "Subject: x\r\n\r\ntext");
}

TEST(Part, AMessageIsNotParsedFurther) {
  const auto part = PartOf("Content-Type: message/rfc822",
                           "Content-Type: multipart/mixed; boundary=q\n\n--q\n\nx\n--q--");
  EXPECT_TRUE(part->Children().empty());
  EXPECT_EQ(part->Data(), Crlf("Content-Type: multipart/mixed; boundary=q\n\n--q\n\nx\n--q--"));
}

TEST(Part, ItsBodyIsDecodedAndDotsOfTheTransportAreUndone) {
  EXPECT_EQ(PartOf("Content-Transfer-Encoding: quoted-printable", "..a=3D=\nb")->Data(), ".a=b");
  EXPECT_EQ(PartOf("Content-Transfer-Encoding: base64", "aGVs\nbG8=")->Data(), "hello");
  EXPECT_EQ(PartOf("", "a\n..b\n.c")->Data(), "a\r\n.b\r\nc");
}

TEST(Part, ShownTextIsUtf8AndTheFileOfAnAttachmentKeepsItsBytes) {
  EXPECT_EQ(PartOf("Content-Type: text/plain; charset=iso-8859-1", "\xE0")->Data(), "\xC3\xA0");
  EXPECT_EQ(PartOf("Content-Type: text/plain; charset=utf-8", "\xC3\xA0\xE0")->Data(),
            "\xC3\xA0\xC3\xA0");
  EXPECT_EQ(
      PartOf("Content-Type: text/plain; charset=utf-8\nContent-Disposition: attachment", "\xE0")
          ->Data(),
      "\xE0");
}

TEST(Part, AFieldGivenTwiceCountsTheSecondTime) {
  EXPECT_EQ(PartOf("Content-Type: image/gif\nContent-Type: image/bmp")->Fields().subtype,
            EEntitySubType::bmp);
}

TEST(Part, AFieldNameCountsInAnyCaseAndWithABlankBeforeTheColon) {
  EXPECT_EQ(PartOf("CONTENT-TYPE : image/gif")->Fields().subtype, EEntitySubType::gif);
  EXPECT_EQ(PartOf(":Content-Type: image/gif")->Fields().type, EEntityType::Text);
}

TEST(Part, AFoldedFieldIsUnfolded) {
  EXPECT_EQ(PartOf("Content-Type: image/gif;\n\tname=\"x.gif\"")->Name(), "x.gif");
}

TEST(Part, AnEncodedWordInAFileNameIsDecoded) {
  EXPECT_EQ(
      PartOf("Content-Disposition: attachment; filename=\"=?utf-8?Q?Citt=C3=A0.txt?=\"")->Name(),
      "Citt\xC3\xA0.txt");
}

TEST(Part, WithoutABlankLineItIsAllHeader) {
  const auto root = MultipartOf("multipart/mixed; boundary=b",
                                "--b\nContent-Type: image/gif\nno body\n--b\n\none\n--b--\n");
  EXPECT_EQ(TreeOf(*root), "0 multipart(1 Image 'Image.gif'* 2 Text 'one')");
  EXPECT_EQ(root->Children()[0]->Data(), "");
}

TEST(Part, AnImpossibleRangeIs1016) {
  const auto parent = MultipartOf("multipart/mixed; boundary=b", "--b\n\none\n--b--\n");
  for (const char* range : {"", "x"}) {
    MultipartEntity part;
    int32_t counter = 7;
    EXPECT_FALSE(part.InitChild(*parent, counter, range));
    EXPECT_EQ(part.GetLastError(), 1016);
    EXPECT_EQ(part.GetLastErrorDesc(), "XXX");
  }
}

TEST(Part, ItCanBeBuiltAlone) {
  const auto parent = MultipartOf("multipart/digest; boundary=b", "--b\n\none\n--b--\n");
  MultipartEntity part;
  int32_t counter = 7;
  EXPECT_TRUE(part.InitChild(*parent, counter, "\r\n\r\ntext\r\n--b\r\n"));
  EXPECT_EQ(part.EntityNumber(), 7);
  EXPECT_EQ(part.ParentSubType(), EEntitySubType::Digest);
  EXPECT_EQ(part.Data(), "text\r\n--b\r\n") << "no multipart is open around it";
}

TEST(SinglePartRoot, TheWholeBodyIsOneAttachment) {
  MultipartEntity root;
  int32_t counter = 0;
  EXPECT_TRUE(root.InitSinglePartRoot(FieldsOf("application/pdf; name=r.pdf", "base64"), nullptr,
                                      counter, "\r\n\r\naGVsbG8="));
  EXPECT_EQ(root.EntityNumber(), 0);
  EXPECT_EQ(root.ParentSubType(), EEntitySubType::PredNotImportant);
  EXPECT_TRUE(root.IsAttachment());
  EXPECT_EQ(root.Name(), "r.pdf");
  EXPECT_EQ(root.Data(), "hello");
}

TEST(SinglePartRoot, AnImpossibleRangeIs1017) {
  MultipartEntity root;
  int32_t counter = 0;
  EXPECT_FALSE(root.InitSinglePartRoot(FieldsOf("image/gif"), nullptr, counter, ""));
  EXPECT_EQ(root.GetLastError(), 1017);
  EXPECT_EQ(root.GetLastErrorDesc(), "XXX");
}

TEST(NestedMultipart, WithoutABoundaryItIsKeptAsTextWithoutTheTransportsDots) {
  const auto part = PartOf("Content-Type: multipart/mixed", "one\n..two");
  EXPECT_EQ(part->Fields().type, EEntityType::Text);
  EXPECT_EQ(part->Fields().subtype, EEntitySubType::plain);
  EXPECT_EQ(part->Fields().disposition_kind, EContentDisposition::ContDisp_Inline);
  EXPECT_FALSE(part->IsAttachment());
  EXPECT_EQ(part->Data(), "one\r\n.two");
  EXPECT_EQ(part->GetLastError(), 0);
}

TEST(NestedMultipart, WithoutAPartItIsKeptAsText) {
  EXPECT_EQ(PartOf("Content-Type: multipart/mixed; boundary=c", "no delimiter")->Data(),
            "no delimiter");
  EXPECT_EQ(PartOf("Content-Type: multipart/mixed; boundary=c", "x\n--c--\ny")->Data(),
            "x\r\n--c--\r\ny");
}

TEST(NestedMultipart, WithTheBoundaryOfItsParentItIsKeptAsText) {
  EXPECT_EQ(Tree("--b\nContent-Type: multipart/mixed; boundary=b\n\ninner\n--b\n\none\n--b--\n"),
            "0 multipart(1 Text 'inner' 2 Text 'one')");
}

TEST(NestedMultipart, ANumberGoesToTheNextPartWhenItIsKeptAsText) {
  EXPECT_EQ(
      Tree("--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n--c--\n--b\n\none\n--b--\n"),
      "0 multipart(1 Text '--c\r\n--c--' 2 Text 'one')");
}

}  // namespace
}  // namespace korvane
