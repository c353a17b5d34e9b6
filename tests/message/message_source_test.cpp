// A message written as a text and read again.
#include "message/message_source.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "mime/content_encoding.h"

#include "support/mail_corpus.h"

namespace korvane::test {
namespace {

struct File {
  std::string name;
  std::string bytes;
  bool operator==(const File&) const = default;
};
void PrintTo(const File& file, std::ostream* out) {
  *out << file.name << " (" << file.bytes.size() << " bytes)";
}

void CollectFiles(const MultipartEntity& entity, std::vector<File>& files) {
  if (entity.Fields().type != EEntityType::multipart &&
      (entity.Fields().type != EEntityType::Text || entity.IsAttachment())) {
    files.push_back({entity.Name(), entity.Data()});
  }
  for (const auto& child : entity.Children()) CollectFiles(*child, files);
}

// The attachments and related parts of a message fresh from the wire.
std::vector<File> FilesOf(const MailMessage& message) {
  std::vector<File> files;
  if (message.Entity()) CollectFiles(*message.Entity(), files);
  for (const auto& uu : message.UUFiles()) files.push_back({uu->UUName(), uu->UUData()});
  return files;
}

std::vector<std::string> AttachmentNames(MailMessage& message) {
  std::vector<std::string> names;
  const auto list = message.GetAttachments();
  for (int32_t i = 1; i <= list->Count(); ++i) names.push_back(list->ItemIndex(i)->Name());
  return names;
}

std::string FieldsOf(const MailMessage& m) {
  std::string all;
  for (const std::string& field :
       {m.Subject(ETextFormat::TextFormat_Normal), m.From(), m.MessageTo(), m.CC(), m.BCC(),
        m.Sender(), m.ReplyTo(), m.SendDate(), m.Received(), m.ReturnPath(), m.MessageID(),
        m.InReplyTo(), m.References(), m.Keywords(), m.Comments()}) {
    all += field + "\n";
  }
  return all;
}

std::string BodyOf(MailMessage& message, ETextAlternativeType alternative,
                   ETextFormat format = ETextFormat::TextFormat_Normal) {
  std::string text;
  message.MessageBody(text, alternative, format);
  return text;
}

class MessageSourceTest : public testing::Test {
 protected:
  std::shared_ptr<MailMessage> Again(const std::string& source) const {
    return store_.Parsed(WithTransportDots(source));
  }
  std::string SourceOf(MailMessage& message, std::vector<std::string>* missing = nullptr) const {
    return MessageSource(message, *store_.account(), missing);
  }
  // Stored, read back, written and parsed.
  std::shared_ptr<MailMessage> ThroughTheStore(MailMessage& message) {
    const auto stored = store_.StoredAndReadBack(message);
    return Again(SourceOf(*stored));
  }
  std::shared_ptr<MailMessage> Composed() const {
    auto message = std::make_shared<MailMessage>();
    message->PrepareNew(store_.account(), "");
    return message;
  }

  void RoundTripsAll(const std::string& folder) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::string text;
      ASSERT_TRUE(ReadWholeFile(entry.path().string(), text));
      if (text.empty()) continue;
      SCOPED_TRACE(entry.path().filename().string());
      const std::string wire = WithTransportDots(WithLineEnds(text, LineEnds::kCrLf));
      const auto before = store_.Parsed(wire);
      const auto unstored = Again(SourceOf(*before));
      ExpectSame(*before, *unstored, false);
      const auto original = store_.Parsed(wire);
      const auto after = ThroughTheStore(*before);
      ExpectSame(*original, *after, true);
      ++count;
    }
    EXPECT_GT(count, 10);
  }

  static void ExpectSame(MailMessage& a, MailMessage& b, bool uu_files_left_the_text) {
    EXPECT_EQ(FieldsOf(a), FieldsOf(b));
    EXPECT_EQ(FilesOf(a), FilesOf(b));
    EXPECT_EQ(AttachmentNames(a), AttachmentNames(b));
    EXPECT_EQ(a.ExistAttachments(), b.ExistAttachments());
    if (uu_files_left_the_text && !a.UUFiles().empty()) return;
    for (const auto alternative :
         {ETextAlternativeType::AlterType_Text, ETextAlternativeType::AlterType_Html}) {
      EXPECT_EQ(BodyOf(a, alternative), BodyOf(b, alternative));
      EXPECT_EQ(BodyOf(a, alternative, ETextFormat::TextFormat_HTML),
                BodyOf(b, alternative, ETextFormat::TextFormat_HTML));
    }
    ASSERT_EQ(a.Entity() == nullptr, b.Entity() == nullptr);
    if (a.Entity()) {
      EXPECT_EQ(TreeOf(*a.Entity()), TreeOf(*b.Entity()));
    }
  }

