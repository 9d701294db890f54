// A site publishes nothing whose real path lies outside its root: symbolic links to a
// file or a folder outside are left out of the build (one log line each), while links
// that stay inside are published. A TCP client of the running server sees none of the
// outside bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "distribution/PacketFormat.h"
#include "distribution/TCPIPServer.h"
#include "distribution/ZOLServer.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "testing/LogCapture.h"
#include "testing/PacketSizeScope.h"
#include "testing/PageReassembler.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"

namespace {

namespace fs = std::filesystem;

const std::string kMarker = "OUTSIDE-THE-ROOT-7f3a";

// A folder "site" (the root) beside a folder "outside" whose files carry the marker. The
// root holds plain files, a template home page, and links: to a file outside, to a folder
// outside, to a template outside (reached from index.zol and as a well-known page), to a
// file inside, and one back up to the root.
struct ContainedSite {
  ContainedSite() {
    Folder.Write("outside/secret.css", "p { content: '" + kMarker + "'; }");
    Folder.Write("outside/leak.html", "<p>" + kMarker + "</p>");
    Folder.Write("outside/deep/leak.css", kMarker);
    Folder.Write("outside/evil.zol", "<zol version=\"1\"><p>" + kMarker + "</p></zol>");
    Folder.Write("site/a.css", "a { }");
    Folder.Write("site/sub/b.css", "b { }");
    Folder.Write("site/index.zol",
                 "<zol version=\"1\"><p>home</p><zol_include file=\"evil.zol\" path=\"pages/\"/></zol>");
    fs::create_directories(Folder.File("site/pages"));
    fs::create_directories(Folder.File("site/results"));
    fs::create_symlink(Folder.File("outside/secret.css"), Folder.File("site/out.css"));
    fs::create_symlink(Folder.File("outside"), Folder.File("site/outdir"));
    fs::create_symlink(Folder.File("outside/evil.zol"), Folder.File("site/pages/evil.zol"));
    fs::create_symlink(Folder.File("outside/evil.zol"), Folder.File("site/results/current.zol"));
    fs::create_symlink(Folder.File("site/sub/b.css"), Folder.File("site/in.css"));
    fs::create_symlink(Folder.File("site"), Folder.File("site/sub/up"));
  }
  std::string Root() const { return Folder.File("site") + "/"; }

  TempDir Folder;
};

bool HoldsMarker(const std::vector<BYTE>& data) {
  return std::search(data.begin(), data.end(), kMarker.begin(), kMarker.end()) != data.end();
}

std::set<std::string> PublishedFiles(const CZOLServerSite& site) {
  std::set<std::string> files;
  for (const auto& [number, page] : site.GetPages()) {
    std::string file = page->GetPath() + page->GetFilename();
    std::replace(file.begin(), file.end(), '\\', '/');
    files.insert(file);
  }
  return files;
}

bool HasLineContaining(const LogCapturePackage& package, const std::string& part) {
  const auto lines = package.GetLines();
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.find(part) != std::string::npos; });
}

}  // namespace

TEST(SiteRootContainment, LinksOutOfTheRootAreLeftOutAndLinksInsideArePublished) {
  ContainedSite layout;
  LogCapturePackage package;
  package.ApplicationDirectory = layout.Folder.Path();
  InstalledPackage installed(&package);
  CZOLServerSite site(1, nullptr);
  site.SetParameter("name", "main");
  site.Build(layout.Root(), -1, 1);

  const std::set<std::string> files = PublishedFiles(site);
  EXPECT_EQ(files.count("a.css"), 1u);
  EXPECT_EQ(files.count("in.css"), 1u) << "a link that stays inside the root is published";
  EXPECT_EQ(files.count("index.zol"), 1u);
  EXPECT_EQ(files.count("out.css"), 0u);
  EXPECT_EQ(files.count("pages/evil.zol"), 0u);
  for (const std::string& file : files) {
    EXPECT_EQ(file.find("outdir"), std::string::npos) << file;
    EXPECT_EQ(file.find("up/"), std::string::npos) << file << ": the link back up to the root is walked once only";
  }
  for (const auto& [number, page] : site.GetPages()) {
    EXPECT_FALSE(HoldsMarker(page->GetData())) << page->GetPath() << page->GetFilename();
  }
  // The well-known page whose template leads out stays empty, as if it were missing.
  EXPECT_FALSE(HoldsMarker(site.GetCurrentPage()->GetData()));
  EXPECT_TRUE(site.GetCurrentPage()->GetData().empty());

  EXPECT_TRUE(HasLineContaining(package, "Site main: out.css left out: its real path "));
  EXPECT_TRUE(HasLineContaining(package, "Site main: outdir left out: its real path "));
  EXPECT_TRUE(HasLineContaining(package, "Site main: pages/evil.zol left out"));
  EXPECT_TRUE(HasLineContaining(package, "Site main: results/current.zol left out"));
  EXPECT_TRUE(HasLineContaining(package, "Site main: folder sub/up left out: it leads back to a folder that holds it"));
  EXPECT_FALSE(HasLineContaining(package, "in.css")) << "a link inside the root is no matter for the log";
}

