// Taking in the header of a message, and what the getters make of its fields.
#include <gtest/gtest.h>

#include <ctime>

#include "message/mail_message.h"
#include "mime/mail_date.h"
#include "support/entity_tree.h"
#include "support/hostile_input.h"

namespace korvane {
namespace {

using test::Crlf;

std::shared_ptr<MailMessage> Header(const std::string& text) {
  auto message = std::make_shared<MailMessage>();
  message->LoadHeader(nullptr, 3, 100, "uidl-3", Crlf(text));
  return message;
}

TEST(NewMailMessage, ItHasTheDefaultsOfAMessage) {
  const MailMessage message;
  EXPECT_EQ(message.Id(), -1);
  EXPECT_EQ(message.IdOnServer(), -10);
  EXPECT_FALSE(message.Letto());
  EXPECT_EQ(message.Size(), 0);
  EXPECT_FALSE(message.ExistAttachments());
  EXPECT_EQ(message.MessageSeparator(), "<BR><BR><HR><BR>");
  EXPECT_EQ(message.Subject(), "");
  EXPECT_EQ(message.MessageUIDL(), "");
  EXPECT_EQ(message.SendDate(), "");
  EXPECT_EQ(message.GetLastError(), 0);
  EXPECT_EQ(message.GetLastErrorDesc(), "");
  EXPECT_EQ(message.Entity(), nullptr);
}

TEST(NewMailMessage, ItsReceivedDateIsTheTimeOfItsMaking) {
  const std::string before = FormatNow();
  const MailMessage message;
  const std::string after = FormatNow();
  EXPECT_TRUE(message.ReceivedDate() == before || message.ReceivedDate() == after);
}

TEST(LoadHeader, NumbersAndUidlAreTheServers) {
  const auto message = Header("Subject: x\n\n");
  EXPECT_EQ(message->Id(), 3);
  EXPECT_EQ(message->IdOnServer(), 3);
  EXPECT_EQ(message->Size(), 100);
  EXPECT_EQ(message->MessageUIDL(), "uidl-3");
  EXPECT_FALSE(message->ExistAttachments());
}

TEST(LoadHeader, EveryFieldOfTheTableIsTaken) {
  const auto m = Header(
      "Return-Path: <bounce@x.org>\nReceived: from a by b; Tue, 5 Mar 2002 10:20:30 +0100\n"
      "From: Ann <ann@x.org>\nSender: sec@x.org\nReply-To: <r@x.org>\nTo: Bob <bob@y.org>\n"
      "CC: <c@x.org>\nBCC: <b@x.org>\nMessage-ID: <id@x>\nIn-Reply-To: <irt@x>\n"
      "References: <ref@x>\nKeywords: kw\nSubject: sub\nComments: com\nEncrypted: enc\n"
      "Date: Tue, 5 Mar 2002 10:20:31 +0100\nMIME-Version: 1.0\nX-Other: ignored\n"
      "Content-Type: text/html; charset=utf-8\nContent-Transfer-Encoding: base64\n"
      "Content-Disposition: inline\nContent-Location: loc\nContent-ID: <cid>\n");
  EXPECT_EQ(m->ReturnPath(), "<bounce@x.org>");
  EXPECT_EQ(m->ReturnPathAddress(), "bounce@x.org");
  EXPECT_EQ(m->Received(), "from a by b; Tue, 5 Mar 2002 10:20:30 +0100");
  EXPECT_EQ(m->ReceivedDate(), "05/03/2002 09:20:30") << "in GMT";
  EXPECT_EQ(m->From(), "\"Ann\" <ann@x.org>");
  EXPECT_EQ(m->Sender(), "sec@x.org");
  EXPECT_EQ(m->ReplyTo(), "<r@x.org>");
  EXPECT_EQ(m->MessageTo(), "\"Bob\" <bob@y.org>");
  EXPECT_EQ(m->CC(), "<c@x.org>");
  EXPECT_EQ(m->BCC(), "<b@x.org>");
  EXPECT_EQ(m->MessageID(), "<id@x>");
  EXPECT_EQ(m->InReplyTo(), "<irt@x>");
  EXPECT_EQ(m->References(), "<ref@x>");
  EXPECT_EQ(m->Keywords(), "kw");
  EXPECT_EQ(m->Subject(ETextFormat::TextFormat_Normal), "sub");
  EXPECT_EQ(m->Comments(), "com");
  EXPECT_EQ(m->Encrypted(), "enc");
  EXPECT_EQ(m->SendDate(), "05/03/2002 10:20:31");
  EXPECT_EQ(m->Fields().content_type, "text/html; charset=utf-8");
  EXPECT_EQ(m->Fields().type, EEntityType::Text);
  EXPECT_EQ(m->Fields().subtype, EEntitySubType::html);
  EXPECT_EQ(m->Fields().charset, ECharset::UTF_8);
  EXPECT_EQ(m->Fields().encoding, EContentTransferEncoding::base64);
  EXPECT_EQ(m->Fields().disposition_kind, EContentDisposition::ContDisp_Inline);
  EXPECT_EQ(m->Fields().location, "loc");
  EXPECT_EQ(m->Fields().id, "<cid>");
}

TEST(LoadHeader, WithoutABlankLineEverythingIsHeader) {
  const std::string text = Crlf("Subject: x\nFrom: a@x.org\n");
  MailMessage message;
  message.LoadWholeMessage(nullptr, 1, 0, "", "", text);
  EXPECT_EQ(message.OriginalHeader(), text);
  EXPECT_EQ(message.BodyText(), "");
}

TEST(LoadHeader, TheHeaderEndsBeforeTheFirstBlankLine) {
  const auto message = Header("Subject: x\nFrom: a@x.org\n\nSubject: y\n");
  EXPECT_EQ(message->OriginalHeader(), "Subject: x\r\nFrom: a@x.org");
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "x");
}

TEST(LoadHeader, NothingBehindTheColonIsAnEmptySubjectAndALeadingColonIsIgnored) {
  MailMessage message;
  message.LoadHeader(nullptr, 1, 0, "", "Subject: before\r\nSubject:\r\n:x\r\n");
  EXPECT_EQ(message.Subject(ETextFormat::TextFormat_Normal), "");
  EXPECT_EQ(message.GetLastError(), 0);
}

TEST(LoadHeader, OfTwoReceivedLinesTheFirstCountsAndOfTwoSubjectsTheSecond) {
  const auto message = Header(
      "Received: by one; Tue, 5 Mar 2002 10:20:30 +0000\nSubject: first\n"
      "Received: by two; Wed, 6 Mar 2002 10:20:30 +0000\nSubject: second\n");
  EXPECT_EQ(message->Received(), "by one; Tue, 5 Mar 2002 10:20:30 +0000");
  EXPECT_EQ(message->ReceivedDate(), "05/03/2002 10:20:30");
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "second");
}

