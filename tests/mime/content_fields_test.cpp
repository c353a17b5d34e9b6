#include "mime/content_fields.h"

#include <gtest/gtest.h>

#include "support/entity_tree.h"

namespace korvane {
namespace {

using test::FieldsOf;
using test::PartOf;

struct TypeCase {
  const char* content_type;
  EEntityType type;
  EEntitySubType subtype;
};

TEST(ContentFields, EveryMediaTypeHasItsTypeAndSubtype) {
  using T = EEntityType;
  using S = EEntitySubType;
  const TypeCase cases[] = {
      {"text/plain", T::Text, S::plain},
      {"text/html", T::Text, S::html},
      {"text/enriched", T::Text, S::enriched},
      {"text/richtext", T::Text, S::richtext},
      {"text/calendar", T::Text, S::plain},
      {"image/jpeg", T::Image, S::jpeg},
      {"image/bmp", T::Image, S::bmp},
      {"image/gif", T::Image, S::gif},
      {"image/png", T::Image, S::Unrecognized},
      {"audio/basic", T::audio, S::basic},
      {"audio/mp3", T::audio, S::Unrecognized},
      {"video/mpeg", T::video, S::mpeg},
      {"video/mp4", T::video, S::Unrecognized},
      {"application/postscript", T::application, S::postscript},
      {"application/octet-stream", T::application, S::octet_stream},
      {"application/pdf", T::application, S::octet_stream},
      {"multipart/mixed", T::multipart, S::Mixed},
      {"multipart/alternative", T::multipart, S::alternative},
      {"multipart/parallel", T::multipart, S::Parallel},
      {"multipart/digest", T::multipart, S::Digest},
      {"multipart/related", T::multipart, S::related},
      {"multipart/signed", T::multipart, S::Mixed},
      {"message/rfc822", T::message, S::Rfc822},
      {"message/partial", T::message, S::partial},
      {"message/external_body", T::message, S::external_Body},
      {"message/delivery-status", T::message, S::Rfc822},
      {"foo/bar", T::application, S::octet_stream},
      {"text", T::Text, S::plain},
      {"", T::Text, S::plain},
  };
  for (const TypeCase& c : cases) {
    const ContentFields fields = FieldsOf(c.content_type);
    EXPECT_EQ(fields.type, c.type) << c.content_type;
    EXPECT_EQ(fields.subtype, c.subtype) << c.content_type;
  }
}

TEST(ContentFields, TheTypeIsRecognisedInAnyCaseAndWithBlanksAroundTheSlash) {
  const ContentFields fields = FieldsOf("TEXT / Html ; charset=x");
  EXPECT_EQ(fields.type, EEntityType::Text);
  EXPECT_EQ(fields.subtype, EEntitySubType::html);
}

TEST(ContentFields, MessageExternalBodyWithTheHyphenIsRfc822) {
  EXPECT_EQ(FieldsOf("message/external-body").subtype, EEntitySubType::Rfc822);
}

TEST(ContentFields, TheFirstEightCharactersOfTheCharsetTell) {
  EXPECT_EQ(FieldsOf("text/plain; charset=us-ascii").charset, ECharset::us_ascii);
  EXPECT_EQ(FieldsOf("text/plain; charset=ISO-8859-15").charset, ECharset::iso_8859_x);
  EXPECT_EQ(FieldsOf("text/html; charset=\"UTF-8\"").charset, ECharset::UTF_8);
  EXPECT_EQ(FieldsOf("text/plain; charset=utf-8-mac").charset, ECharset::us_ascii);
  EXPECT_EQ(FieldsOf("text/plain; charset=koi8-r").charset, ECharset::us_ascii);
  EXPECT_EQ(FieldsOf("text/plain").charset, ECharset::us_ascii);
}

TEST(ContentFields, OnlyPlainAndHtmlTextHaveACharset) {
  EXPECT_EQ(FieldsOf("text/calendar; charset=utf-8").charset, ECharset::us_ascii);
  ContentFields fields;
  fields.content_type = "text/enriched; charset=iso-8859-1";
  fields.charset = ECharset::UTF_8;
  fields.Classify(EEntitySubType::PredNotImportant);
  EXPECT_EQ(fields.charset, ECharset::UTF_8) << "it stays as it was";
}

TEST(ContentFields, ATransferEncodingOf8bitLeavesT7Bit) {
  EXPECT_EQ(FieldsOf("", "8bit").encoding, EContentTransferEncoding::T7Bit);
  EXPECT_EQ(FieldsOf("", "7bit").encoding, EContentTransferEncoding::T7Bit);
  EXPECT_EQ(FieldsOf("", "t8bit").encoding, EContentTransferEncoding::T8Bit);
  EXPECT_EQ(FieldsOf("", "t7bit").encoding, EContentTransferEncoding::T7Bit);
  EXPECT_EQ(FieldsOf("", "binary").encoding, EContentTransferEncoding::Binary);
}

TEST(ContentFields, Base64InCapitalsIsRecognised) {
  EXPECT_EQ(FieldsOf("", "BASE64").encoding, EContentTransferEncoding::base64);
  EXPECT_EQ(FieldsOf("", "Quoted-Printable").encoding, EContentTransferEncoding::quoted_printable);
}

TEST(ContentFields, ATransferEncodingWithAParameterIsNotRecognised) {
  EXPECT_EQ(FieldsOf("", "base64; x=y").encoding, EContentTransferEncoding::T7Bit);
}

TEST(ContentFields, TheDispositionIsTheTextBeforeTheSemicolon) {
  using D = EContentDisposition;
  EXPECT_EQ(FieldsOf("", "", "Attachment; filename=x").disposition_kind, D::ContDisp_Attachment);
  EXPECT_EQ(FieldsOf("", "", "INLINE").disposition_kind, D::ContDisp_Inline);
  EXPECT_EQ(FieldsOf("", "", "form-data").disposition_kind, D::ContDisp_Default);
  EXPECT_EQ(FieldsOf("").disposition_kind, D::ContDisp_Default);
}

TEST(ContentFields, AnEmptyTypeInADigestIsAMessage) {
  ContentFields fields;
  fields.Classify(EEntitySubType::Digest);
  EXPECT_EQ(fields.type, EEntityType::message);
  EXPECT_EQ(fields.subtype, EEntitySubType::Rfc822);
}

TEST(FileName, TheNameOfTheDispositionComesFirst) {
  EXPECT_EQ(FieldsOf("text/plain; name=b.txt", "", "inline; filename=a.txt").FileName(), "a.txt");
  EXPECT_EQ(FieldsOf("text/plain; name=b.txt", "", "inline").FileName(), "b.txt");
  EXPECT_EQ(FieldsOf("text/plain", "", "inline").FileName(), "");
}

TEST(FileName, APathLeavesOnlyItsLastName) {
  for (const char* path : {"C:\\dir\\a.txt", "dir/a.txt", "a.txt", "/etc/../a.txt", "..\\a.txt"}) {
    EXPECT_EQ(FieldsOf("", "", std::string("inline; filename=\"") + path + "\"").FileName(),
              "a.txt");
  }
  EXPECT_EQ(FieldsOf("", "", "inline; filename=\"x:y\"").FileName(), "y");
}

TEST(FileName, AControlCharacterBecomesABlank) {
  EXPECT_EQ(FieldsOf("", "", "inline; filename*=utf-8''a%0Ab%00c.txt").FileName(), "a b c.txt");
}

TEST(FileName, ANamelessPartIsNamedAfterItsType) {
  const std::pair<const char*, const char*> cases[] = {
      {"text/plain", "Text.txt"},
      {"text/html", "WebPage.htm"},
      {"text/enriched", "Text.dat"},
      {"image/jpeg", "Image.jpg"},
      {"image/bmp", "Image.bmp"},
      {"image/gif", "Image.gif"},
      {"image/png", "Image.dat"},
      {"audio/basic", "Audio.dat"},
      {"video/mpeg", "Video.mpg"},
      {"video/mp4", "Video.dat"},
      {"application/pdf", "AppOctetStream.dat"},
      {"application/postscript", "AppPostscript.dat"},
      {"multipart/mixed", "Multipart.dat"},
      {"message/rfc822", "Mail.eml"},
      {"message/partial", "Mail.eml"},
      {"message/external_body", "Mail.eml"},
  };
  for (const auto& [type, name] : cases) EXPECT_EQ(FieldsOf(type).FileNameOrDefault(), name);
}

TEST(FileName, TypesBeyondTheEnumerationHaveANameToo) {
  ContentFields fields;
  fields.type = static_cast<EEntityType>(42);
  EXPECT_EQ(fields.FileNameOrDefault(), "Unrecognized.dat");
  fields.type = EEntityType::application;
  fields.subtype = EEntitySubType::PredNotImportant;
  EXPECT_EQ(fields.FileNameOrDefault(), "Application.dat");
  fields.type = EEntityType::message;
  EXPECT_EQ(fields.FileNameOrDefault(), "Mail.dat");
}

TEST(Attachment, TextIsOneByItsDisposition) {
  EXPECT_FALSE(PartOf("Content-Type: text/plain")->IsAttachment());
  EXPECT_TRUE(PartOf("Content-Disposition: attachment")->IsAttachment());
  EXPECT_FALSE(PartOf("Content-Disposition: inline")->IsAttachment());
  EXPECT_TRUE(PartOf("Content-Disposition: inline; filename=a.txt")->IsAttachment());
  EXPECT_TRUE(
      PartOf("Content-Type: text/plain; name=a.txt\nContent-Disposition: inline")->IsAttachment());
  EXPECT_FALSE(PartOf("Content-Type: text/plain; name=a.txt")->IsAttachment());
}

TEST(Attachment, WhatIsNoTextIsOne) {
  for (const char* type :
       {"image/gif", "audio/basic", "video/mpeg", "application/pdf", "message/rfc822", "foo/bar"}) {
    EXPECT_TRUE(PartOf(std::string("Content-Type: ") + type)->IsAttachment()) << type;
  }
}

TEST(Attachment, AReferencedPartOfARelatedIsOneOnlyByItsDisposition) {
  const char* const body =
      "--r\nContent-Type: text/html\n\n<img src=cid:i1><img src=cid:m1>\n"
      "--r\nContent-Type: image/gif\nContent-ID: <i1>\n\nx\n"
      "--r\nContent-Type: message/rfc822\nContent-ID: <m1>\nContent-Disposition: inline\n\nx\n"
      "--r\nContent-Type: image/gif\nContent-ID: <i2>\nContent-Disposition: attachment\n\nx\n"
      "--r\nContent-Type: image/gif\n\nx\n--r--\n";
  const auto root = test::MultipartOf("multipart/related; boundary=r", body);
  ASSERT_EQ(root->Children().size(), 5u);
  EXPECT_FALSE(root->Children()[1]->IsAttachment());
  EXPECT_FALSE(root->Children()[2]->IsAttachment());
  EXPECT_TRUE(root->Children()[3]->IsAttachment());
  EXPECT_TRUE(root->Children()[4]->IsAttachment()) << "nothing can refer to it";
}

TEST(RelatedReference, TheIdentifierComesBeforeTheNamesAndTheLocationLast) {
  using R = MultipartEntity::Reference;
  const auto reference = [](const char* header, const char* parent = "multipart/related") {
    return PartOf(std::string("Content-Type: image/gif") + header, "x", parent)->RelatedReference();
  };
  EXPECT_EQ(reference("; name=n\nContent-ID: <i>\nContent-Disposition: inline; filename=f"),
            R::kContentId);
  EXPECT_EQ(reference("; name=n\nContent-ID: <>\nContent-Disposition: inline; filename=f"),
            R::kFileName);
  EXPECT_EQ(reference("; name=n\nContent-Location: http://x/l.gif"), R::kTypeName);
  EXPECT_EQ(reference("\nContent-Location: http://x/l.gif"), R::kLocation);
  EXPECT_EQ(reference(""), R::kNone);
  EXPECT_EQ(reference("\nContent-ID: <i>", "multipart/mixed"), R::kNone);
}

}  // namespace
}  // namespace korvane
