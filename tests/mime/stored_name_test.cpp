#include "mime/stored_name.h"

#include <gtest/gtest.h>

#include "frame/code_page.h"

namespace korvane {
namespace {

std::string Stored(std::string_view name) { return StoredFileName(9, 57, 2, name); }

TEST(StoredName, HoldsUserMessageAndPartBeforeTheName) {
  EXPECT_EQ(StoredFileName(9, 57, 2, "report.pdf"), "9_57_2_report.pdf");
  EXPECT_EQ(StoredFileName(9, 57, 3, "report.pdf"), "9_57_3_report.pdf");
}

TEST(StoredName, NeverHoldsASeparatorAControlCharacterOrANul) {
  EXPECT_EQ(Stored("../../etc/passwd"), "9_57_2_.._.._etc_passwd");
  EXPECT_EQ(Stored("a\\b"), "9_57_2_a_b");
  EXPECT_EQ(Stored(std::string_view("a\0b\nc\x7F", 6)), "9_57_2_a_b_c_");
}

TEST(StoredName, IsUtf8) {
  EXPECT_EQ(Stored("Citt\xE0.txt"), "9_57_2_Citt\xC3\xA0.txt");
  EXPECT_EQ(Stored("Citt\xC3\xA0.txt"), "9_57_2_Citt\xC3\xA0.txt");
}

TEST(StoredName, WhatAWebServerMightRunGetsAnUnderscoreBehindIt) {
  for (const char* extension : {"php", "PHP", "php5", "phtml", "phar", "asp", "aspx", "ashx",
                                "asmx", "jsp", "jspx", "cgi", "pl", "py", "rb", "sh", "shtml"}) {
    EXPECT_EQ(Stored(std::string("a.") + extension), std::string("9_57_2_a.") + extension + "_");
  }
}

TEST(StoredName, SuchAnExtensionInTheMiddleIsMarkedToo) {
  EXPECT_EQ(Stored("a.php.jpg"), "9_57_2_a.php_.jpg");
  EXPECT_EQ(Stored("a.php.cgi"), "9_57_2_a.php_.cgi_");
  EXPECT_EQ(Stored(".php"), "9_57_2_.php_");
}

TEST(StoredName, HarmlessNamesStayAsTheyAre) {
  for (const char* name : {"a.txt", "a.pdf", "php", "a.phpot.txt", "a.html", "a b.jpg", ""}) {
    EXPECT_EQ(Stored(name), std::string("9_57_2_") + name);
  }
}

#ifdef _WIN32
TEST(StoredName, WhatWindowsRefusesBecomesUnderscores) {
  EXPECT_EQ(Stored("a<b>c:d\"e|f?g*h.txt"), "9_57_2_a_b_c_d_e_f_g_h.txt");
  EXPECT_EQ(Stored("file.txt:stream"), "9_57_2_file.txt_stream");
}

TEST(StoredName, FullStopsAndBlanksAtTheEndWhichWindowsDropsBecomeUnderscores) {
  EXPECT_EQ(Stored("a.php."), "9_57_2_a.php__");
  EXPECT_EQ(Stored("a.txt. ."), "9_57_2_a.txt___");
  EXPECT_EQ(Stored(".."), "9_57_2___");
}

TEST(StoredName, NoNameIsThatOfADevice) {
  for (const char* name : {"CON", "nul.txt", "COM1", "aux.c"}) {
    EXPECT_EQ(Stored(name), std::string("9_57_2_") + name);
  }
}
#else
TEST(StoredName, FullStopsAtTheEndStay) {
  EXPECT_EQ(Stored("a.php."), "9_57_2_a.php_.");
  EXPECT_EQ(Stored(".."), "9_57_2_..");
}
#endif

TEST(StoredName, NeverExceeds255BytesAndKeepsItsExtension) {
  for (size_t length = 230; length < 300; ++length) {
    const std::string name = Stored(std::string(length, 'a') + ".txt");
    EXPECT_LE(name.size(), 255u);
    EXPECT_TRUE(name.starts_with("9_57_2_aaa"));
    EXPECT_TRUE(name.ends_with(".txt"));
  }
  EXPECT_EQ(Stored(std::string(244, 'a') + ".txt"), "9_57_2_" + std::string(244, 'a') + ".txt");
}

TEST(StoredName, AnExtensionThatIsTooLongIsNone) {
  const std::string name = Stored("a." + std::string(300, 'b'));
  EXPECT_EQ(name.size(), 255u);
  EXPECT_TRUE(name.starts_with("9_57_2_a.bbb"));
}

TEST(StoredName, IsNeverCutInsideACharacter) {
  for (size_t shift = 0; shift < 4; ++shift) {
    std::string name(shift, 'x');
    for (int i = 0; i < 100; ++i) name += "\xF0\x9F\x98\x80";
    const std::string stored = Stored(name + ".txt");
    EXPECT_TRUE(IsUtf8(stored));
    EXPECT_LE(stored.size(), 255u);
    EXPECT_TRUE(stored.ends_with(".txt"));
  }
}

TEST(StoredName, NoCutBringsARunnableExtensionAbout) {
  // ".ph" and what follows, cut at every place.
  for (size_t before = 200; before < 260; ++before) {
    const std::string stored =
        Stored(std::string(before, 'a') + ".phpxx" + std::string(60, 'y') + ".txt");
    EXPECT_EQ(stored.find(".php."), std::string::npos) << stored;
  }
}

}  // namespace
}  // namespace korvane
