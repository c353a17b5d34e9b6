#include <gtest/gtest.h>

#include "frame/files.h"
#include "frame/record_io.h"
#include "mime/multipart_entity.h"
#include "support/attachment_account.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::TempFolder;

constexpr auto kDefault = ETextAlternativeType::AlterType_Default;
constexpr auto kText = ETextAlternativeType::AlterType_Text;
constexpr auto kHtml = ETextAlternativeType::AlterType_Html;
constexpr auto kNormal = ETextFormat::TextFormat_Normal;

const std::string kPlain = "Content-Type: text/plain\r\n\r\nplain";
const std::string kMarkup = "Content-Type: text/html\r\n\r\n<b>html</b>";
const std::string kImage = "Content-Type: image/png\r\n\r\nimage";
const std::string kAttachedText =
    "Content-Type: text/plain\r\nContent-Disposition: attachment\r\n\r\nattached";

// A multipart of the given parts; `boundary` tells nested ones apart.
std::string Multipart(const std::string& subtype, const std::vector<std::string>& parts,
                      const std::string& boundary = "outer") {
  std::string text = "Content-Type: multipart/" + subtype + "; boundary=" + boundary + "\r\n\r\n";
  for (const std::string& part : parts) text += "\r\n--" + boundary + "\r\n" + part;
  return text + "\r\n--" + boundary + "--\r\n";
}

// The tree of a part with its header, as the parser makes it below a multipart/mixed.
std::shared_ptr<MultipartEntity> Entity(const std::string& part) {
  ContentFields fields;
  fields.content_type = "multipart/mixed; boundary=root";
  fields.Classify(EEntitySubType::PredNotImportant);
  MultipartEntity root;
  int32_t counter = 0;
  root.InitMultipartRoot(fields, nullptr, counter,
                         "\r\n\r\n--root\r\n" + part + "\r\n--root--\r\n");
  return root.Children().empty() ? nullptr : root.Children().front();
}

struct Answer {
  bool found;
  std::string text;
  int32_t error;
  bool operator==(const Answer&) const = default;
};
void PrintTo(const Answer& answer, std::ostream* out) {
  *out << answer.found << " '" << answer.text << "' " << answer.error;
}

Answer Ask(const std::shared_ptr<MultipartEntity>& entity, ETextAlternativeType alternative,
           bool only_if_correct = false, bool exit_on_first_find = false,
           ETextFormat format = kNormal) {
  std::string text = ">";
  const bool found =
      entity->GetMajorText(text, alternative, format, only_if_correct, "|", exit_on_first_find);
  EXPECT_EQ(found, entity->GetLastError() == 0);
  EXPECT_EQ(entity->GetLastErrorDesc(), found ? "" : "XXX");
  return {found, text, entity->GetLastError()};
}

TEST(MajorText, AnAlternativeAskedForHtmlGivesTheHtmlPartOnly) {
  const auto entity = Entity(Multipart("alternative", {kPlain, kMarkup}));
  EXPECT_EQ(Ask(entity, kHtml), (Answer{true, "><b>html</b>|", 0}));
}

TEST(MajorText, AnAlternativeAskedForPlainTextGivesThePlainPartOnly) {
  const auto entity = Entity(Multipart("alternative", {kPlain, kMarkup}));
  EXPECT_EQ(Ask(entity, kText), (Answer{true, ">plain|", 0}));
  const auto reversed = Entity(Multipart("alternative", {kMarkup, kPlain}));
  EXPECT_EQ(Ask(reversed, kText), (Answer{true, ">plain|", 0}));
}

TEST(MajorText, AnAlternativeAskedForNothingInParticularGivesItsFirst) {
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kPlain, kMarkup})), kDefault),
            (Answer{true, ">plain|", 0}));
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kMarkup, kPlain})), kDefault),
            (Answer{true, "><b>html</b>|", 0}));
}

TEST(MajorText, AnAlternativeWithoutTheWantedOneGivesWhatItHas) {
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kPlain})), kHtml, true),
            (Answer{true, ">plain|", 0}));
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kMarkup})), kText, true),
            (Answer{true, "><b>html</b>|", 0}));
}

TEST(MajorText, AnyOtherWishForAnAlternativeIsOneForHtml) {
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kPlain, kMarkup})),
                static_cast<ETextAlternativeType>(7)),
            (Answer{true, "><b>html</b>|", 0}));
}

TEST(MajorText, AnAlternativeNeverGivesMoreThanOneText) {
  const auto entity = Entity(Multipart("alternative", {kPlain, kPlain, kMarkup, kMarkup}));
  EXPECT_EQ(Ask(entity, kHtml, false, false), (Answer{true, "><b>html</b>|", 0}));
}

TEST(MajorText, AMixedMultipartGivesEveryTextWithASeparatorBehindEach) {
  const auto entity = Entity(Multipart("mixed", {kPlain, kMarkup}));
  EXPECT_EQ(Ask(entity, kHtml), (Answer{true, ">plain|<b>html</b>|", 0}));
}

