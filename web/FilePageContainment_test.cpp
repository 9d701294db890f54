// The file page serves the tree HTML/zol/ of the application folder and nothing whose
// real path leaves it: a symbolic link to a file or folder outside is not found.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "testing/ModuleFixture.h"
#include "web/ServerPages.h"

namespace {

CKVTHttpResponse GetFile(const std::string& path) {
  CFilePage page(nullptr);
  CKVTHttpRequest request;
  request.Path = path;
  CKVTHttpResponse response;
  page.HandleRequest(request, response);
  return response;
}

}  // namespace

TEST(FilePageContainment, LinksOutOfTheTreeAreNotFoundAndLinksInsideAreServed) {
  PackageScope scope;
  scope.Folder.Write("HTML/zol/ok.css", "ok");
  scope.Folder.Write("HTML/zol/css/admin.css", "admin");
  scope.Folder.Write("private/secret.css", "secret");
  scope.Folder.Write("Config/ZOLServer.ini", "[ports]\ncount=0\n");
  namespace fs = std::filesystem;
  fs::create_symlink(scope.Folder.File("private/secret.css"), scope.Folder.File("HTML/zol/out.css"));
  fs::create_symlink(scope.Folder.File("private"), scope.Folder.File("HTML/zol/outdir"));
  fs::create_symlink(scope.Folder.File("Config"), scope.Folder.File("HTML/zol/config"));
  fs::create_symlink(scope.Folder.File("HTML/zol/css/admin.css"), scope.Folder.File("HTML/zol/in.css"));

  EXPECT_EQ(GetFile("ok.css").Status, 200);
  const CKVTHttpResponse inside = GetFile("in.css");
  EXPECT_EQ(inside.Status, 200);
  EXPECT_EQ(inside.BodyText(), "admin");
  for (const char* path : {"out.css", "outdir/secret.css", "config/ZOLServer.ini"}) {
    const CKVTHttpResponse response = GetFile(path);
    EXPECT_EQ(response.Status, 404) << path;
    EXPECT_EQ(response.BodyText(), "404: Page not found.") << path;
  }
}

TEST(FilePageContainment, APathWithANulByteIsNotFound) {
  PackageScope scope;
  scope.Folder.Write("HTML/zol/ok.css", "ok");
  EXPECT_EQ(GetFile(std::string("ok.css\0.png", 11)).Status, 404);
}
