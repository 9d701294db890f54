#include "frame/platform/Paths.h"

#include <filesystem>
#include <gtest/gtest.h>

#include <fstream>

#include "testing/TempDir.h"

TEST(Paths, BackslashesBecomeSlashes) {
  EXPECT_EQ(platform::ToNativePath("\\Config\\ZOLServer.ini"), "/Config/ZOLServer.ini");
  EXPECT_EQ(platform::ToNativePath("plain/path"), "plain/path");
}

TEST(Paths, JoinKeepsExactlyOneSeparator) {
  EXPECT_EQ(platform::JoinPath("/opt/app", "\\Config\\ZOLServer.ini"), "/opt/app/Config/ZOLServer.ini");
  EXPECT_EQ(platform::JoinPath("/opt/app/", "\\Config"), "/opt/app/Config");
  EXPECT_EQ(platform::JoinPath("/opt/app\\", "Config"), "/opt/app/Config");
  EXPECT_EQ(platform::JoinPath("/opt/app", "Config"), "/opt/app/Config");
  EXPECT_EQ(platform::JoinPath("/opt/app//", "//Config"), "/opt/app/Config");
}

TEST(Paths, JoinWithEmptyOrRootParts) {
  EXPECT_EQ(platform::JoinPath("/", "x"), "/x");
  EXPECT_EQ(platform::JoinPath("", "x"), "x");
  EXPECT_EQ(platform::JoinPath("/opt/app", ""), "/opt/app");
  EXPECT_EQ(platform::JoinPath("relative", "sites\\a"), "relative/sites/a");
}

TEST(Paths, AbsoluteRootsBeginWithSlashOrDriveLetter) {
  EXPECT_TRUE(platform::IsAbsolutePath("/srv/site"));
  // A leading backslash is relative: it is how a root below the application directory
  // is written, since such a root is joined to that directory as it stands.
  EXPECT_FALSE(platform::IsAbsolutePath("\\srv\\site"));
  EXPECT_TRUE(platform::IsAbsolutePath("C:\\Sites\\a"));
  EXPECT_TRUE(platform::IsAbsolutePath("d:"));
  EXPECT_FALSE(platform::IsAbsolutePath("Sites\\a"));
  EXPECT_FALSE(platform::IsAbsolutePath(""));
  EXPECT_FALSE(platform::IsAbsolutePath("1:x"));
}

TEST(Paths, ExistenceChecksTakeBackslashPaths) {
  TempDir dir;
  std::filesystem::create_directories(std::filesystem::path(dir.Path()) / "sub");
  std::ofstream(dir.File("sub/file.txt")) << "x";
  const std::string base = dir.Path();
  EXPECT_TRUE(platform::DirectoryExists(base + "\\sub"));
  EXPECT_FALSE(platform::FileExists(base + "\\sub"));
  EXPECT_TRUE(platform::FileExists(base + "\\sub\\file.txt"));
  EXPECT_FALSE(platform::DirectoryExists(base + "\\sub\\file.txt"));
  EXPECT_FALSE(platform::FileExists(base + "\\nothing"));
}