TEST(MajorText, ExitOnFirstFindGivesTheFirstTextOnly) {
  const auto entity = Entity(Multipart("mixed", {kImage, kPlain, kPlain}));
  EXPECT_EQ(Ask(entity, kHtml, false, true), (Answer{true, ">plain|", 0}));
  EXPECT_EQ(Ask(entity, kHtml, false, false), (Answer{true, ">plain|plain|", 0}));
}

TEST(MajorText, ATextThatIsAnAttachmentIsSkipped) {
  const auto entity = Entity(Multipart("mixed", {kAttachedText, kPlain}));
  EXPECT_EQ(Ask(entity, kHtml), (Answer{true, ">plain|", 0}));
}

TEST(MajorText, OfATextPartThatIsAnAttachmentIs1019) {
  EXPECT_EQ(Ask(Entity(kAttachedText), kHtml), (Answer{false, ">", 1019}));
}

TEST(MajorText, OfTheWrongAlternativeIs1018WhenOnlyTheRightOneIsWanted) {
  EXPECT_EQ(Ask(Entity(kPlain), kHtml, true), (Answer{false, ">", 1018}));
  EXPECT_EQ(Ask(Entity(kMarkup), kText, true), (Answer{false, ">", 1018}));
  EXPECT_EQ(Ask(Entity(kPlain), kHtml, false), (Answer{true, ">plain|", 0}));
  EXPECT_EQ(Ask(Entity(kPlain), kText, true), (Answer{true, ">plain|", 0}));
  EXPECT_EQ(Ask(Entity(kPlain), kDefault, true), (Answer{true, ">plain|", 0}));
}

TEST(MajorText, OfImagesOnlyIs1021AndAddsNothing) {
  EXPECT_EQ(Ask(Entity(Multipart("mixed", {kImage, kImage})), kHtml), (Answer{false, ">", 1021}));
}

TEST(MajorText, OfAnAlternativeWithoutTextIs1022AndTheSeparatorAlone) {
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kImage})), kHtml), (Answer{false, ">|", 1022}));
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kImage})), kDefault), (Answer{false, ">|", 1022}));
}

TEST(MajorText, OfARelatedMultipartWithoutTextIs1023) {
  EXPECT_EQ(Ask(Entity(Multipart("related", {kImage})), kHtml), (Answer{false, ">", 1023}));
}

TEST(MajorText, OfAParallelMultipartWithoutTextIs1024) {
  EXPECT_EQ(Ask(Entity(Multipart("parallel", {kImage})), kHtml), (Answer{false, ">", 1024}));
}

TEST(MajorText, OfADigestWithoutTextIs1025) {
  EXPECT_EQ(Ask(Entity(Multipart("digest", {"\r\nFrom: a\r\n\r\nforwarded"})), kHtml),
            (Answer{false, ">", 1025}));
}

TEST(MajorText, OfWhatIsNeitherTextNorMultipartIs1027) {
  for (const char* type :
       {"image/png", "audio/basic", "video/mpeg", "application/pdf", "message/rfc822"}) {
    EXPECT_EQ(Ask(Entity(std::string("Content-Type: ") + type + "\r\n\r\ncontent"), kHtml),
              (Answer{false, ">", 1027}))
        << type;
  }
}

TEST(MajorText, AForwardedMessageIsNeverShownInline) {
  const std::string forwarded = "Content-Type: message/rfc822\r\n\r\nSubject: a\r\n\r\ninner";
  EXPECT_EQ(Ask(Entity(Multipart("mixed", {kPlain, forwarded})), kHtml),
            (Answer{true, ">plain|", 0}));
}

TEST(MajorText, NestedMultipartsFollowTheirOwnRules) {
  const std::string alternative = Multipart("alternative", {kPlain, kMarkup}, "inner");
  const std::string related = Multipart("related", {alternative, kImage}, "middle");
  const auto entity = Entity(Multipart("mixed", {related, kPlain, kImage}));
  EXPECT_EQ(Ask(entity, kHtml), (Answer{true, "><b>html</b>|plain|", 0}));
  EXPECT_EQ(Ask(entity, kText), (Answer{true, ">plain|plain|", 0}));
  EXPECT_EQ(Ask(entity, kHtml, true), (Answer{true, "><b>html</b>|", 0}));
}

TEST(MajorText, TheStrictSearchOfAnAlternativeReachesNestedParts) {
  const std::string related = Multipart("related", {kMarkup, kImage}, "inner");
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {kPlain, related})), kHtml),
            (Answer{true, "><b>html</b>|", 0}));
  // An inner alternative that gave up has left its separator.
  const std::string inner = Multipart("alternative", {kImage}, "inner");
  EXPECT_EQ(Ask(Entity(Multipart("alternative", {inner, kMarkup})), kHtml),
            (Answer{true, ">|<b>html</b>|", 0}));
}

TEST(MajorText, AnErrorIsForgottenByTheNextCall) {
  const auto entity = Entity(kPlain);
  EXPECT_EQ(Ask(entity, kHtml, true).error, 1018);
  EXPECT_EQ(Ask(entity, kHtml, false).error, 0);
}

