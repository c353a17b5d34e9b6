// The body of a message: what is text, what becomes a tree, which files are found in it, and what
// is shown of it.
#include <gtest/gtest.h>

#include "frame/files.h"
#include "message/mail_message.h"
#include "support/entity_tree.h"
#include "support/hostile_input.h"
#include "support/record_store.h"

namespace korvane {
namespace {

using test::Crlf;
using test::RecordStore;
using test::TreeOf;

constexpr auto kNormal = ETextFormat::TextFormat_Normal;
constexpr auto kDefault = ETextAlternativeType::AlterType_Default;
constexpr auto kText = ETextAlternativeType::AlterType_Text;
constexpr auto kHtml = ETextAlternativeType::AlterType_Html;

std::shared_ptr<MailMessage> Message(const std::string& text) {
  auto message = std::make_shared<MailMessage>();
  message->LoadWholeMessage(nullptr, 1, 0, "", "", Crlf(text));
  return message;
}

std::string Body(MailMessage& message, ETextAlternativeType type = kDefault,
                 bool only_if_correct = false) {
  std::string text = "left from before";
  message.MessageBody(text, type, kNormal, only_if_correct);
  return text;
}

TEST(MessageText, ItIsDecodedFromBehindTheHeaderWithoutATree) {
  const auto message = Message("Content-Transfer-Encoding: quoted-printable\n\na=3Db=\nc\n..d\n");
  EXPECT_EQ(message->Entity(), nullptr);
  EXPECT_EQ(message->BodyText(), "a=bc\r\n.d\r\n");
  EXPECT_EQ(Message("Content-Transfer-Encoding: base64\n\naGVsbG8=\n")->BodyText(), "hello");
  EXPECT_EQ(Message("Subject: x\n\n.\n..a\n")->BodyText(), "\r\n.a\r\n");
}

TEST(MessageText, ItIsUtf8WhateverItsBytesAre) {
  EXPECT_EQ(Message("Content-Type: text/plain; charset=iso-8859-1\n\n\xE0\n")->BodyText(),
            "\xC3\xA0\r\n");
  EXPECT_EQ(Message("\n\n\xE0\xC3\xA0")->BodyText(), "\xC3\xA0\xC3\xA0");
}

TEST(MessageText, WithoutABodyItIsEmptyAndNoError) {
  for (const char* text : {"Subject: x", "Subject: x\n", "Subject: x\n\n"}) {
    const auto message = Message(text);
    EXPECT_EQ(message->GetLastError(), 0);
    EXPECT_EQ(Body(*message), "");
    EXPECT_EQ(message->GetLastError(), 0);
  }
}

TEST(MessageText, WantedStrictlyAsPlainItIs1087UnlessItIsPlain) {
  const auto html = Message("Content-Type: text/html\n\n<p>\n");
  EXPECT_EQ(Body(*html, kText, true), "");
  EXPECT_EQ(html->GetLastError(), 1087);
  EXPECT_EQ(html->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(Body(*html, kText, false), "<p>\r\n");
  EXPECT_EQ(html->GetLastError(), 0);
  EXPECT_EQ(Body(*Message("\n\ntext"), kText, true), "text");
}

TEST(MessageText, WantedStrictlyAsHtmlItIs1088UnlessItIsHtml) {
  const auto plain = Message("Subject: x\n\ntext");
  EXPECT_EQ(Body(*plain, kHtml, true), "");
  EXPECT_EQ(plain->GetLastError(), 1088);
  EXPECT_EQ(plain->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(Body(*Message("Content-Type: text/html\n\n<p>"), kHtml, true), "<p>");
}

TEST(MessageText, WantedStrictlyAsAnythingElseItIsEmptyWithoutAnError) {
  const auto message = Message("Subject: x\n\ntext");
  EXPECT_EQ(Body(*message, static_cast<ETextAlternativeType>(9), true), "");
  EXPECT_EQ(message->GetLastError(), 0);
  EXPECT_EQ(Body(*message, kDefault, true), "text");
}

TEST(MessageText, ItIsShownInTheFormatAskedFor) {
  const auto message = Message("Subject: x\n\na<b");
  std::string text;
  EXPECT_TRUE(message->MessageBody(text, kHtml, ETextFormat::TextFormat_HTML));
  EXPECT_EQ(text, "<pre>a&lt;b</pre>");
  EXPECT_TRUE(message->MessageBody(text, kHtml, ETextFormat::TextFormat_HTMLNoPRE));
  EXPECT_EQ(text, "a&lt;b");
  EXPECT_TRUE(message->MessageBody(text));
  EXPECT_EQ(text, "<pre>a&lt;b</pre>") << "the published defaults";
}

TEST(MessageTree, TheSeparatorBehindTheLastTextIsCutOff) {
  const auto message =
      Message("Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\n\ntwo\n--b--\n");
  message->MessageSeparator("<hr>");
  EXPECT_EQ(Body(*message), "one<hr>two");
  EXPECT_EQ(TreeOf(*message->Entity()), "0 multipart(1 Text 'one' 2 Text 'two')");
  EXPECT_EQ(message->BodyText(), "");
}

TEST(MessageTree, TheWantedAlternativeIsShown) {
  const auto message = Message(
      "Content-Type: multipart/alternative; boundary=b\n\n--b\n\none\n"
      "--b\nContent-Type: text/html\n\n<p>\n--b--\n");
  EXPECT_EQ(Body(*message, kHtml), "<p>");
  EXPECT_EQ(Body(*message, kText), "one");
  EXPECT_EQ(Body(*message, kDefault), "one");
}

TEST(MessageTree, WithoutATextToShowItIs1060) {
  const auto message = Message(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: image/gif\n\nx\n--b--\n");
  EXPECT_EQ(Body(*message), "");
  EXPECT_EQ(message->GetLastError(), 1060);
  EXPECT_EQ(message->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(message->Entity()->GetLastError(), 1021);
}

TEST(MessageTree, AHeaderAloneOfAMultipartIs1059) {
  MailMessage message;
  message.LoadHeader(nullptr, 1, 0, "", Crlf("Content-Type: multipart/mixed; boundary=b\n\n"));
  EXPECT_EQ(Body(message), "");
  EXPECT_EQ(message.GetLastError(), 1059);
  EXPECT_EQ(message.GetLastErrorDesc(), "XXX");
  EXPECT_EQ(message.GetAttachments()->Count(), 0);
}

TEST(MessageTree, AMessageThatIsNoTextIsOneAttachment) {
  const auto message = Message(
      "Content-Type: image/png; name=i.png\nContent-Transfer-Encoding: base64\n\naGVsbG8=\n");
  ASSERT_TRUE(message->Entity());
  EXPECT_EQ(message->Entity()->Data(), "hello");
  EXPECT_TRUE(message->ExistAttachments());
  const auto list = message->GetAttachments();
  ASSERT_EQ(list->Count(), 1);
  EXPECT_EQ(list->ItemIndex(1)->Id(), 0);
  EXPECT_EQ(list->ItemIndex(1)->Name(), "i.png");
}

TEST(MessageTree, AnAttachedTextAsTheWholeMessageIsOneAttachment) {
  const auto message = Message("Content-Disposition: attachment; filename=a.txt\n\nx");
  EXPECT_TRUE(message->Entity());
  EXPECT_TRUE(message->ExistAttachments());
  EXPECT_EQ(Body(*message), "");
  EXPECT_EQ(message->GetLastError(), 1060);
}

TEST(MessageTree, AnInlineTextAsTheWholeMessageIsShownAndListed) {
  RecordStore store;
  const auto message =
      store.Parsed(Crlf("Content-Disposition: inline; filename=a.txt\n\nwhole \xE8"));
  EXPECT_EQ(Body(*message), "whole \xC3\xA8");
  const auto back = store.StoredAndReadBack(*message);
  ASSERT_TRUE(back);
  EXPECT_EQ(Body(*back), "whole \xC3\xA8");
  EXPECT_EQ(back->GetAttachments()->ItemIndex(1)->NameOnServer(), "9_57_0_a.txt");
}

TEST(MessageTree, ExistAttachmentsSaysWhetherAPartIsAnAttachment) {
  EXPECT_FALSE(Message("Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b--\n")
                   ->ExistAttachments());
  EXPECT_TRUE(
      Message("Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: image/gif\n\n"
              "x\n--b--\n")
          ->ExistAttachments());
  EXPECT_FALSE(Message("Subject: x\n\ntext\n")->ExistAttachments());
}

TEST(UnbuildableMultipart, AtTheRootItIsKeptAsTextWithoutTheTransportsDots) {
  const char* const headers[] = {
      "Content-Type: multipart/mixed\n\n",              // no boundary
      "Content-Type: multipart/mixed; boundary=q\n\n",  // no delimiter
      "Content-Type: multipart/mixed; boundary=\nContent-Disposition: attachment\n\n",
      "Content-Type: multipart/mixed\nContent-Transfer-Encoding: base64\n\n",
  };
  for (const char* header : headers) {
    const auto message = Message(std::string(header) + "one\n..two\n--b\n\nthree\n");
    EXPECT_EQ(message->GetLastError(), 0);
    EXPECT_EQ(message->Entity(), nullptr);
    EXPECT_EQ(Body(*message), "one\r\n.two\r\n--b\r\n\r\nthree\r\n") << header;
    EXPECT_EQ(message->GetLastError(), 0);
    EXPECT_EQ(message->GetAttachments()->Count(), 0);
  }
}

TEST(UnbuildableMultipart, ItReadsBackAsWhatItWasKeptAs) {
  RecordStore store;
  const auto message = store.Parsed(Crlf("Content-Type: multipart/mixed\n\none\n..two\n"));
  const auto back = store.StoredAndReadBack(*message);
  ASSERT_TRUE(back);
  EXPECT_EQ(Body(*back), "one\r\n.two\r\n");
  EXPECT_EQ(back->Fields().content_type, "multipart/mixed");
}

TEST(ImpossibleRange, AnImageWithoutABodyIsAMessageWithAnEmptyText) {
  const auto message = Message("Content-Type: image/gif\n");
  EXPECT_EQ(message->GetLastError(), 0);
  EXPECT_EQ(message->Entity(), nullptr);
  EXPECT_FALSE(message->ExistAttachments());
  EXPECT_EQ(Body(*message), "");
  EXPECT_EQ(message->GetLastError(), 0);
}

constexpr const char* kWithTwoFiles =
    "Subject: x\n\nbefore\nbegin 644 one.txt\n#86)C\n`\nend\nbetween\n"
    "begin 644 C:\\two.txt\n#9&5F\n`\nend\nbehind\n";

TEST(UuencodedFiles, TheyAreListedInTheOrderOfTheText) {
  const auto message = Message(kWithTwoFiles);
  ASSERT_EQ(message->UUFiles().size(), 2u);
  EXPECT_EQ(message->UUFiles()[0]->UUName(), "one.txt");
  EXPECT_EQ(message->UUFiles()[0]->UUData(), "abc");
  EXPECT_EQ(message->UUFiles()[1]->UUName(), "two.txt");
  EXPECT_EQ(message->UUFiles()[1]->UUData(), "def");
  const auto list = message->GetAttachments();
  ASSERT_EQ(list->Count(), 2);
  EXPECT_EQ(list->ItemIndex(1)->Id(), 1);
  EXPECT_EQ(list->Item(2)->Name(), "two.txt");
  EXPECT_TRUE(message->ExistAttachments());
}

TEST(UuencodedFiles, ABlockStaysInTheTextUntilItsFileIsWritten) {
  RecordStore store;
  const auto message = store.Parsed(Crlf(kWithTwoFiles));
  EXPECT_EQ(Body(*message), Crlf(kWithTwoFiles).substr(14));
  const auto back = store.StoredAndReadBack(*message);
  ASSERT_TRUE(back);
  EXPECT_EQ(Body(*message), "before\r\nbetween\r\nbehind\r\n") << "shown";
  EXPECT_EQ(Body(*back), "before\r\nbetween\r\nbehind\r\n") << "and stored";
  std::string data;
  EXPECT_TRUE(ReadWholeFile(store.attachment("9_57_1_one.txt"), data));
  EXPECT_EQ(data, "abc");
  ASSERT_EQ(back->UUFiles().size(), 2u);
  EXPECT_EQ(back->GetAttachments()->ItemIndex(2)->NameOnServer(),
            store.attachment("9_57_2_two.txt"));
}

TEST(UuencodedFiles, BlocksBeyondTenThousandStayText) {
  const std::string block = "begin 644 a\n!80\n`\nend\n";
  const auto message = Message("Subject: x\n\n" + test::Repeated(block, 10'001 * block.size()));
  ASSERT_EQ(message->UUFiles().size(), 10'000u);
  EXPECT_EQ(message->GetAttachments()->Count(), 10'000);
  EXPECT_EQ(message->UUFiles().back()->UUData(), "a");
  EXPECT_TRUE(message->BodyText().ends_with(Crlf(block)));
}

TEST(UuencodedFiles, WithoutAFolderForThemTheBlocksStayInTheText) {
  RecordStore store(false);
  const auto message = store.Parsed(Crlf(kWithTwoFiles));
  const auto back = store.StoredAndReadBack(*message);
  ASSERT_TRUE(back);
  EXPECT_EQ(Body(*back), Crlf(kWithTwoFiles).substr(14));
  EXPECT_EQ(back->GetAttachments()->Count(), 2);
  EXPECT_EQ(back->GetAttachments()->ItemIndex(1)->NameOnServer(), "");
}

TEST(UuencodedFiles, AFailedStoreLeavesTheTextWhole) {
  RecordStore store;
  const auto message = store.Parsed(Crlf(kWithTwoFiles));
  std::filesystem::create_directories(store.attachment("9_57_2_two.txt") + "/x");
  EXPECT_EQ(store.Store(*message), -1);
  EXPECT_FALSE(FileExists(store.attachment("9_57_1_one.txt")));
  EXPECT_EQ(Body(*message), Crlf(kWithTwoFiles).substr(14));
  EXPECT_NE(store.Store(*message, 58), -1) << "under another number it works";
  EXPECT_EQ(Body(*message), "before\r\nbetween\r\nbehind\r\n");
}

TEST(UuencodedFiles, ReadingBackNeverSearchesAgain) {
  RecordStore store;
  // Taking the inner block out leaves a text that reads like one.
  const auto message =
      store.Parsed(Crlf("Subject: x\n\nbegin 644 \nbegin 644 a\n#86)C\n`\nend\n#86)C\n`\nend\n"));
  const auto back = store.StoredAndReadBack(*message);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->UUFiles().size(), message->UUFiles().size());
}

TEST(UuencodedFiles, TheyAreSearchedAfterDecodingAndInPlainTextOnly) {
  EXPECT_EQ(
      Message(
          "Content-Transfer-Encoding: quoted-printable\n\nbegin 644 a=2Etxt\n#86)C\n`\nen=\nd\n")
          ->UUFiles()
          .size(),
      1u);
  EXPECT_TRUE(
      Message("Content-Type: text/html\n\nbegin 644 a.txt\n#86)C\n`\nend\n")->UUFiles().empty());
  EXPECT_TRUE(
      Message("Content-Type: multipart/mixed; boundary=b\n\n--b\n\nbegin 644 a.txt\n#86)C\n`\nend\n"
              "--b--\n")
          ->UUFiles()
          .empty());
}

TEST(GetAttachments, ASecondDownloadForgetsTheListOfTheFirst) {
  const auto message = Message(kWithTwoFiles);
  ASSERT_EQ(message->GetAttachments()->Count(), 2);
  message->LoadWholeMessage(nullptr, 1, 0, "", "", "Subject: x\r\n\r\ntext");
  EXPECT_EQ(message->GetAttachments()->Count(), 0);
  EXPECT_FALSE(message->ExistAttachments());
}

TEST(HostileMessage, TenThousandNestedMultipartsAreStoredAndReadBack) {
  std::string text;
  for (int i = 0; i < 10'000; ++i) {
    const std::string boundary = "n" + std::to_string(100'000 + i);
    text +=
        "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary + "\r\n";
  }
  text += "\r\nbottom";
  RecordStore store;
  EXPECT_LT(test::SecondsOf([&] {
              const auto message = store.Parsed(text);
              EXPECT_TRUE(Body(*message).ends_with("bottom"));
              const auto back = store.StoredAndReadBack(*message);
              ASSERT_TRUE(back);
              EXPECT_EQ(TreeOf(*back->Entity()), TreeOf(*message->Entity()));
            }),
            test::kGenerousSeconds);
}

TEST(HostileMessage, FiftyMegabytesOfAnyKindTakeLinearTime) {
  constexpr size_t kBytes = 50'000'000;
  struct Case {
    const char* header;
    const char* piece;
  };
  const Case cases[] = {
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\n", "\r\n--b\r\n\r\nx"},
      {"Subject: x\r\n\r\n", "\r\nbegin 644 a"},
      {"Subject: x\r\n\r\n", "\r\n."},
  };
  for (const Case& c : cases) {
    std::string text = c.header + test::Repeated(c.piece, kBytes);
    MailMessage message;
    EXPECT_LT(
        test::SecondsOf([&] { message.LoadWholeMessage(nullptr, 1, 0, "", "", std::move(text)); }),
        test::kGenerousSeconds)
        << c.piece;
  }
}

}  // namespace
}  // namespace korvane
