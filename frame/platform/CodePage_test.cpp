#include "frame/platform/CodePage.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// "Fabré", "Łucja", "Müller", "Muñoz", "Żak" and a name in Chinese script, in UTF-8.
const std::string kFabre = "Fabr\xC3\xA9";
const std::string kLucja = "\xC5\x81ucja";
const std::string kMuller = "M\xC3\xBCller";
const std::string kMunoz = "Mu\xC3\xB1oz";
const std::string kZak = "\xC5\xBB" "ak";
const std::string kChinese = "\xE7\x8E\x8B\xE5\xB0\x8F\xE6\x98\x8E";

}  // namespace

TEST(CodePageConversion, Utf8ToCp1252WritesTheCodePagesBytes) {
  std::size_t replaced = 99;
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kFabre, &replaced), "Fabr\xE9");
  EXPECT_EQ(replaced, 0u);
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kMuller), "M\xFCller");
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kMunoz), "Mu\xF1oz");
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", "Plain ASCII 123"), "Plain ASCII 123");
}

TEST(CodePageConversion, ACharacterTheCodePageCannotHoldBecomesAQuestionMark) {
  std::size_t replaced = 0;
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kLucja, &replaced), "?ucja");
  EXPECT_EQ(replaced, 1u);
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kZak, &replaced), "?ak");
  EXPECT_EQ(replaced, 1u);
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kChinese, &replaced), "???");
  EXPECT_EQ(replaced, 3u);
  // The conversion goes on behind the character: what follows is still converted.
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", kLucja + " " + kFabre, &replaced), "?ucja Fabr\xE9");
  EXPECT_EQ(replaced, 1u);
}

TEST(CodePageConversion, OtherCodePagesHoldWhatTheyHave) {
  std::size_t replaced = 99;
  // Central European Windows code page holds both Ł and é.
  EXPECT_EQ(platform::Utf8ToCodePage("CP1250", kLucja + kFabre, &replaced), "\xA3ucjaFabr\xE9");
  EXPECT_EQ(replaced, 0u);
}

TEST(CodePageConversion, Utf8KeepsEveryCharacter) {
  std::size_t replaced = 99;
  const std::string all = kFabre + kLucja + kMuller + kMunoz + kZak + kChinese;
  EXPECT_EQ(platform::Utf8ToCodePage("UTF-8", all, &replaced), all);
  EXPECT_EQ(replaced, 0u);
}

TEST(CodePageConversion, BrokenUtf8BecomesQuestionMarksWithoutSwallowingWhatFollows) {
  std::size_t replaced = 0;
  // A lead byte without its continuation, a stray continuation byte, a cut-off end.
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", "A\xC3" "B\x80" "C\xE7\x8E", &replaced), "A?B?C?");
  EXPECT_EQ(replaced, 3u);
  EXPECT_EQ(platform::Utf8ToCodePage("UTF-8", "A\xC3" "B", &replaced), "A?B");
  EXPECT_EQ(replaced, 1u);
}

TEST(CodePageConversion, AnUnknownCodePageIsWrittenAsCp1252) {
  EXPECT_EQ(platform::Utf8ToCodePage("NO-SUCH-CODE-PAGE", kFabre), "Fabr\xE9");
  EXPECT_EQ(platform::Utf8ToCodePage("", kFabre), "Fabr\xE9");
}

TEST(CodePageConversion, RoundTripThroughCp1252GivesTheSameUnits) {
  const std::string bytes = platform::Utf8ToCodePage("CP1252", kMuller);
  char16_t units[16];
  const std::size_t count = platform::CodePageToUtf16("CP1252", bytes.data(), bytes.size(), units, 16);
  ASSERT_EQ(count, 6u);
  EXPECT_EQ(units[1], u'\u00FC');
}

TEST(CodePageConversion, LongTextIsConvertedWhole) {
  std::string text;
  std::string expected;
  for (int i = 0; i < 2000; ++i) {
    text += kFabre;
    expected += "Fabr\xE9";
  }
  EXPECT_EQ(platform::Utf8ToCodePage("CP1252", text), expected);
}