TEST(MajorText, ErrorsOfPartsStayOnTheParts) {
  const auto entity = Entity(Multipart("mixed", {kImage, kPlain}));
  EXPECT_EQ(Ask(entity, kHtml).error, 0);
  EXPECT_EQ(entity->Children()[0]->GetLastError(), 1027);
}

TEST(MajorText, TheFormatReachesEveryPart) {
  const auto entity = Entity(Multipart(
      "mixed", {"\r\na<b", "Content-Type: text/enriched\r\n\r\n<bold>c</bold>", kMarkup}));
  EXPECT_EQ(Ask(entity, kHtml, false, false, ETextFormat::TextFormat_HTML).text,
            "><pre>a&lt;b</pre>|<pre><bold>c</bold></pre>|<b>html</b>|");
  EXPECT_EQ(Ask(entity, kHtml, false, false, ETextFormat::TextFormat_HTMLNoPRE).text,
            ">a&lt;b|<bold>c</bold>|<b>html</b>|");
}

TEST(MajorText, AMultipartNestedDeepAndEmptyIsAnsweredQuickly) {
  std::string part = kImage;
  for (int depth = 0; depth < 90; ++depth) {
    part = Multipart("alternative", {part}, "level" + std::to_string(depth) + "x");
  }
  std::string text;
  EXPECT_FALSE(Entity(part)->GetMajorText(text, kHtml, kNormal, false, "|", false));
  EXPECT_LT(text.size(), 10000u);
}

// Entities that no mail gives, but a record can hold.
class StoredEntity : public testing::Test {
 protected:
  static void WriteBlock(RecordWriter& record, EEntityType type, EEntitySubType subtype,
                         int32_t disposition, int32_t children) {
    record.Int32(1);
    record.Int32(children);
    for (int i = 0; i < 6; ++i) record.Text("");
    record.Bool16(false);
    record.Text("");
    record.Text("");
    for (const int32_t number :
         {static_cast<int32_t>(type), static_cast<int32_t>(subtype), 0, 0, disposition, 20, 0}) {
      record.Int32(number);
    }
    if (type == EEntityType::Text) record.Text("stored");
    record.Int32(0);
    record.Text("");
  }

  // With `children`, that many parts of plain text below it.
  std::shared_ptr<MultipartEntity> Stored(EEntityType type, EEntitySubType subtype,
                                          int32_t disposition = 0, int32_t children = 0) {
    const std::string path = folder_ / "record.dat";
    {
      BinaryFile file;
      file.Open(path, BinaryFile::Mode::kReadWrite);
      RecordWriter record(file);
      WriteBlock(record, type, subtype, disposition, children);
      for (int32_t i = 0; i < children; ++i) {
        WriteBlock(record, EEntityType::Text, EEntitySubType::plain, 0, 0);
      }
      file.Flush();
    }
    BinaryFile file;
    file.Open(path, BinaryFile::Mode::kRead);
    RecordReader record(file);
    auto entity = std::make_shared<MultipartEntity>();
    int32_t counter = 0;
    EXPECT_TRUE(entity->LoadEntity(nullptr, counter, record));
    return entity;
  }

  TempFolder folder_;
};

TEST_F(StoredEntity, AMultipartWithoutPartsIs1020) {
  EXPECT_EQ(Ask(Stored(EEntityType::multipart, EEntitySubType::Mixed), kHtml),
            (Answer{false, ">", 1020}));
  EXPECT_EQ(Ask(Stored(EEntityType::multipart, EEntitySubType::alternative), kHtml),
            (Answer{false, ">", 1020}));
}

TEST_F(StoredEntity, AMultipartOfAnotherKindIs1026) {
  for (const auto subtype :
       {EEntitySubType::plain, EEntitySubType::Unrecognized, static_cast<EEntitySubType>(99)}) {
    EXPECT_EQ(Ask(Stored(EEntityType::multipart, subtype, 0, 1), kHtml),
              (Answer{false, ">", 1026}));
  }
  EXPECT_EQ(Ask(Stored(EEntityType::multipart, EEntitySubType::Mixed, 0, 2), kHtml),
            (Answer{true, ">stored|stored|", 0}));
}

TEST_F(StoredEntity, ATypeOutsideTheEnumerationIs1027) {
  EXPECT_EQ(Ask(Stored(static_cast<EEntityType>(9), EEntitySubType::plain), kHtml),
            (Answer{false, ">", 1027}));
}

TEST_F(StoredEntity, ADispositionOutsideTheEnumerationIsAnAttachments) {
  EXPECT_EQ(Ask(Stored(EEntityType::Text, EEntitySubType::plain, 5), kHtml),
            (Answer{false, ">", 1019}));
  EXPECT_EQ(Ask(Stored(EEntityType::Text, EEntitySubType::plain, 2), kHtml),
            (Answer{true, ">stored|", 0}));
}

}  // namespace
}  // namespace korvane
