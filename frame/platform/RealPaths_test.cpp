// Real locations of paths (symbolic links resolved) and paths that no file-system call
// may take as they are (a NUL byte inside).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "frame/platform/DirectorySearch.h"
#include "frame/platform/FileRead.h"
#include "frame/platform/FileWrite.h"
#include "frame/platform/Paths.h"
#include "testing/TempDir.h"

namespace {

std::string WithNul(const std::string& head, const std::string& tail) { return head + std::string(1, '\0') + tail; }

}  // namespace

TEST(RealPaths, ALinkInsideTheFolderIsInsideAndALinkOutIsOutside) {
  TempDir folder;
  folder.Write("site/a.css", "a");
  folder.Write("site/sub/b.css", "b");
  folder.Write("outside/secret.css", "secret");
  const std::string site = folder.File("site");
  std::filesystem::create_symlink(folder.File("site/sub/b.css"), folder.File("site/inner.css"));
  std::filesystem::create_symlink(folder.File("outside/secret.css"), folder.File("site/out.css"));
  std::filesystem::create_symlink(folder.File("outside"), folder.File("site/outdir"));
  std::filesystem::create_symlink(folder.File("site/sub"), folder.File("site/indir"));

  EXPECT_TRUE(platform::IsInsideFolder(site, folder.File("site/a.css")));
  // The module's own separators are taken as well.
  EXPECT_TRUE(platform::IsInsideFolder(site + "\\", folder.File("site\\sub\\b.css")));
  EXPECT_TRUE(platform::IsInsideFolder(site, folder.File("site/inner.css")));
  EXPECT_TRUE(platform::IsInsideFolder(site, folder.File("site/indir")));
  EXPECT_TRUE(platform::IsInsideFolder(site, folder.File("site/indir/b.css")));
  EXPECT_FALSE(platform::IsInsideFolder(site, folder.File("site/out.css")));
  EXPECT_FALSE(platform::IsInsideFolder(site, folder.File("site/outdir")));
  EXPECT_FALSE(platform::IsInsideFolder(site, folder.File("site/outdir/secret.css")));
  EXPECT_FALSE(platform::IsInsideFolder(site, folder.File("site/../outside/secret.css")));
  // The folder itself is not inside itself; a missing file is nowhere.
  EXPECT_FALSE(platform::IsInsideFolder(site, site));
  EXPECT_FALSE(platform::IsInsideFolder(site, folder.File("site/absent.css")));
  // A folder whose name begins like the site's is not below it.
  folder.Write("site2/c.css", "c");
  EXPECT_FALSE(platform::IsInsideFolder(site, folder.File("site2/c.css")));
}

TEST(RealPaths, RealPathResolvesLinksAndFailsForADanglingOne) {
  TempDir folder;
  folder.Write("target/file.txt", "x");
  std::filesystem::create_symlink(folder.File("target"), folder.File("link"));
  std::filesystem::create_symlink(folder.File("nowhere"), folder.File("dangling"));
  std::string real;
  ASSERT_TRUE(platform::RealPath(folder.File("link/file.txt"), real));
  std::string expected;
  ASSERT_TRUE(platform::RealPath(folder.File("target/file.txt"), expected));
  EXPECT_EQ(real, expected);
  EXPECT_EQ(real.find("/link/"), std::string::npos);
  EXPECT_FALSE(platform::RealPath(folder.File("dangling"), real));
  EXPECT_FALSE(platform::RealPath("", real));
}

TEST(RealPaths, TheFileSystemRootHoldsEverything) {
  EXPECT_TRUE(platform::IsBelowRealFolder("/", "/etc"));
  EXPECT_TRUE(platform::IsBelowRealFolder("/srv/site", "/srv/site/a/b.css"));
  EXPECT_FALSE(platform::IsBelowRealFolder("/srv/site", "/srv/site"));
  EXPECT_FALSE(platform::IsBelowRealFolder("/srv/site", "/srv/sites/a.css"));
  EXPECT_FALSE(platform::IsBelowRealFolder("/srv/site", "/srv"));
}

// A NUL byte would end the path early at the system call: "style.css\0junk.zol" would
// reach style.css. Every call at the border refuses such a path instead.
TEST(RealPaths, APathWithANulByteReachesNoFile) {
  TempDir folder;
  folder.Write("site/style.css", "keep");
  folder.Write("site/sub/x.css", "x");
  const std::string cut = WithNul(folder.File("site/style.css"), "junk.zol");
  EXPECT_FALSE(platform::IsUsablePath(cut));
  EXPECT_TRUE(platform::IsUsablePath(folder.File("site/style.css")));

  std::vector<BYTE> data;
  EXPECT_FALSE(platform::ReadWholeFile(cut, data));
  EXPECT_TRUE(data.empty());
  EXPECT_FALSE(platform::OverwriteExistingFile(cut, "gone"));
  std::vector<BYTE> kept;
  ASSERT_TRUE(platform::ReadWholeFile(folder.File("site/style.css"), kept));
  EXPECT_EQ(std::string(kept.begin(), kept.end()), "keep");

  EXPECT_FALSE(platform::FileExists(cut));
  EXPECT_FALSE(platform::DirectoryExists(WithNul(folder.File("site"), "junk")));
  EXPECT_TRUE(platform::ListDirectory(WithNul(folder.File("site/sub"), "junk")).empty());
  EXPECT_FALSE(platform::IsInsideFolder(folder.File("site"), cut));
  EXPECT_FALSE(platform::IsInsideFolder(WithNul(folder.File("site"), "x"), folder.File("site/style.css")));
  std::string real;
  EXPECT_FALSE(platform::RealPath(cut, real));
}

TEST(RealPaths, LexicalPathsOfOneFolderCompareEqual) {
  EXPECT_EQ(platform::LexicalPath("/srv/site/\\"), "/srv/site");
  EXPECT_EQ(platform::LexicalPath("/srv/site\\"), "/srv/site");
  EXPECT_EQ(platform::LexicalPath("/srv//site/./x/../"), "/srv/site");
  EXPECT_EQ(platform::LexicalPath("/"), "/");
  EXPECT_NE(platform::LexicalPath("/srv/site"), platform::LexicalPath("/srv/sites"));
}
