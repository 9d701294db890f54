#include "web/HTMLText.h"

#include <gtest/gtest.h>

TEST(HTMLText, ElementTextEscapesTheFiveMarkupCharacters) {
  EXPECT_EQ(HtmlText("<script>alert('x')</script> & \"q\""),
            "&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt; &amp; &quot;q&quot;");
}

TEST(HTMLText, OrdinaryValuesStayAsTheyAre) {
  EXPECT_EQ(HtmlText("Race 1 - Touring Cars"), "Race 1 - Touring Cars");
  EXPECT_EQ(HtmlAttribute("239.254.1.2"), "239.254.1.2");
  EXPECT_EQ(UrlQueryValue("css/deep"), "css%2Fdeep");
  EXPECT_EQ(UrlQueryValue("a-b_c.d~e"), "a-b_c.d~e");
}

TEST(HTMLText, AnAttributeValueCannotCloseEitherQuote) {
  const std::string hostile = "\"'><img src=x onerror=alert(1)>";
  const std::string escaped = HtmlAttribute(hostile);
  EXPECT_EQ(escaped.find_first_of("\"'<>"), std::string::npos);
}

TEST(HTMLText, TextAreaContentCannotEndTheTextArea) {
  EXPECT_EQ(HtmlTextArea("a</textarea><b>&amp;"), "a&lt;/textarea&gt;&lt;b&gt;&amp;amp;");
}

TEST(HTMLText, QueryValuesEncodeEveryReservedAndNonAsciiByte) {
  EXPECT_EQ(UrlQueryValue("a b&c=d?e#f'\""), "a%20b%26c%3Dd%3Fe%23f%27%22");
  EXPECT_EQ(UrlQueryValue("\xC3\xA9"), "%C3%A9");
}

TEST(HTMLText, ScriptStringsCannotEndTheStringOrTheElement) {
  EXPECT_EQ(ScriptString("it's </script>\\"), "it\\'s \\x3C/script\\x3E\\\\");
}
