#include "web/EditorText.h"

#include <gtest/gtest.h>

TEST(EditorText, Utf8TextIsWhatABrowserGivesBackUnchanged) {
  EXPECT_TRUE(IsUtf8Text("plain\ttext\r\n"));
  EXPECT_TRUE(IsUtf8Text("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8F\x81"));  // é € and a flag
  EXPECT_FALSE(IsUtf8Text(std::string("a\0b", 3)));
  EXPECT_FALSE(IsUtf8Text("\xE9t\xE9"));          // Latin-1
  EXPECT_FALSE(IsUtf8Text("\xC0\xAF"));           // an overlong "/"
  EXPECT_FALSE(IsUtf8Text("\xED\xA0\x80"));       // a UTF-16 surrogate
  EXPECT_FALSE(IsUtf8Text("\xF4\x90\x80\x80"));   // above U+10FFFF
  EXPECT_FALSE(IsUtf8Text("\xE2\x82"));           // cut short
}

TEST(EditorText, LineEndsAreCountedAndAMixedFileSavesWithItsMoreFrequentOne) {
  const LineEnds lf = CountLineEnds("a\nb\n");
  EXPECT_EQ(lf.Lf, 2U);
  EXPECT_TRUE(lf.KeptBySave());
  EXPECT_STREQ(lf.SavedAs(), "lf");
  const LineEnds crlf = CountLineEnds("a\r\nb");
  EXPECT_EQ(crlf.CrLf, 1U);
  EXPECT_TRUE(crlf.KeptBySave());
  EXPECT_STREQ(crlf.SavedAs(), "crlf");
  const LineEnds mixed = CountLineEnds("a\r\nb\r\nc\n");
  EXPECT_FALSE(mixed.KeptBySave());
  EXPECT_STREQ(mixed.SavedAs(), "crlf");
  EXPECT_FALSE(CountLineEnds("a\rb").KeptBySave());
  EXPECT_STREQ(CountLineEnds("no line end").SavedAs(), "lf");
}

TEST(EditorText, EveryKindOfLineEndBecomesTheOneAsked) {
  EXPECT_EQ(WithLineEnds("a\r\nb\rc\nd", "\n"), "a\nb\nc\nd");
  EXPECT_EQ(WithLineEnds("a\nb\r\n", "\r\n"), "a\r\nb\r\n");
  EXPECT_EQ(WithLineEnds("", "\n"), "");
}