TEST(SiteRootContainment, ARootThatIsItselfALinkIsFine) {
  ContainedSite layout;
  fs::create_symlink(layout.Folder.File("site"), layout.Folder.File("rootlink"));
  LogCapturePackage package;
  package.ApplicationDirectory = layout.Folder.Path();
  InstalledPackage installed(&package);
  CZOLServerSite site(1, nullptr);
  site.Build(layout.Folder.File("rootlink") + "\\", -1, 1);
  const std::set<std::string> files = PublishedFiles(site);
  EXPECT_EQ(files.count("a.css"), 1u);
  EXPECT_EQ(files.count("sub/b.css"), 1u);
  EXPECT_EQ(files.count("out.css"), 0u);
}

// What an independent client of the running server's TCP port rebuilds holds every page
// of the site and none of the outside bytes.
TEST(SiteRootContainment, ATcpClientReceivesNoneOfTheOutsideBytes) {
  ContainedSite layout;
  PacketSizeScope packets(128);
  LogCapturePackage package;
  package.ApplicationDirectory = layout.Folder.Path();
  InstalledPackage installed(&package);
  const std::uint16_t tcpPort = platform::FindFreeTcpPort();
  layout.Folder.Write("Config/ZOLServer.ini",
                      "[ports]\ncount=1\nport0=2\n[port0]\nID=0\nport=" + std::to_string(tcpPort) +
                          "\n[sites]\ncount=1\nsite0=main\n[main]\nroot=" + layout.Root() + "\nports=0\n");
  CZOLServer server;
  ASSERT_EQ(server.GetSites().size(), 1u);
  CZOLServerSite& site = *server.GetSites()[0];
  auto* port = static_cast<CZOLTCPIPServer*>(server.GetPort(0));
  ASSERT_NE(port, nullptr);
  ASSERT_TRUE(WaitUntil([&] { return port->IsRunning() != 0; }, 10));
  const int client = platform::TcpConnect("127.0.0.1", tcpPort);
  ASSERT_GE(client, 0);
  ASSERT_TRUE(WaitUntil([&] { return port->GetClientCount() == 1; }, 10));

  // A fresh build hands every page to the port at the next beat.
  site.Build(site.GetRootDir(), site.GetEventId(), 1);
  site.OnTimerEvent();
  std::set<DWORD> wanted;
  for (const auto& [number, page] : site.GetPages()) wanted.insert(number);
  ASSERT_GE(wanted.size(), 4u);

  CTestReassembler receiver(128);
  std::set<DWORD> received;
  std::vector<BYTE> buffer(65536);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline && received != wanted) {
    if (!platform::WaitReadable(client, 100000)) continue;
    const long got = platform::ReceiveSome(client, buffer.data(), buffer.size());
    if (got <= 0) break;
    receiver.FeedStream(buffer.data(), static_cast<std::size_t>(got));
    for (const ReceivedPage& page : receiver.Completed) received.insert(wire::PageNumber(page.PageIdentity));
  }
  platform::CloseSocket(client);
  EXPECT_EQ(received, wanted);
  EXPECT_EQ(receiver.BadPages, 0u);
  bool sawInsideLink = false;
  for (const ReceivedPage& page : receiver.Completed) {
    EXPECT_FALSE(HoldsMarker(page.Data)) << page.Path << page.Name;
    EXPECT_NE(page.Name, "out.css");
    EXPECT_NE(page.Name, "secret.css");
    EXPECT_NE(page.Name, "leak.html");
    EXPECT_NE(page.Name, "evil.zol");
    if (page.Name == "in.css") sawInsideLink = std::string(page.Data.begin(), page.Data.end()) == "b { }";
  }
  EXPECT_TRUE(sawInsideLink) << "the client must see the pages that are inside, or the check above proves nothing";
}
