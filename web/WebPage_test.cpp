#include "web/WebPage.h"

#include <gtest/gtest.h>

TEST(FormDecoding, PercentFortyOneDecodesToTheLetterA) { EXPECT_EQ(DecodeFormValue("%41"), "A"); }

TEST(FormDecoding, PlusBetweenTwoLettersDecodesToABlank) { EXPECT_EQ(DecodeFormValue("a+b"), "a b"); }

TEST(FormDecoding, LonePercentAtTheEndGivesAZeroByte) {
  const std::string decoded = DecodeFormValue("ab%");
  ASSERT_EQ(decoded.size(), 3u);
  EXPECT_EQ(decoded[2], '\0');
}

TEST(FormDecoding, AbsentAndEmptyFieldsReadTheSame) {
  CKVTHttpRequest request;
  request.Form["empty"] = "";
  EXPECT_EQ(request.FormGetValue("empty"), request.FormGetValue("absent"));
  EXPECT_EQ(request.AttributeGetValue("absent"), "");
}

TEST(HttpResponse, BodyOfLengthZeroClearsTheFormerBody) {
  CKVTHttpResponse response;
  response.SetBody("something");
  response.SetBody("", 0);
  EXPECT_TRUE(response.Body.empty());
}

TEST(HttpResponse, HeaderSetValueReplacesTheFormerValue) {
  CKVTHttpResponse response;
  response.HeaderSetValue("location", "a.html");
  response.HeaderSetValue("location", "b.html");
  EXPECT_EQ(response.Headers.at("location"), "b.html");
}
