#include "frame/settings_file.h"

#include <gtest/gtest.h>

#include <chrono>

namespace korvane {
namespace {

const std::string kHead = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string kKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site";
const std::string kSection = "[" + kKey + "]\r\n";

std::string Utf16(const std::string& ascii, bool big_endian = false) {
  std::string bytes = big_endian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char c : ascii) {
    if (big_endian) bytes += '\0';
    bytes += c;
    if (!big_endian) bytes += '\0';
  }
  return bytes;
}

// The text of a value, or "(none)".
std::string TextOf(const SettingsFile& settings, const std::string& name,
                   const std::string& key = kKey) {
  const auto* value = settings.Find(key, name);
  if (!value) return "(none)";
  std::string text = value->data;
  if (!text.empty() && text.back() == '\0') text.pop_back();
  return text;
}

TEST(SettingsFile, ReadsTextsAndNumbers) {
  const SettingsFile settings(kHead + kSection +
                              "\"Path\"=\"C:\\\\mail \\\"box\\\"\"\r\n\"Number\"=dword:0000001b\r\n"
                              "@=\"default\"\r\n");
  EXPECT_EQ(TextOf(settings, "Path"), "C:\\mail \"box\"");
  EXPECT_EQ(TextOf(settings, "Number"), std::string("\x1b\0\0", 3));
  EXPECT_EQ(TextOf(settings, ""), "default");
}

TEST(SettingsFile, NamesAndKeysAreComparedInAnyCase) {
  const SettingsFile settings(kHead + kSection + "\"PathMessages\"=\"x\"\r\n");
  EXPECT_EQ(TextOf(settings, "pathmessages", "hkey_local_machine\\software\\SITE"), "x");
}

TEST(SettingsFile, AKeyIsThereWhenOneBelowItIs) {
  const SettingsFile settings(kHead + "[" + kKey + "\\Below]\r\n");
  EXPECT_TRUE(settings.HasKey(kKey));
  EXPECT_TRUE(settings.HasSubKeys(kKey));
  EXPECT_FALSE(settings.HasSubKeys(kKey + "\\Below"));
  EXPECT_FALSE(settings.HasKey(kKey + "\\Bel"));
}

TEST(SettingsFile, ALaterLineWinsAndDeletionsTakeBack) {
  const SettingsFile settings(kHead + kSection + "\"A\"=\"1\"\r\n\"B\"=\"1\"\r\n\"C\"=\"1\"\r\n" +
                              "[" + kKey + "\\Below]\r\n\"D\"=\"1\"\r\n" + kSection +
                              "\"A\"=\"2\"\r\n\"B\"=-\r\n[-" + kKey + "\\Below]\r\n");
  EXPECT_EQ(TextOf(settings, "A"), "2");
  EXPECT_EQ(TextOf(settings, "B"), "(none)");
  EXPECT_EQ(TextOf(settings, "C"), "1");
  EXPECT_FALSE(settings.HasKey(kKey + "\\Below"));
}

TEST(SettingsFile, ADeletedKeyTakesItsSubkeysAlongAndMayComeBack) {
  const SettingsFile settings(kHead + kSection + "\"A\"=\"1\"\r\n[" + kKey + "\\Below]\r\n[-" +
                              kKey + "]\r\n\"Lost\"=\"1\"\r\n" + kSection + "\"B\"=\"2\"\r\n");
  EXPECT_FALSE(settings.HasSubKeys(kKey));
  EXPECT_EQ(TextOf(settings, "A"), "(none)");
  EXPECT_EQ(TextOf(settings, "B"), "2");
}

TEST(SettingsFile, Utf16WithItsMarkIsReadInBothOrders) {
  const std::string text = kHead + kSection + "\"Path\"=\"/mail\"\r\n";
  EXPECT_EQ(TextOf(SettingsFile(Utf16(text)), "Path"), "/mail");
  EXPECT_EQ(TextOf(SettingsFile(Utf16(text, true)), "Path"), "/mail");
  EXPECT_EQ(TextOf(SettingsFile("\xEF\xBB\xBF" + text), "Path"), "/mail");
}

TEST(SettingsFile, LettersBeyondAsciiAreTheSameInEveryEncoding) {
  std::string utf16 = Utf16(kHead + kSection + "\"Path\"=\"Citt");
  utf16 += std::string("\xE0\0\x3D\xD8\xE7\xDC\"\0\r\0\n\0", 12);
  EXPECT_EQ(TextOf(SettingsFile(utf16), "Path"), "Citt\xC3\xA0\xF0\x9F\x93\xA7");
  EXPECT_EQ(TextOf(SettingsFile(kHead + kSection + "\"Path\"=\"Citt\xC3\xA0\"\r\n"), "Path"),
            "Citt\xC3\xA0");
  EXPECT_EQ(
      TextOf(SettingsFile("REGEDIT4\r\n\r\n" + kSection + "\"Path\"=\"Citt\xE0\"\r\n"), "Path"),
      "Citt\xC3\xA0");
}

TEST(SettingsFile, OtherKindsOfValuesAreTakenAsTheBytesThatTheyAre) {
  const SettingsFile settings(kHead + kSection +
                              "\"Binary\"=hex:01,02,ff\r\n"
                              "\"Expand\"=hex(2):25,00,54,00,\\\r\n  4d,00,50,00,25,00,00,00\r\n"
                              "\"Many\"=hex(7):61,00,00,00,00,00\r\n"
                              "\"Wide\"=hex(b):01,00,00,00,00,00,00,00\r\n"
                              "\"Nothing\"=hex(0):\r\n"
                              "\"After\"=\"seen\"\r\n");
  EXPECT_EQ(TextOf(settings, "Binary"), "\x01\x02\xFF");
  EXPECT_EQ(TextOf(settings, "Expand"), "%TMP%");
  EXPECT_EQ(settings.Find(kKey, "Expand")->type, 2u);
  EXPECT_EQ(settings.Find(kKey, "Wide")->type, 0xBu);
  EXPECT_EQ(settings.Find(kKey, "Wide")->data.size(), 8u);
  EXPECT_TRUE(settings.Find(kKey, "Nothing")->data.empty());
  EXPECT_EQ(TextOf(settings, "After"), "seen");
}

TEST(SettingsFile, ATextMaySpanLinesAsTheEditorWritesIt) {
  const SettingsFile settings(kHead + kSection + "\"A\"=\"one\r\ntwo\"\r\n\"B\"=\"b\"\r\n");
  EXPECT_EQ(TextOf(settings, "A"), "one\r\ntwo");
  EXPECT_EQ(TextOf(settings, "B"), "b");
}

TEST(SettingsFile, CommentsBlanksAndLineEndsOfEitherKindArePassedOver) {
  const SettingsFile settings("; first\n\n  [" + kKey + "]  ; the key\n\t\"A\" = \"a;b\" ; why\n" +
                              "\"B\"=dword:00000002;\n");
  EXPECT_EQ(TextOf(settings, "A"), "a;b");
  EXPECT_EQ(TextOf(settings, "B"), std::string("\x02\0\0", 3));
}

TEST(SettingsFile, LinesThatAreNotUnderstoodAreNoSettings) {
  const SettingsFile settings(
      kHead + kSection +
      "\"A\"=\"unended\r\n\"B\"=\"b\" rest\r\nC=\"c\"\r\n\"D\"\r\n\"E\"=\r\n"
      "\"F\"=dword:\r\n\"G\"=dword:xyz\r\n\"H\"=dword:123456789\r\n"
      "\"I\"=hex(:01\r\n\"J\"=hex:01 rest\r\n[unclosed\r\n[]\r\n\"K\"=\"k\"\r\n");
  for (const char* name : {"A", "B", "C", "D", "E", "F", "G", "H", "I", "J"}) {
    EXPECT_EQ(TextOf(settings, name), "(none)") << name;
  }
  EXPECT_EQ(TextOf(settings, "K"), "k");
}

TEST(SettingsFile, ValuesBeforeAnyKeyAreNoSettings) {
  const SettingsFile settings("\"A\"=\"1\"\r\n" + kSection);
  EXPECT_EQ(TextOf(settings, "A"), "(none)");
}

TEST(SettingsFile, ACutFileNeverYieldsAShortenedValue) {
  const std::string whole =
      kHead + kSection + "\"Path\"=\"/var/lib/mail\"\r\n\"T\"=dword:00001b58\r\n";
  for (const bool wide : {false, true}) {
    const std::string bytes = wide ? Utf16(whole) : whole;
    for (size_t length = 0; length <= bytes.size(); ++length) {
      const SettingsFile settings(std::string_view(bytes).substr(0, length));
      const std::string path = TextOf(settings, "Path");
      EXPECT_TRUE(path == "(none)" || path == "/var/lib/mail") << length << " " << path;
      const std::string number = TextOf(settings, "T");
      EXPECT_TRUE(number == "(none)" || number == std::string("\x58\x1b\0", 3)) << length;
    }
  }
}

TEST(SettingsFile, EveryFileIsWrittenBackByteForByte) {
  for (const std::string& text :
       {std::string(), std::string("\0\0\xFF garbage", 11),
        kHead + "odd line\n" + kSection + "\"A\"=hex:01,\\\r\n 02\r\n; c\r\n\"B\"=\"x\ny\"\n[-x]",
        Utf16(kHead + kSection + "\"A\"=\"a\"\r\n"), Utf16("\"A\"=", true),
        std::string("\xFF\xFE\x00\xD8\x41\x00\x00\xDC", 8)}) {
    EXPECT_EQ(SettingsFile(text).Bytes(), text);
  }
}

TEST(SettingsFile, AChangeKeepsEverythingElse) {
  const std::string before =
      kHead + "; a note\r\n" + kSection +
      "\"A\"=\"1\"\r\n\"Odd\"=hex(2):61,00,00,00\r\nwhat is this\r\n\r\n[other]\r\n";
  SettingsFile settings(before);
  settings.Set(kKey, "a", SettingsFile::Text("C:\\x \"y\""));
  settings.Set(kKey, "New", SettingsFile::Number(7000));
  const std::string after = settings.Bytes();
  EXPECT_EQ(after, kHead + "; a note\r\n" + kSection +
                       "\"a\"=\"C:\\\\x \\\"y\\\"\"\r\n\"Odd\"=hex(2):61,00,00,00\r\n"
                       "\"New\"=dword:00001b58\r\nwhat is this\r\n\r\n[other]\r\n");
  EXPECT_EQ(TextOf(SettingsFile(after), "A"), "C:\\x \"y\"");
}

TEST(SettingsFile, AChangeKeepsTheEncodingAndTheLineEnds) {
  SettingsFile wide(Utf16(kHead + kSection));
  wide.Set(kKey, "A", SettingsFile::Text("Citt\xC3\xA0"));
  EXPECT_EQ(wide.Bytes().substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(TextOf(SettingsFile(wide.Bytes()), "A"), "Citt\xC3\xA0");
  SettingsFile unix_lines("Windows Registry Editor Version 5.00\n[" + kKey + "]");
  unix_lines.Set(kKey, "A", SettingsFile::Text("1"));
  EXPECT_EQ(unix_lines.Bytes(),
            "Windows Registry Editor Version 5.00\n[" + kKey + "]\n\"A\"=\"1\"\n");
}

TEST(SettingsFile, ANewFileGetsTheEditorsHead) {
  SettingsFile settings;
  settings.Set(kKey, "A", SettingsFile::Text("1"));
  EXPECT_EQ(settings.Bytes(),
            "Windows Registry Editor Version 5.00\r\n\r\n" + kSection + "\"A\"=\"1\"\r\n");
}

TEST(SettingsFile, ATextWithControlCharactersIsWrittenSoThatItReadsBack) {
  SettingsFile settings;
  settings.Set(kKey, "A", SettingsFile::Text("one\r\n[" + kKey + "]\r\n\"B\"=\"forged\"\t"));
  const SettingsFile back(settings.Bytes());
  EXPECT_EQ(TextOf(back, "A"), "one\r\n[" + kKey + "]\r\n\"B\"=\"forged\"\t");
  EXPECT_EQ(TextOf(back, "B"), "(none)");
}

TEST(SettingsFile, AValueSetAfterADeletionIsThere) {
  SettingsFile settings(kHead + kSection + "\"A\"=\"1\"\r\n[-" + kKey + "]\r\n");
  settings.Set(kKey, "A", SettingsFile::Text("2"));
  EXPECT_EQ(TextOf(settings, "A"), "2");
  EXPECT_EQ(TextOf(SettingsFile(settings.Bytes()), "A"), "2");
}

TEST(SettingsFile, DeletingTakesEveryLineThatSetsTheValue) {
  SettingsFile settings(kHead + kSection + "\"A\"=\"1\"\r\n\"B\"=\"1\"\r\n" + kSection +
                        "\"a\"=\"2\"\r\n");
  EXPECT_TRUE(settings.Delete(kKey, "A"));
  EXPECT_FALSE(settings.Delete(kKey, "A"));
  EXPECT_EQ(TextOf(SettingsFile(settings.Bytes()), "A"), "(none)");
  EXPECT_EQ(TextOf(settings, "B"), "1");
}

TEST(SettingsFile, DeletingAKeyKeepsItsParent) {
  SettingsFile settings(kHead + "[" + kKey + "\\Below]\r\n\"A\"=\"1\"\r\n[" + kKey +
                        "\\Beside]\r\n");
  settings.DeleteKey(kKey + "\\Below");
  EXPECT_FALSE(settings.HasKey(kKey + "\\Below"));
  EXPECT_TRUE(settings.HasKey(kKey + "\\Beside"));
  settings.DeleteKey(kKey + "\\Beside");
  EXPECT_TRUE(settings.HasKey(kKey));
}

TEST(SettingsFile, HostileFilesTakeLinearTime) {
  using std::chrono::steady_clock;
  const auto start = steady_clock::now();
  const std::string pieces[] = {"\"A\"=\"\n",
                                "\"A\"=\"\\\"\n",
                                "\"A\"=hex:01,\\\n",
                                "[a]\n[-a]\n",
                                "[",
                                "\"",
                                "\"A\"=hex(1):\\\n",
                                "\\"};
  for (const std::string& piece : pieces) {
    std::string text = kHead + kSection;
    while (text.size() < 1'000'000) text += piece;
    const SettingsFile settings(text);
    EXPECT_EQ(settings.Bytes(), text);
  }
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace korvane
