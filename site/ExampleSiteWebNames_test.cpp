// Every page of the example site can be reached in the browser: no two of its files get
// the same web name (index.zol is sent as index.html, so no plain index.html may sit
// beside it), and a build of it reports no shared web name.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "site/ZOLServerInfo.h"
#include "site/ZOLServerSite.h"
#include "testing/LogCapture.h"
#include "testing/TempDir.h"
#include "views/RMComm.h"

TEST(ExampleSite, EveryPageHasADistinctWebName) {
  TempDir application;
  LogCapturePackage package;
  package.ApplicationDirectory = application.Path();
  InstalledPackage installed(&package);
  CRMComm comm(nullptr);
  CZOLServerSite site(1, &comm);
  site.SetParameter("name", "demo");
  site.Build(std::string(ZOL_SOURCE_DIR) + "/examples/site/", -1, 1);

  std::map<std::string, std::string> files;
  for (const auto& [number, page] : site.GetPages()) {
    if (page == static_cast<const COutputPage*>(site.GetInfoPage())) continue;
    const std::string file = page->GetPath() + page->GetFilename();
    const auto [slot, inserted] = files.try_emplace(site.WebPathOf(page), file);
    EXPECT_TRUE(inserted) << file << " and " << slot->second << " share the web name " << slot->first;
  }
  EXPECT_GE(files.size(), 15u);
  EXPECT_EQ(files.count("demo/index.html"), 1u);
  EXPECT_EQ(files["demo/index.html"], "index.zol");
  const auto lines = package.GetLines();
  EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("have the same web name") != std::string::npos;
  }));
}

TEST(ExampleSite, ABuildReportsTwoFilesThatShareAWebName) {
  TempDir folder;
  folder.Write("index.zol", "<zol version=\"1\"><p>home</p></zol>");
  folder.Write("index.html", "<p>plain</p>");
  LogCapturePackage package;
  package.ApplicationDirectory = folder.Path();
  InstalledPackage installed(&package);
  CZOLServerSite site(1, nullptr);
  site.SetParameter("name", "demo");
  site.Build(folder.Path() + "/", -1, 1);
  EXPECT_TRUE(
      package.HasLine("Site demo: index.zol and index.html have the same web name demo/index.html; the browser reaches "
                      "only the latter"));
}