  RecordStore store_;
};

const std::string kMail = std::string(KORVANE_SOURCE_DIR) + "/tests/mail/";

TEST_F(MessageSourceTest, EveryRealMessageReadsTheSameAgain) { RoundTripsAll(kMail + "real"); }
TEST_F(MessageSourceTest, EveryQuirkyMessageReadsTheSameAgain) { RoundTripsAll(kMail + "quirky"); }
TEST_F(MessageSourceTest, EveryMalformedMessageReadsTheSameAgain) {
  RoundTripsAll(kMail + "malformed");
}

TEST_F(MessageSourceTest, NoLineIsBareOrTooLong) {
  for (const char* folder : {"real", "quirky"}) {
    for (const auto& entry : std::filesystem::directory_iterator(kMail + folder)) {
      std::string text;
      ASSERT_TRUE(ReadWholeFile(entry.path().string(), text));
      const auto message = store_.Parsed(WithLineEnds(text, LineEnds::kCrLf));
      const auto stored = store_.StoredAndReadBack(*message);
      const std::string source = SourceOf(*stored);
      size_t begin = 0;
      for (size_t lf = source.find('\n'); lf != std::string::npos; lf = source.find('\n', begin)) {
        ASSERT_GT(lf, 0u);
        ASSERT_EQ(source[lf - 1], '\r') << entry.path();
        ASSERT_LE(lf - begin, 999u) << entry.path();
        begin = lf + 1;
      }
      EXPECT_EQ(begin, source.size()) << entry.path();
    }
  }
}

TEST_F(MessageSourceTest, AComposedMessageReadsTheSame) {
  const auto message = Composed();
  message->NM_From("Città Nuova <citta@example.org>");
  message->NM_MessageTo("\"Rossi; M. x\" <maria@example.org>, Žofie <z@e.org>, b@example.org");
  message->NM_CC("Anna Bianchi <anna@example.org>");
  message->NM_BCC("hidden@example.org");
  message->NM_Subject("Perché no? 100% =?utf-8?Q?sure?= 🙂 " + std::string(300, 'x'));
  message->NM_SendDate("5/3/2002 9:5:7");
  message->NM_InReplyTo("<one@example.org>");
  message->NM_MessageBody(".\r\nFrom here\r\n  blanks \r\nà\r\nno end");
  const auto again = ThroughTheStore(*message);
  EXPECT_EQ(again->Subject(ETextFormat::TextFormat_Normal),
            message->Subject(ETextFormat::TextFormat_Normal));
  EXPECT_EQ(again->From(), message->From());
  EXPECT_EQ(again->MessageTo(), message->MessageTo());
  EXPECT_EQ(again->CC(), message->CC());
  EXPECT_EQ(again->BCC(), message->BCC());
  EXPECT_EQ(again->InReplyTo(), message->InReplyTo());
  EXPECT_EQ(again->SendDate(), "05/03/2002 09:05:07");
  EXPECT_EQ(BodyOf(*again, ETextAlternativeType::AlterType_Text), message->BodyText());
}

TEST_F(MessageSourceTest, AddressesStayWhereNamesCannotBeTold) {
  const auto message = Composed();
  message->NM_MessageTo("\"Rossi, Maria\" <maria@example.org>, Anna <anna@example.org>");
  EXPECT_EQ(ThroughTheStore(*message)->MessageToAddress(), "maria@example.org, anna@example.org");
}

TEST_F(MessageSourceTest, AFieldOfAComposedMessageCannotAddAnother) {
  const auto message = Composed();
  message->NM_Subject("a\r\nBcc: victim@example.org\r\n\r\nbody");
  message->NM_CC("a@example.org\r\nX-Evil: yes");
  message->NM_MessageBody("text\r\n");
  const std::string source = SourceOf(*message);
  const std::string header = source.substr(0, source.find("\r\n\r\n"));
  EXPECT_EQ(header.find("\nBcc:"), std::string::npos);
  EXPECT_EQ(header.find("\nX-Evil"), std::string::npos);
  EXPECT_EQ(BodyOf(*Again(source), ETextAlternativeType::AlterType_Text), "text\r\n");
}