TEST(LoadHeader, ANameInCapitalsWithABlankBeforeTheColonIsRecognised) {
  EXPECT_EQ(Header("SUBJECT :   x  \n")->Subject(ETextFormat::TextFormat_Normal), "x");
}

TEST(LoadHeader, WithoutAReceivedFieldTheTimeOfMakingStays) {
  MailMessage message;
  const std::string made = message.ReceivedDate();
  message.LoadHeader(nullptr, 1, 0, "", "Subject: x\r\n");
  EXPECT_EQ(message.ReceivedDate(), made);
  EXPECT_EQ(message.Received(), "");
}

TEST(LoadHeader, AFieldThatANewHeaderLacksKeepsItsValueMessageIdAndReceivedDoNot) {
  MailMessage message;
  message.LoadHeader(nullptr, 1, 0, "",
                     Crlf("Subject: x\nMessage-ID: <a>\nReceived: by x; 5 Mar 2002 1:2:3 +0000\n"));
  message.LoadHeader(nullptr, 1, 0, "", Crlf("From: a@x.org\n"));
  EXPECT_EQ(message.Subject(ETextFormat::TextFormat_Normal), "x");
  EXPECT_EQ(message.MessageID(), "");
  EXPECT_EQ(message.Received(), "");
}

TEST(LoadHeader, AnEmptyHeaderIs1049) {
  MailMessage message;
  EXPECT_FALSE(message.LoadHeader(nullptr, 5, 0, "u", ""));
  EXPECT_EQ(message.GetLastError(), 1049);
  EXPECT_EQ(message.GetLastErrorDesc(), "XXX");
  EXPECT_EQ(message.IdOnServer(), 5);
  EXPECT_TRUE(message.LoadHeader(nullptr, 5, 0, "u", "Subject: x\r\n"));
  EXPECT_EQ(message.GetLastError(), 0);
}

TEST(LoadWholeMessage, AnEmptyTextIs1050) {
  MailMessage message;
  EXPECT_FALSE(message.LoadWholeMessage(nullptr, 5, 0, "u", "", ""));
  EXPECT_EQ(message.GetLastError(), 1050);
  EXPECT_EQ(message.GetLastErrorDesc(), "XXX");
}

TEST(LoadWholeMessage, ASeparatorReplacesTheMessagesUnlessItIsEmpty) {
  MailMessage message;
  message.LoadWholeMessage(nullptr, 1, 0, "", "", "Subject: x\r\n\r\n");
  EXPECT_EQ(message.MessageSeparator(), "<BR><BR><HR><BR>");
  message.LoadWholeMessage(nullptr, 1, 0, "", "<hr>", "Subject: x\r\n\r\n");
  EXPECT_EQ(message.MessageSeparator(), "<hr>");
}

