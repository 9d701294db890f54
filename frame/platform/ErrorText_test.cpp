#include "frame/platform/ErrorText.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

TEST(ErrorText, NamesTheFailuresAnOperatorMeetsInPlainWords) {
  EXPECT_EQ(platform::ErrorText(EADDRINUSE), "address in use");
  EXPECT_EQ(platform::ErrorText(ENOENT), "no such device");
  EXPECT_EQ(platform::ErrorText(EACCES), "permission denied");
  EXPECT_EQ(platform::ErrorText(EPERM), "permission denied");
  // A rarer one gets the system's text, starting in lower case.
  const std::string other = platform::ErrorText(EMFILE);
  ASSERT_FALSE(other.empty());
  EXPECT_TRUE(std::islower(static_cast<unsigned char>(other[0]))) << other;
}

TEST(ErrorText, LastErrorIsTheNumberOfTheCallThatFailed) {
  EXPECT_LT(open("/nonexistent/zol-error-text", O_RDONLY), 0);
  EXPECT_EQ(platform::LastError(), ENOENT);
}