TEST_F(MessageSourceTest, AttachmentsOfAComposedMessageComeFromTheirFiles) {
  const auto message = Composed();
  message->NM_MessageBody("see\r\n");
  const std::string name = "ünï;\"code\".bin";
  message->NM_NewAttachment()->NM_FileName(name);
  const auto stored = store_.StoredAndReadBack(*message);
  std::string bytes;
  for (int i = 0; i < 300'000; ++i) bytes += static_cast<char>(i * 7 + i / 256);
  ASSERT_TRUE(WriteWholeFile(stored->UUFiles().at(0)->UUNameOnServer(), bytes));
  std::vector<std::string> missing;
  const auto again = Again(SourceOf(*stored, &missing));
  EXPECT_TRUE(missing.empty());
  EXPECT_EQ(FilesOf(*again), std::vector<File>({{name, bytes}}));
  EXPECT_EQ(BodyOf(*again, ETextAlternativeType::AlterType_Text), "see\r\n");
}

TEST_F(MessageSourceTest, AMissingFileIsReportedAndThePartStays) {
  const auto message = store_.Parsed(
      "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\ntext\r\n--b\r\n"
      "Content-Type: image/gif\r\nContent-Disposition: attachment; filename=a.gif\r\n\r\n"
      "GIF\r\n--b--\r\n");
  const auto stored = store_.StoredAndReadBack(*message);
  for (const auto& entry : std::filesystem::directory_iterator(store_.attachments().path())) {
    std::filesystem::remove(entry.path());
  }
  std::vector<std::string> missing;
  const auto again = Again(SourceOf(*stored, &missing));
  EXPECT_EQ(missing, std::vector<std::string>({"a.gif"}));
  EXPECT_EQ(FilesOf(*again), std::vector<File>({{"a.gif", ""}}));
}

TEST_F(MessageSourceTest, LinksOfRelatedPartsAreTheSendersAgain) {
  const auto message = store_.Parsed(
      "Content-Type: multipart/related; boundary=b\r\n\r\n--b\r\nContent-Type: text/html\r\n\r\n"
      "<img src=\"cid:a&amp;b@x\"><a href=/files/other>\r\n--b\r\n"
      "Content-Type: image/gif\r\nContent-ID: <a&b@x>\r\n\r\nGIF\r\n--b--\r\n");
  const auto stored = store_.StoredAndReadBack(*message);
  EXPECT_NE(BodyOf(*stored, ETextAlternativeType::AlterType_Html).find("\"/files/9_57_2"),
            std::string::npos);
  const auto again = Again(SourceOf(*stored));
  EXPECT_EQ(BodyOf(*again, ETextAlternativeType::AlterType_Html),
            "<img src=\"cid:a%26b@x\"><a href=/files/other>");
  EXPECT_FALSE(again->ExistAttachments());
}

TEST_F(MessageSourceTest, BytesOfAnotherAlphabetKeepTheirName) {
  const auto message =
      store_.Parsed("Content-Type: text/plain; charset=koi8-r\r\n\r\n\xF0\xD2\xC9\xD7\xC5\xD4\r\n");
  const auto stored = store_.StoredAndReadBack(*message);
  const std::string source = SourceOf(*stored);
  EXPECT_NE(source.find("charset=\"koi8-r\""), std::string::npos);
  EXPECT_NE(source.find(EncodeBase64("\xF0\xD2\xC9\xD7\xC5\xD4\r\n")), std::string::npos);
}

TEST_F(MessageSourceTest, AFieldBoundaryInAForwardedMessageIsNoBoundary) {
  const auto first = store_.Parsed(
      "Subject: s\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\nx\r\n--b--\r\n");
  const std::string inner = SourceOf(*first);
  const auto outer = store_.Parsed(
      "Subject: s\r\nContent-Type: multipart/mixed; boundary=out\r\n\r\n--out\r\n"
      "Content-Type: message/rfc822\r\n\r\n" +
      inner + "\r\n--out--\r\n");
  const auto again = Again(SourceOf(*outer));
  EXPECT_EQ(FilesOf(*again), FilesOf(*outer));
}

TEST_F(MessageSourceTest, ASinkThatIsFullStopsTheWriting) {
  const auto message =
      store_.Parsed("Content-Type: application/zip\r\n\r\n" + std::string(3'000'000, 'x'));
  int calls = 0;
  EXPECT_FALSE(WriteMessageSource(*message, *store_.account(), [&calls](std::string_view) {
    ++calls;
    return false;
  }));
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace korvane::test