TEST(LoadWholeMessage, ATextWithBareLineFeedsIsReadAsIfTheyWereLineEnds) {
  MailMessage message;
  message.LoadWholeMessage(nullptr, 1, 0, "", "", "Subject: x\nFrom: a@x.org\n\none\n\ntwo\n");
  EXPECT_EQ(message.Subject(ETextFormat::TextFormat_Normal), "x");
  EXPECT_EQ(message.OriginalHeader(), "Subject: x\r\nFrom: a@x.org");
  EXPECT_EQ(message.BodyText(), "one\r\n\r\ntwo\r\n");
}

TEST(LoadWholeMessage, ABareLineFeedBesideLineEndsIsText) {
  MailMessage message;
  message.LoadWholeMessage(nullptr, 1, 0, "", "", "Subject: x\r\n\r\none\n\ntwo\r\n");
  EXPECT_EQ(message.BodyText(), "one\n\ntwo\r\n");
}

TEST(Subject, OnlyTheValueOneGivesHtml) {
  const auto message = Header("Subject: a < b\n");
  EXPECT_EQ(message->Subject(static_cast<ETextFormat>(1)), "a &lt; b");
  EXPECT_EQ(message->Subject(), "a &lt; b");
  EXPECT_EQ(message->Subject(static_cast<ETextFormat>(2)), "a < b");
  EXPECT_EQ(message->Subject(static_cast<ETextFormat>(0)), "a < b");
  EXPECT_EQ(message->Subject(static_cast<ETextFormat>(77)), "a < b");
}

TEST(Subject, WhateverTheLabelSaysTheTextReadsTheSame) {
  for (const char* subject : {"=?UTF-8?Q?Citt=C3=A0?=", "=?iso-8859-1?Q?Citt=E0?=", "Citt\xE0",
                              "Citt\xC3\xA0", "=?x?B?Q2l0dMOg?="}) {
    EXPECT_EQ(
        Header(std::string("Subject: ") + subject + "\n")->Subject(ETextFormat::TextFormat_Normal),
        "Citt\xC3\xA0")
        << subject;
  }
}

TEST(Addresses, NamesAndAddressesComeFromTheNormalisedFields) {
  const auto m = Header(
      "From: \"Doe, Jane\" <jane@x.org>\nTo: Ann <ann@x.org>, bob@y.org\nSender: Sec <s@x.org>\n"
      "Reply-To: R <r@x.org>, q@x.org\nCC: Team: Ann <a@x.org>, b@x.org;\nBCC: nobody:;\n");
  EXPECT_EQ(m->FromName(), "Doe, Jane");
  EXPECT_EQ(m->FromMailAddress(), "jane@x.org");
  EXPECT_EQ(m->MessageToName(), "Ann, bob@y.org");
  EXPECT_EQ(m->MessageToAddress(), "ann@x.org, bob@y.org");
  EXPECT_EQ(m->SenderName(), "Sec");
  EXPECT_EQ(m->SenderAddress(), "s@x.org");
  EXPECT_EQ(m->ReplyToName(), "R, q@x.org");
  EXPECT_EQ(m->ReplyToAddress(), "r@x.org, q@x.org");
  EXPECT_EQ(m->CC_Name(), "Team: Ann, b@x.org");
  EXPECT_EQ(m->CC_Address(), "a@x.org, b@x.org");
  EXPECT_EQ(m->BCC_Name(), "");
  EXPECT_EQ(m->BCC_Address(), "");
}

TEST(Addresses, ABareAddressIsNameAndAddress) {
  const auto message = Header("From: ann@x.org\n");
  EXPECT_EQ(message->FromName(), "ann@x.org");
  EXPECT_EQ(message->FromMailAddress(), "ann@x.org");
}

TEST(Addresses, AFromWithoutAnAddressIsEmpty) {
  const auto message = Header("From: <>\n");
  EXPECT_EQ(message->From(), "\"\" <>");
  EXPECT_EQ(message->FromName(), "");
  EXPECT_EQ(message->FromMailAddress(), "");
}

TEST(HostileHeader, AHundredThousandLinesTakeLinearTime) {
  for (const char* line : {"Subject: x\r\n", "X-Other: y\r\n", ": \r\n", "no colon\r\n",
                           "Received: by x; 1 Jan 2000\r\n", " folded\r\n", "To: a@x, b@y\r\n"}) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += line;
    MailMessage message;
    EXPECT_LT(test::SecondsOf([&] { message.LoadHeader(nullptr, 1, 0, "", std::move(text)); }),
              test::kGenerousSeconds)
        << line;
  }
}

}  // namespace
}  // namespace korvane
