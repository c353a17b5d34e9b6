#include "mime/html_addresses.h"

#include <gtest/gtest.h>

#include "support/hostile_input.h"

namespace korvane {
namespace {

using Texts = std::vector<std::string>;

// The addresses; a bare one with "!" before it.
Texts Addresses(std::string_view html) {
  Texts found;
  for (const HtmlAddress& place : FindHtmlAddresses(html)) {
    found.push_back((place.bare ? "!" : "") +
                    std::string(html.substr(place.begin, place.end - place.begin)));
  }
  return found;
}

TEST(HtmlAddresses, ValuesInDoubleQuotesInSingleQuotesAndBareAreFound) {
  EXPECT_EQ(Addresses("<img src=\"a\"><img src='b'><img src=c>"), (Texts{"a", "b", "!c"}));
}

TEST(HtmlAddresses, TagsAndAttributesCountInAnyCaseWithBlanksAroundTheSign) {
  EXPECT_EQ(Addresses("<IMG\r\n SRC \t=\n \"a\" ><BODY Background = b>"), (Texts{"a", "!b"}));
}

TEST(HtmlAddresses, OnlyAttributesThatHoldAnAddressCount) {
  EXPECT_EQ(Addresses("<img alt=\"a.gif\" title='b.gif' src=\"c.gif\" name=d.gif data-src=e.gif>"),
            (Texts{"c.gif"}));
  EXPECT_EQ(Addresses("<a href=1><td background=2><object data=3><v:fill src=4><video poster=5>"),
            (Texts{"!1", "!2", "!3", "!4", "!5"}));
}

TEST(HtmlAddresses, ASignInQuotesDoesNotEndATag) {
  EXPECT_EQ(Addresses("<img alt=\"a > b\" src=\"c\">"), (Texts{"c"}));
}

TEST(HtmlAddresses, WhatIsNoTagIsPassedOver) {
  EXPECT_EQ(Addresses("a < b src=\"x\" <> </a href=\"y\"> <1 src=z>"), Texts{});
}

TEST(HtmlAddresses, TextThatLooksLikeAnAttributeIsNone) {
  EXPECT_EQ(Addresses("src=\"a.gif\" <p>src=\"b.gif\"</p>"), Texts{});
}

TEST(HtmlAddresses, TagsBehindACommentsBeginCount) {
  EXPECT_EQ(Addresses("<!--[if mso]><img src=\"a\"><![endif]--><img src=\"b\">"),
            (Texts{"a", "b"}));
}

TEST(HtmlAddresses, UrlInAStyleAttributeIsFoundWithoutItsQuotes) {
  EXPECT_EQ(Addresses("<p style=\"background:url(a.gif) no-repeat, URL( 'b.gif' )\">"
                      "<p style='background:url(\"c.gif\")'>"
                      "<p style=\"background:url(&quot;d.gif&quot;)\">"),
            (Texts{"a.gif", "b.gif", "c.gif", "d.gif"}));
}

TEST(HtmlAddresses, UrlInAStyleElementIsFoundAndTagsInItAreNone) {
  EXPECT_EQ(Addresses("<style>p{background:url(a.gif)} <img src=x></STYLE><img src=b>"),
            (Texts{"a.gif", "!b"}));
}

TEST(HtmlAddresses, AScriptIsPassedOver) {
  EXPECT_EQ(Addresses("<script>document.write('<img src=\"a\">')</script><img src=\"b\">"),
            (Texts{"b"}));
}

TEST(HtmlAddresses, TruncatedHtmlIsReadUpToItsEnd) {
  EXPECT_EQ(Addresses("<img src=\"a"), (Texts{"a"}));
  EXPECT_EQ(Addresses("<img src=a"), (Texts{"!a"}));
  for (const char* html : {"<", "<i", "<img ", "<img src", "<img src=", "<img src=\"", "<style",
                           "<style>url(", "<p style=\"url(", "<script>"}) {
    EXPECT_EQ(Addresses(html), Texts{}) << html;
  }
}

TEST(HtmlAddresses, ReferencesAreUndone) {
  EXPECT_EQ(WithoutReferences(" a&amp;b&#65;&#x42;&lt;&quot;&apos;\r\n"), "a&bAB<\"'");
  EXPECT_EQ(WithoutReferences("a&b&nosuch;&#;&#xZ;&#99999999;&"),
            "a&b&nosuch;&#;&#xZ;&#99999999;&");
  EXPECT_EQ(WithoutReferences("&#232;&#x20AC;&#x1F600;&#xD800;"),
            "\xC3\xA8\xE2\x82\xAC\xF0\x9F\x98\x80&#xD800;");
}

TEST(HtmlAddresses, PercentSignsAreUndone) {
  EXPECT_EQ(WithoutPercentSigns("a%20b%C3%A8%zz%4"), "a b\xC3\xA8%zz%4");
}

TEST(HtmlAddresses, HostileHtmlTakesLinearTime) {
  constexpr size_t kBytes = 4'000'000;
  for (const char* piece : {"<img src=\"", "<", "<a ", "<style>", "<style>url(", "<p style=\"url(",
                            "<script>", "<a b='", "&", "<a href=&amp", "<a =", "=\"'"}) {
    const std::string html = test::Repeated(piece, kBytes);
    EXPECT_LT(test::SecondsOf([&] { FindHtmlAddresses(html); }), test::kGenerousSeconds) << piece;
    EXPECT_LT(test::SecondsOf([&] { WithoutReferences(html); }), test::kGenerousSeconds) << piece;
  }
}

}  // namespace
}  // namespace korvane
