// zolhost's web server through HTTP: a real client against a zolhost process on a copy
// of the examples, every port a free one, every wait bounded.
#include <gtest/gtest.h>
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/OpenFileLimit.h"
#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/PageReassembler.h"
#include "testing/TempDir.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";

// zolhost on a copy of the examples, its TCP port and its web server on free ports.
class WebInstallation {
 public:
  explicit WebInstallation(std::vector<std::string> extra = {}) {
    PagePort = platform::FindFreeTcpPort();
    WebPort = platform::FindFreeTcpPort();
    Ready = PagePort != 0 && WebPort != 0 && PagePort != WebPort && CopyExamples(AppDir, PagePort);
    if (!Ready) return;
    std::vector<std::string> arguments = {"--appdir", AppDir.Path(), "--web", "127.0.0.1:" + std::to_string(WebPort)};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    // The test hook: zolhost writes its form token to this file (see Token()).
    ::setenv("ZOLHOST_FORM_TOKEN_FILE", Logs.File("form-token").c_str(), 1);
    Host.emplace(kHost, arguments, Logs.Path());
    ::unsetenv("ZOLHOST_FORM_TOKEN_FILE");
    Ready = Host->WaitForStderr("registered under /zol/", 20) && Host->WaitForStderr("administration pages at", 20);
  }
  ~WebInstallation() {
    if (Host && Host->Running()) {
      Host->Signal(SIGTERM);
      Host->WaitForExit(10);
    }
  }
  WebInstallation(const WebInstallation&) = delete;
  WebInstallation& operator=(const WebInstallation&) = delete;

  httplib::Client Client() const {
    httplib::Client client("127.0.0.1", WebPort);
    client.set_connection_timeout(5, 0);
    client.set_read_timeout(20, 0);
    client.set_write_timeout(20, 0);
    return client;
  }
  std::string Origin() const { return "http://127.0.0.1:" + std::to_string(WebPort); }
  httplib::Headers FormHeaders() const { return {{"Origin", Origin()}}; }
  // The anti-forgery token: from the hidden field of a form on the main page, or, while no
  // form carries it, from the file that the test hook has zolhost write.
  std::string Token() const {
    if (!CachedToken.empty()) return CachedToken;
    const auto page = Client().Get("/zol/_server/index.html");
    if (page) {
      const std::regex field("name='formtoken' value='([0-9a-f]+)'");
      std::smatch found;
      if (std::regex_search(page->body, found, field)) return CachedToken = found[1];
    }
    std::string token = ReadWholeFile(Logs.File("form-token"));
    while (!token.empty() && (token.back() == '\n' || token.back() == '\r')) token.pop_back();
    return CachedToken = token;
  }
  // A form body with the token added.
  std::string WithToken(const std::string& body) const {
    return body + (body.empty() ? "" : "&") + "formtoken=" + Token();
  }
  pid_t Pid() const { return Host ? Host->ProcessId() : -1; }
  std::string Log() const { return Host ? Host->Stderr() : std::string(); }

  TempDir AppDir;
  TempDir Logs;
  std::uint16_t PagePort = 0;
  std::uint16_t WebPort = 0;
  bool Ready = false;
  std::optional<ChildProcess> Host;
  mutable std::string CachedToken;
};

// The IDs of the ports the main page offers to delete: a link "deleteport.html?ID=n", or a
// small form to deleteport.html with a hidden field ID.
std::vector<std::string> PortIDs(const std::string& page) {
  std::vector<std::string> ids;
  const std::regex link(
      "deleteport\\.html\\?ID=([0-9]+)|deleteport\\.html['\"][^>]*>(?:<INPUT[^>]*>)*?<INPUT[^>]*name=['\"]ID['\"][^>]*value=['\"]([0-9]+)",
      std::regex::icase);
  for (std::sregex_iterator it(page.begin(), page.end(), link), end; it != end; ++it) {
    ids.push_back((*it)[1].matched ? (*it)[1].str() : (*it)[2].str());
  }
  return ids;
}

std::string Head(const std::string& page) {
  const auto end = page.find("</HEAD>");
  return end == std::string::npos ? std::string() : page.substr(0, end);
}

bool Framed(const std::string& page) { return page.find("class='FrameMenu'") != std::string::npos; }

}  // namespace

TEST(ZolhostWeb, MainPageIsFramedWithItsMenuAndTheNoteOnSettings) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const auto page = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(page) << httplib::to_string(page.error());
  EXPECT_EQ(page->status, 200);
  EXPECT_NE(page->get_header_value("Content-Type").find("text/html"), std::string::npos);
  const std::string& body = page->body;
  EXPECT_TRUE(Framed(body)) << body;
  EXPECT_NE(body.find("<H1>Welcome to the ZOL server (version 1.0)</H1>"), std::string::npos);
  // The menu from the registration: the module's title to its home page, the site's content page.
  EXPECT_NE(body.find("<A HREF='/zol/_server/index.html'>ZOL Server</A>"), std::string::npos) << body;
  EXPECT_NE(body.find("<A HREF='/zol/demo/content.html'>"), std::string::npos) << body;
  EXPECT_NE(body.find("<LINK rel='stylesheet' type='text/css' href='/includes/frame.css'>"), std::string::npos);
  EXPECT_NE(body.find("last until the server stops"), std::string::npos);
  EXPECT_NE(body.find("Config/ZOLServer.ini"), std::string::npos);
  // The main page asks for no print link.
  EXPECT_EQ(body.find("PrinterFriendly"), std::string::npos);

  const auto sheet = client.Get("/includes/frame.css");
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet->status, 200);
  EXPECT_NE(sheet->body.find(".TableHeader"), std::string::npos);
  EXPECT_NE(sheet->body.find(".TableSubHeader"), std::string::npos);
  const auto script = client.Get("/includes/textarea.js");
  ASSERT_TRUE(script);
  EXPECT_EQ(script->status, 200);
  EXPECT_NE(script->body.find("function onKeyDown(area, event)"), std::string::npos);
  const auto folder = client.Get("/images/folder.gif");
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->status, 200);
  EXPECT_EQ(folder->get_header_value("Content-Type"), "image/gif");
  EXPECT_EQ(folder->body.rfind("GIF89a", 0), 0u);

  // The prefix alone and the root lead to the home page.
  for (const char* path : {"/zol/", "/zol", "/"}) {
    const auto redirect = client.Get(path);
    ASSERT_TRUE(redirect) << path;
    EXPECT_EQ(redirect->status, 302) << path;
    EXPECT_EQ(redirect->get_header_value("Location"), "/zol/_server/index.html") << path;
  }
}

TEST(ZolhostWeb, AddPortAnswers301WithLocationAndTheDeleteFormTakesItAway) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const auto before = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(before);
  const auto idsBefore = PortIDs(before->body);
  ASSERT_EQ(idsBefore.size(), 1u) << before->body;

  const auto added = client.Post("/zol/_server/index.html", site.FormHeaders(), site.WithToken("porttype=2"),
                                 "application/x-www-form-urlencoded");
  ASSERT_TRUE(added);
  EXPECT_EQ(added->status, 301);
  EXPECT_EQ(added->get_header_value("location"), "index.html");
  EXPECT_EQ(added->body, "redirect");

  const auto after = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(after);
  const auto idsAfter = PortIDs(after->body);
  ASSERT_EQ(idsAfter.size(), 2u) << after->body;
  std::string newID;
  for (const std::string& id : idsAfter) {
    if (std::find(idsBefore.begin(), idsBefore.end(), id) == idsBefore.end()) newID = id;
  }
  ASSERT_FALSE(newID.empty());

  const auto deleted = client.Post("/zol/_server/deleteport.html?ID=" + newID, site.FormHeaders(),
                                   site.WithToken("ID=" + newID), "application/x-www-form-urlencoded");
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->status, 301);
  EXPECT_EQ(deleted->get_header_value("location"), "index.html");
  const auto last = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(last);
  EXPECT_EQ(PortIDs(last->body), idsBefore);
}

TEST(ZolhostWeb, ContentPageComesUnframedOnAskAndFramedWithAPrintLink) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const auto bare = client.Get("/zol/demo/content.html?frame=no");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->status, 200);
  EXPECT_FALSE(Framed(bare->body)) << bare->body;
  EXPECT_EQ(bare->body.find("<HTML>"), std::string::npos);
  EXPECT_NE(bare->body.find("reloadform"), std::string::npos) << bare->body;

  const auto framed = client.Get("/zol/demo/content.html");
  ASSERT_TRUE(framed);
  EXPECT_EQ(framed->status, 200);
  EXPECT_TRUE(Framed(framed->body));
  EXPECT_NE(framed->body.find("<A HREF='/zol/demo/content.html?PrinterFriendly=yes' target='_blank'>Print</A>"),
            std::string::npos)
      << framed->body;
  // The version to print has neither the menu nor a print link.
  const auto print = client.Get("/zol/demo/content.html?PrinterFriendly=yes");
  ASSERT_TRUE(print);
  EXPECT_EQ(print->status, 200);
  EXPECT_FALSE(Framed(print->body));
  EXPECT_EQ(print->body.find(">Print</A>"), std::string::npos);
  EXPECT_NE(print->body.find("reloadform"), std::string::npos);
}

TEST(ZolhostWeb, FilesComeFromTheHtmlTreeAndAMissingOneIs404Unframed) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const auto index = client.Get("/zol/index.html");
  ASSERT_TRUE(index);
  EXPECT_EQ(index->status, 200);
  EXPECT_EQ(index->body, ReadWholeFile(site.AppDir.File("HTML/zol/index.html")));
  const auto sheet = client.Get("/zol/style.css");
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet->status, 200);
  EXPECT_EQ(sheet->get_header_value("Content-Type"), "text/css");

  const auto missing = client.Get("/zol/no/such/file.html");
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->status, 404);
  EXPECT_EQ(missing->body, "404: Page not found.");
  EXPECT_FALSE(Framed(missing->body));
  // A prefix no module registered.
  const auto other = client.Get("/other/index.html");
  ASSERT_TRUE(other);
  EXPECT_EQ(other->status, 404);
}

TEST(ZolhostWeb, AFormFromAnotherSiteIs403AndChangesNothing) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const std::vector<httplib::Headers> foreign = {
      {{"Origin", "http://attacker.example"}},
      {{"Origin", "http://127.0.0.1:" + std::to_string(site.WebPort + 1)}},
      {{"Origin", "null"}},
      {{"Referer", "http://attacker.example/page.html"}},
      {{"Origin", "http://attacker.example"}, {"Referer", site.Origin() + "/zol/_server/index.html"}}};
  for (const auto& headers : foreign) {
    const auto refused =
        client.Post("/zol/_server/index.html", headers, site.WithToken("porttype=2"), "application/x-www-form-urlencoded");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 403) << headers.begin()->second;
  }
  const auto page = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(page);
  EXPECT_EQ(PortIDs(page->body).size(), 1u);
  // The server's own origin, by Origin or by Referer, is let through.
  const auto own = client.Post("/zol/_server/index.html", {{"Referer", site.Origin() + "/zol/_server/index.html"}},
                               site.WithToken("porttype=2"), "application/x-www-form-urlencoded");
  ASSERT_TRUE(own);
  EXPECT_EQ(own->status, 301);
  // A name that is not this machine's loopback is refused even for reading.
  const auto rebound = client.Get("/zol/_server/index.html", {{"Host", "attacker.example:" + std::to_string(site.WebPort)}});
  ASSERT_TRUE(rebound);
  EXPECT_EQ(rebound->status, 403);
}

TEST(ZolhostWeb, PathsLeavingTheFolderAreRefusedPlainOrPercentEncoded) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const std::string settings = ReadWholeFile(site.AppDir.File("Config/ZOLServer.ini"));
  ASSERT_FALSE(settings.empty());
  for (const char* path : {"/zol/../Config/ZOLServer.ini", "/zol/%2e%2e/Config/ZOLServer.ini",
                           "/zol/%2E%2E%2FConfig%2FZOLServer.ini", "/zol/..%5cConfig%5cZOLServer.ini",
                           "/zol/demo/../../Config/ZOLServer.ini", "/zol/.%2e/Config/ZOLServer.ini"}) {
    const auto refused = client.Get(path);
    ASSERT_TRUE(refused) << path;
    EXPECT_EQ(refused->status, 400) << path;
    EXPECT_EQ(refused->body.find("packetsize"), std::string::npos) << path;
  }
}

TEST(ZolhostWeb, BasicAuthenticationAsksWithoutAndAnswersWith) {
  TempDir secrets;
  const std::string file = secrets.Write("web-password", "staff:s3cret pass\n");
  WebInstallation site({"--web-password-file", file});
  ASSERT_TRUE(site.Ready) << site.Log();
  EXPECT_NE(site.Log().find("(with a password)"), std::string::npos);
  auto client = site.Client();
  const auto asked = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->status, 401);
  EXPECT_NE(asked->get_header_value("WWW-Authenticate").find("Basic"), std::string::npos);
  EXPECT_EQ(asked->body.find("Welcome"), std::string::npos);
  // Neither the frame's own files.
  const auto sheet = client.Get("/includes/frame.css");
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet->status, 401);

  client.set_basic_auth("staff", "wrong");
  const auto wrong = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(wrong);
  EXPECT_EQ(wrong->status, 401);

  client.set_basic_auth("staff", "s3cret pass");
  const auto answered = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(answered);
  EXPECT_EQ(answered->status, 200);
  EXPECT_NE(answered->body.find("Welcome"), std::string::npos);
}

TEST(ZolhostWeb, ANetworkAddressWithoutAPasswordFileIsRefusedWithExitTwo) {
  TempDir logs;
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  std::string err;
  const auto status = RunToEnd(kHost, {"--appdir", kExampleFolder, "--web", "0.0.0.0:" + std::to_string(port)},
                               logs.Path(), 10, nullptr, &err);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 2);
  EXPECT_NE(err.find("--web-password-file"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

TEST(ZolhostWeb, BadWebOptionsAndAPortTakenOnAskAreOneLineAndExitTwo) {
  TempDir logs;
  const std::string empty = logs.Write("empty-password", "no colon here\n");
  const std::uint16_t free = platform::FindFreeTcpPort();
  ASSERT_NE(free, 0);
  // A port that is in use: a listening socket of this test.
  const int taken = platform::OpenTcpSocket();
  ASSERT_GE(taken, 0);
  ASSERT_TRUE(platform::BindAddress(taken, "127.0.0.1", 0));
  ASSERT_TRUE(platform::Listen(taken, 1));
  const std::uint16_t takenPort = platform::LocalPort(taken);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--web", "localhost:8080"}, "bad --web"},
      {{"--web", "127.0.0.1:0"}, "bad --web"},
      {{"--web"}, "needs a value"},
      {{"--web", "127.0.0.1:" + std::to_string(free), "--web-password-file", logs.File("absent")},
       "cannot read web password file"},
      {{"--web", "127.0.0.1:" + std::to_string(free), "--web-password-file", empty}, "user:password"},
      {{"--web", "127.0.0.1:" + std::to_string(takenPort)}, "cannot listen on 127.0.0.1:" + std::to_string(takenPort)}};
  for (const auto& [options, expected] : cases) {
    std::vector<std::string> arguments = {"--appdir", kExampleFolder};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::string err;
    const auto status = RunToEnd(kHost, arguments, logs.Path(), 10, nullptr, &err);
    ASSERT_TRUE(status.has_value()) << expected;
    EXPECT_EQ(*status, 2) << expected;
    EXPECT_NE(err.find(expected), std::string::npos) << err;
    // The module's own lines may stand before the last; the reason is one line.
    EXPECT_EQ(err.substr(err.rfind('\n', err.size() - 2) + 1).rfind("zolhost: ", 0), 0u) << err;
  }
  platform::CloseSocket(taken);
}

TEST(ZolhostWeb, NoWebMeansNoListener) {
  TempDir logs;
  const std::uint16_t page = platform::FindFreeTcpPort();
  TempDir appdir;
  ASSERT_TRUE(CopyExamples(appdir, page));
  ChildProcess host(kHost, {"--appdir", appdir.Path(), "--no-web", "--verbose"}, logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 20)) << host.Stderr();
  EXPECT_EQ(host.Stderr().find("administration pages at"), std::string::npos);
  EXPECT_EQ(host.Stderr().find("module of class 2"), std::string::npos) << host.Stderr();
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}

TEST(ZolhostWeb, HelpNamesTheWebOptions) {
  TempDir logs;
  std::string out;
  const auto status = RunToEnd(kHost, {"--help"}, logs.Path(), 10, &out);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0);
  for (const char* option : {"--web ADDR:PORT", "--no-web", "--web-password-file FILE", "127.0.0.1:8080",
                             "--web-cert FILE", "--web-key FILE"}) {
    EXPECT_NE(out.find(option), std::string::npos) << option;
  }
}

// Requests no form sends: each gets a clean client error or the page's own answer, never a
// failure of the server, and the server answers normally afterwards.
TEST(ZolhostWeb, MalformedRequestsGetACleanAnswer) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const std::string form = "application/x-www-form-urlencoded";
  struct Case {
    bool Post;
    std::string Path;
    std::string Body;
  };
  const std::vector<Case> cases = {
      {false, "/zol/_server/deleteport.html?ID=%zz", ""},
      {false, "/zol/_server/deleteport.html?ID=%", ""},
      {false, "/zol/_server/deleteport.html?ID=%4", ""},
      {false, "/zol/_server/deleteport.html?ID=-1", ""},
      {false, "/zol/_server/deleteport.html?ID=abc", ""},
      {false, "/zol/_server/deleteport.html?ID=99999999999999999999", ""},
      {false, "/zol/_server/deleteport.html?&&==&ID", ""},
      {false, "/zol/demo/content.html?path=%zz%", ""},
      {false, "/zol/demo/removeport.html?ID=%ff%fe", ""},
      {false, "/zol/demo/editcontent.html?path=&file=", ""},
      {false, "/zol/demo/editcontent.html?path=%2e%2e&file=..%2fConfig%2fZOLServer.ini", ""},
      {false, "/zol/%zz/index.html", ""},
      {false, "/zol/abc%00def", ""},
      {false, "/zol/_server/index.html?" + std::string(20000, 'q'), ""},
      {false, "/zol/_server/index.html?x=" + std::string(7000, '%'), ""},
      {true, "/zol/_server/index.html", ""},
      {true, "/zol/_server/index.html", "&&&"},
      {true, "/zol/_server/index.html", "portid=abc&tcpipport=51001&portactive=on"},
      {true, "/zol/_server/index.html", "portid=-1&tcpipport=51001&portactive=on"},
      {true, "/zol/_server/index.html", "portid=1&tcpipport=%zz&portactive=on"},
      {true, "/zol/_server/index.html", "porttype=%"},
      {true, "/zol/_server/index.html", "porttype=99"},
      {true, "/zol/demo/settings.html", ""},
      {true, "/zol/demo/settings.html", "name=%&root=%zz&event=x"},
      {true, "/zol/demo/editcontent.html", "path=..&file=..%2f..%2fConfig%2fZOLServer.ini&content=x"},
      {true, "/zol/demo/content.html", "portid=%%%"},
      {true, "/zol/no/such/page.html", "a=b"},
  };
  for (const Case& request : cases) {
    const auto answer = request.Post ? client.Post(request.Path, site.FormHeaders(), site.WithToken(request.Body), form)
                                     : client.Get(request.Path);
    const std::string what = (request.Post ? "POST " : "GET ") + request.Path.substr(0, 80) + " " + request.Body;
    ASSERT_TRUE(answer) << what << ": " << httplib::to_string(answer.error());
    EXPECT_GE(answer->status, 200) << what;
    EXPECT_LT(answer->status, 500) << what << "\n" << answer->body;
  }
  EXPECT_TRUE(site.Host->Running());
  EXPECT_EQ(site.Log().find("exception"), std::string::npos) << site.Log();
  const std::string settings = ReadWholeFile(site.AppDir.File("Config/ZOLServer.ini"));
  EXPECT_EQ(settings.find("\nx"), std::string::npos);
  const auto page = site.Client().Get("/zol/_server/index.html");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
}

// Many browsers at once: every request is answered, and the message thread keeps its
// timer meanwhile, so the information page of the site still goes out every second.
TEST(ZolhostWebThreadLoad, TwentyClientsOfTwoHundredRequestsAreAllAnsweredWhilePagesKeepGoingOut) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  constexpr int kClients = 20;
  constexpr int kRequests = 200;
  std::atomic<int> answered{0};
  std::atomic<int> wrong{0};
  std::atomic<int> running{kClients};
  std::vector<std::thread> clients;
  const auto started = Clock::now();
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([&, c] {
      auto client = site.Client();
      for (int i = 0; i < kRequests; ++i) {
        // Mostly the main page; some content pages and some of the frame's files.
        const std::string path = i % 10 == 3 ? "/zol/demo/content.html?frame=no"
                                 : i % 10 == 7 ? "/includes/frame.css"
                                               : "/zol/_server/index.html";
        const auto answer = client.Get(path);
        if (answer && answer->status == 200) {
          answered.fetch_add(1);
        } else {
          wrong.fetch_add(1);
        }
        (void)c;
      }
      running.fetch_sub(1);
    });
  }
  // Meanwhile a client of the module's TCP port counts the information pages.
  CTestReassembler reassembler{128};
  int socket = -1;
  const auto deadline = Clock::now() + std::chrono::seconds(120);
  while (running.load() > 0 && Clock::now() < deadline) {
    if (socket < 0) {
      socket = platform::TcpConnect("127.0.0.1", site.PagePort);
      if (socket < 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        continue;
      }
    }
    if (!platform::WaitReadable(socket, 50000)) continue;
    BYTE chunk[16384];
    const long got = platform::ReceiveSome(socket, chunk, sizeof chunk);
    if (got <= 0) {
      platform::CloseSocket(socket);
      socket = -1;
      continue;
    }
    reassembler.FeedStream(chunk, static_cast<std::size_t>(got));
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
  for (std::thread& client : clients) client.join();
  platform::CloseSocket(socket);
  ASSERT_LT(seconds, 120.0) << "the clients did not finish in time";
  EXPECT_EQ(answered.load(), kClients * kRequests);
  EXPECT_EQ(wrong.load(), 0);
  // The information page is page 0 of its site; its versions differ each second.
  std::set<std::pair<int, int>> infoVersions;
  for (const ReceivedPage& page : reassembler.Completed) {
    if (((page.PageIdentity >> 21) & 0x1FF) == 0) infoVersions.insert({page.SequenceHigh, page.SequenceLow});
  }
  std::printf("%d requests in %.1f s; %zu versions of the information page meanwhile\n", answered.load(), seconds,
              infoVersions.size());
  EXPECT_GE(static_cast<double>(infoVersions.size()), seconds * 0.7 - 1) << "the timer fell behind";
  EXPECT_TRUE(site.Host->Running());
}

// ---------------------------------------------------------------------------------------
// Limits of the web server, probed with plain sockets.

namespace {

// A TCP connection to 127.0.0.1:port, from `source` (another 127.x.x.x address) when given;
// every send and receive on it waits at most `seconds`. -1 when it cannot be made.
int RawConnect(std::uint16_t port, const std::string& source = "", int seconds = 5) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  timeval limit{};
  limit.tv_sec = seconds;
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (!source.empty()) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    ::inet_pton(AF_INET, source.c_str(), &local.sin_addr);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
      ::close(fd);
      return -1;
    }
  }
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  ::inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

bool SendText(int fd, const std::string& text) {
  std::size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

struct RawAnswer {
  int Status = 0;
  std::string Head;
  std::string Body;
  // The server closed the connection (before or after a whole answer).
  bool Closed = false;
};

std::string HeaderValue(const std::string& head, const std::string& name) {
  std::string lowerHead = head;
  std::transform(lowerHead.begin(), lowerHead.end(), lowerHead.begin(), [](unsigned char c) { return std::tolower(c); });
  const auto at = lowerHead.find("\r\n" + name + ":");
  if (at == std::string::npos) return std::string();
  const auto start = at + 3 + name.size();
  const auto end = head.find("\r\n", start);
  std::string value = head.substr(start, end - start);
  while (!value.empty() && value.front() == ' ') value.erase(0, 1);
  return value;
}

// Reads one answer: the status line and headers, then the body by its Content-Length (or
// up to the close); gives up after `seconds`.
RawAnswer ReadAnswer(int fd, double seconds) {
  RawAnswer answer;
  std::string data;
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  std::size_t headEnd = std::string::npos;
  long long length = -1;
  while (Clock::now() < deadline) {
    if (headEnd != std::string::npos && length >= 0 && data.size() >= headEnd + 4 + static_cast<std::size_t>(length)) break;
    pollfd wait{fd, POLLIN, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (::poll(&wait, 1, static_cast<int>(std::max<long long>(left, 1))) <= 0) continue;
    char chunk[65536];
    const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got <= 0) {
      answer.Closed = true;
      break;
    }
    data.append(chunk, static_cast<std::size_t>(got));
    if (headEnd == std::string::npos) {
      headEnd = data.find("\r\n\r\n");
      if (headEnd != std::string::npos) {
        answer.Head = data.substr(0, headEnd + 2);
        const std::string lengthText = HeaderValue(answer.Head, "content-length");
        if (!lengthText.empty()) length = std::atoll(lengthText.c_str());
      }
    }
  }
  if (data.rfind("HTTP/1.", 0) == 0 && data.size() > 12) answer.Status = std::atoi(data.c_str() + 9);
  if (headEnd != std::string::npos) answer.Body = data.substr(headEnd + 4);
  return answer;
}

// True when the server closes the connection within `seconds` (what it still sends is read
// and dropped).
bool ClosedWithin(int fd, double seconds) {
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  while (Clock::now() < deadline) {
    pollfd wait{fd, POLLIN, 0};
    if (::poll(&wait, 1, 50) <= 0) continue;
    char chunk[65536];
    const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got <= 0) return true;
  }
  return false;
}

// Resident memory of a process in KB, from /proc/PID/status.
long ResidentKB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return -1;
}

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string HostLine(const WebInstallation& site) { return "Host: 127.0.0.1:" + std::to_string(site.WebPort) + "\r\n"; }

}  // namespace

TEST(ZolhostWebLimits, FiftyStalledConnectionsDoNotHoldUpANormalRequest) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  std::vector<int> stalled;
  for (int i = 0; i < 50; ++i) {
    const int fd = RawConnect(site.WebPort);
    ASSERT_GE(fd, 0);
    // Half a request, and then nothing.
    ASSERT_TRUE(SendText(fd, "GET /zol/_server/index.html HTTP/1.1\r\n" + HostLine(site)));
    stalled.push_back(fd);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const auto start = Clock::now();
  const auto page = site.Client().Get("/zol/_server/index.html");
  const double seconds = SecondsSince(start);
  std::printf("a normal request beside 50 stalled connections took %.3f s\n", seconds);
  ASSERT_TRUE(page) << httplib::to_string(page.error());
  EXPECT_EQ(page->status, 200);
  EXPECT_LT(seconds, 2.0);
  for (int fd : stalled) ::close(fd);
}

TEST(ZolhostWebLimits, IdleAndHalfSentConnectionsAreClosedAfterAFewSeconds) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  const int idle = RawConnect(site.WebPort);
  const int half = RawConnect(site.WebPort);
  ASSERT_GE(idle, 0);
  ASSERT_GE(half, 0);
  ASSERT_TRUE(SendText(half, "GET /zol/_server/index.html HTTP/1.1\r\n" + HostLine(site)));
  const auto start = Clock::now();
  EXPECT_TRUE(ClosedWithin(idle, 9.0));
  EXPECT_TRUE(ClosedWithin(half, 9.0 - SecondsSince(start)));
  const double seconds = SecondsSince(start);
  std::printf("idle and half-sent connections closed after %.1f s\n", seconds);
  EXPECT_LT(seconds, 9.0);
  ::close(idle);
  ::close(half);
}

TEST(ZolhostWebLimits, HeadersOver64KBAre431) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  // 32 KB of headers pass.
  std::string fits = "GET /includes/frame.css HTTP/1.1\r\n" + HostLine(site);
  for (int i = 0; i < 32; ++i) fits += "X-Fill-" + std::to_string(i) + ": " + std::string(1000, 'a') + "\r\n";
  fits += "Connection: close\r\n\r\n";
  int fd = RawConnect(site.WebPort);
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(SendText(fd, fits));
  EXPECT_EQ(ReadAnswer(fd, 5).Status, 200);
  ::close(fd);
  // 66 KB do not.
  std::string over = "GET /includes/frame.css HTTP/1.1\r\n" + HostLine(site);
  for (int i = 0; i < 66; ++i) over += "X-Fill-" + std::to_string(i) + ": " + std::string(1000, 'a') + "\r\n";
  over += "\r\n";
  fd = RawConnect(site.WebPort);
  ASSERT_GE(fd, 0);
  SendText(fd, over);
  const RawAnswer refused = ReadAnswer(fd, 5);
  EXPECT_EQ(refused.Status, 431) << refused.Head;
  EXPECT_TRUE(refused.Closed || ClosedWithin(fd, 3));
  ::close(fd);
}

TEST(ZolhostWebLimits, TwoMillionSmallHeadersAre431AndTheMemoryComesBack) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  ASSERT_TRUE(site.Client().Get("/zol/_server/index.html"));
  const long before = ResidentKB(site.Pid());
  ASSERT_GT(before, 0);
  const int fd = RawConnect(site.WebPort);
  ASSERT_GE(fd, 0);
  std::atomic<bool> stop{false};
  std::atomic<long long> sentBytes{0};
  std::thread sender([&] {
    if (!SendText(fd, "GET /zol/_server/index.html HTTP/1.1\r\n" + HostLine(site))) return;
    std::string block;
    int header = 0;
    while (header < 2000000 && !stop.load()) {
      block.clear();
      for (int i = 0; i < 4096 && header < 2000000; ++i, ++header) block += "a" + std::to_string(header) + ": b\r\n";
      if (!SendText(fd, block)) return;
      sentBytes.fetch_add(static_cast<long long>(block.size()));
    }
    if (!stop.load()) SendText(fd, "\r\n");
  });
  const auto start = Clock::now();
  const RawAnswer answer = ReadAnswer(fd, 30);
  const bool closed = answer.Closed || ClosedWithin(fd, 10);
  stop = true;
  ::shutdown(fd, SHUT_RDWR);
  sender.join();
  ::close(fd);
  std::printf("answered %d after %.2f s and %.1f MB sent\n", answer.Status, SecondsSince(start),
              static_cast<double>(sentBytes.load()) / 1e6);
  EXPECT_EQ(answer.Status, 431) << answer.Head;
  EXPECT_TRUE(closed);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const long after = ResidentKB(site.Pid());
  std::printf("zolhost resident: %ld KB before, %ld KB after\n", before, after);
  EXPECT_LT(after - before, 4 * 1024);
  // The server still answers.
  const auto page = site.Client().Get("/zol/_server/index.html");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
}

TEST(ZolhostWebLimits, APostWithoutContentLengthHasAnEmptyBodyAndIsAnsweredAtOnce) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  const int fd = RawConnect(site.WebPort, "", 15);
  ASSERT_GE(fd, 0);
  const auto start = Clock::now();
  ASSERT_TRUE(SendText(fd, "POST /zol/_server/index.html HTTP/1.1\r\n" + HostLine(site) + "Origin: " + site.Origin() +
                               "\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n"));
  const RawAnswer answer = ReadAnswer(fd, 12);
  const double seconds = SecondsSince(start);
  ::close(fd);
  std::printf("a POST without Content-Length was answered %d after %.3f s\n", answer.Status, seconds);
  // An empty body carries no form token.
  EXPECT_EQ(answer.Status, 403) << answer.Head << answer.Body;
  EXPECT_LT(seconds, 2.0);
}

TEST(ZolhostWebLimits, BadContentLengthsAreRefusedAtOnce) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  const std::string start = "POST /zol/_server/index.html HTTP/1.1\r\n" + HostLine(site) + "Origin: " + site.Origin() +
                            "\r\nContent-Type: application/x-www-form-urlencoded\r\n";
  struct Case {
    std::string Headers;
    int Status;
  };
  const std::vector<Case> cases = {
      {"Content-Length: -5\r\n", 400},
      {"Content-Length: abc\r\n", 400},
      {"Content-Length: 12x\r\n", 400},
      {"Content-Length: 2000000000\r\n", 413},
      {"Content-Length: 99999999999999999999999\r\n", 413},
      {"Content-Length: 5\r\nContent-Length: 6\r\n", 400},
      {"Content-Length: 5\r\nContent-Length: 5\r\n", 400},
      {"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n", 400},
      {"Transfer-Encoding: chunked\r\nContent-Length: 5\r\n", 400},
  };
  for (const Case& c : cases) {
    const int fd = RawConnect(site.WebPort, "", 15);
    ASSERT_GE(fd, 0);
    const auto began = Clock::now();
    // No body follows: the answer must not wait for one.
    ASSERT_TRUE(SendText(fd, start + c.Headers + "\r\n"));
    const RawAnswer answer = ReadAnswer(fd, 12);
    const double seconds = SecondsSince(began);
    ::close(fd);
    EXPECT_EQ(answer.Status, c.Status) << c.Headers << answer.Head;
    EXPECT_LT(seconds, 2.0) << c.Headers;
  }
  EXPECT_TRUE(site.Host->Running());
}

namespace {

// The soft limit on open files of this process (and the processes it starts) while it lives.
class SoftFileLimit {
 public:
  explicit SoftFileLimit(rlim_t soft) {
    ::getrlimit(RLIMIT_NOFILE, &Original);
    struct rlimit lowered = Original;
    lowered.rlim_cur = std::min(soft, Original.rlim_cur);
    ::setrlimit(RLIMIT_NOFILE, &lowered);
  }
  ~SoftFileLimit() { ::setrlimit(RLIMIT_NOFILE, &Original); }

 private:
  struct rlimit Original {};
};

// "Max open files" of a process: soft and hard, as /proc/PID/limits shows them.
std::string OpenFileLimits(pid_t pid) {
  std::ifstream limits("/proc/" + std::to_string(pid) + "/limits");
  std::string line;
  while (std::getline(limits, line)) {
    if (line.rfind("Max open files", 0) == 0) return line;
  }
  return std::string();
}

}  // namespace

TEST(ZolhostWebLimits, AThousandConnectionsAtOnceAreAllServedAndOneAddressIsLimited) {
  std::optional<WebInstallation> started;
  {
    // zolhost starts with a soft limit far below a thousand connections and raises it.
    SoftFileLimit low(512);
    started.emplace();
  }
  platform::RaiseOpenFileLimit();
  WebInstallation& site = *started;
  ASSERT_TRUE(site.Ready) << site.Log();
  struct rlimit hard {};
  ::getrlimit(RLIMIT_NOFILE, &hard);
  const std::string limits = OpenFileLimits(site.Pid());
  std::printf("zolhost: %s\n", limits.c_str());
  if (hard.rlim_max > 512 && hard.rlim_max != RLIM_INFINITY) {
    EXPECT_NE(limits.find(" " + std::to_string(hard.rlim_max) + " "), limits.rfind(" " + std::to_string(hard.rlim_max) + " "))
        << "the soft limit is the hard one: " << limits;
  }
  // 20 source addresses of 50 connections each: under the limit per address.
  constexpr int kAddresses = 20;
  constexpr int kEach = 50;
  std::vector<int> sockets;
  for (int a = 0; a < kAddresses; ++a) {
    for (int i = 0; i < kEach; ++i) {
      const int fd = RawConnect(site.WebPort, "127.0.1." + std::to_string(a + 1), 10);
      ASSERT_GE(fd, 0) << "connection " << sockets.size();
      sockets.push_back(fd);
    }
  }
  const auto start = Clock::now();
  for (std::size_t i = 0; i < sockets.size(); ++i) {
    const std::string path = i % 10 == 0 ? "/zol/_server/index.html" : "/includes/frame.css";
    ASSERT_TRUE(SendText(sockets[i], "GET " + path + " HTTP/1.1\r\n" + HostLine(site) + "\r\n"));
  }
  // All within the idle timeout: a server that held fewer at once would serve the rest
  // only after closing the first ones.
  int served = 0;
  for (int fd : sockets) {
    const double left = 4.0 - SecondsSince(start);
    if (left <= 0) break;
    if (ReadAnswer(fd, left).Status == 200) ++served;
  }
  const double seconds = SecondsSince(start);
  for (int fd : sockets) ::close(fd);
  std::printf("%d of %zu connections served in %.2f s\n", served, sockets.size(), seconds);
  EXPECT_EQ(served, kAddresses * kEach);

  // From one address only so many at once: the connections over the limit are closed
  // unanswered.
  std::vector<int> one;
  for (int i = 0; i < 70; ++i) {
    const int fd = RawConnect(site.WebPort, "127.0.2.1", 10);
    ASSERT_GE(fd, 0);
    one.push_back(fd);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  for (int fd : one) SendText(fd, "GET /includes/frame.css HTTP/1.1\r\n" + HostLine(site) + "\r\n");
  int answered = 0;
  const auto oneStart = Clock::now();
  for (int fd : one) {
    const double left = 10.0 - SecondsSince(oneStart);
    if (left > 0 && ReadAnswer(fd, left).Status == 200) ++answered;
  }
  for (int fd : one) ::close(fd);
  std::printf("%d of 70 connections from one address answered\n", answered);
  EXPECT_EQ(answered, 64);
  const auto page = site.Client().Get("/zol/_server/index.html");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
}

// ---------------------------------------------------------------------------------------
// The anti-forgery token.

TEST(ZolhostWebToken, APostWithoutTheTokenOrWithAWrongOneIs403AndChangesNothing) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const auto before = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(before);
  const auto idsBefore = PortIDs(before->body);
  ASSERT_FALSE(idsBefore.empty()) << before->body;
  const std::string token = site.Token();
  ASSERT_EQ(token.size(), 32u) << "at least 128 bits in hexadecimal";
  EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
  std::string wrong = token;
  wrong[0] = wrong[0] == 'a' ? 'b' : 'a';
  const std::string form = "application/x-www-form-urlencoded";
  for (const std::string& body : std::vector<std::string>{"porttype=2", "porttype=2&formtoken=", "porttype=2&formtoken=" + wrong,
                                  "porttype=2&formtoken=" + token.substr(0, 31), "porttype=2&formtoken=" + token + "0",
                                  "porttype=2&FormToken=" + token}) {
    const auto refused = client.Post("/zol/_server/index.html", site.FormHeaders(), body, form);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 403) << body;
  }
  // Neither in the query.
  const auto inQuery =
      client.Post("/zol/_server/index.html?formtoken=" + token, site.FormHeaders(), "porttype=2", form);
  ASSERT_TRUE(inQuery);
  EXPECT_EQ(inQuery->status, 403);
  // A delete without the token deletes nothing.
  const auto deleted = client.Post("/zol/_server/deleteport.html?ID=" + idsBefore.front(), site.FormHeaders(),
                                   "ID=" + idsBefore.front(), form);
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->status, 403);
  const auto unchanged = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(unchanged);
  EXPECT_EQ(PortIDs(unchanged->body), idsBefore);

  // With the token the same form is taken.
  const auto taken = client.Post("/zol/_server/index.html", site.FormHeaders(), "porttype=2&formtoken=" + token, form);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->status, 301);
  const auto after = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(after);
  EXPECT_EQ(PortIDs(after->body).size(), idsBefore.size() + 1);
  // Each start makes a new token.
  WebInstallation other;
  ASSERT_TRUE(other.Ready) << other.Log();
  EXPECT_NE(other.Token(), token);
}

// ---------------------------------------------------------------------------------------
// The favicon and the frame's head.

TEST(ZolhostWeb, TheFaviconIsServedAndTheFrameLinksItWithItsCharset) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  const auto icon = client.Get("/favicon.ico");
  ASSERT_TRUE(icon);
  EXPECT_EQ(icon->status, 200);
  EXPECT_EQ(icon->get_header_value("Content-Type"), "image/svg+xml");
  EXPECT_EQ(icon->body.rfind("<svg", 0), 0u) << icon->body;
  EXPECT_NE(icon->body.find("</svg>"), std::string::npos);
  const auto page = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(page);
  const std::string head = Head(page->body);
  EXPECT_NE(head.find("<meta charset='utf-8'>"), std::string::npos) << head;
  EXPECT_NE(head.find("<LINK rel='icon' type='image/svg+xml' href='/favicon.ico'>"), std::string::npos) << head;
}

// ---------------------------------------------------------------------------------------
// HTTPS.

namespace {

// A self-signed certificate and its key in `folder`; false when openssl fails.
bool MakeCertificate(const TempDir& folder, const std::string& name) {
  const auto status =
      RunToEnd("/usr/bin/openssl",
               {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
                folder.File(name + "-key.pem"), "-out", folder.File(name + "-cert.pem"), "-days", "2", "-subj",
                "/CN=localhost"},
               folder.Path(), 30);
  return status == std::optional<int>(0);
}

// curl with the given arguments; its output (the body, then a line with the status).
std::string Curl(const TempDir& logs, std::vector<std::string> arguments) {
  std::vector<std::string> all = {"-sS", "--max-time", "8", "-w", "\n%{http_code}"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::string out;
  RunToEnd("/usr/bin/curl", all, logs.Path(), 15, &out);
  return out;
}

std::string LastLine(const std::string& text) {
  const auto end = text.find_last_not_of('\n');
  if (end == std::string::npos) return std::string();
  const auto start = text.rfind('\n', end);
  return text.substr(start == std::string::npos ? 0 : start + 1, end - (start == std::string::npos ? 0 : start + 1) + 1);
}

}  // namespace

TEST(ZolhostWebTls, CertificateAndKeyServeThePagesOverHttps) {
  TempDir secrets;
  ASSERT_TRUE(MakeCertificate(secrets, "site"));
  WebInstallation site({"--web-cert", secrets.File("site-cert.pem"), "--web-key", secrets.File("site-key.pem")});
  ASSERT_TRUE(site.Ready) << site.Log();
  EXPECT_NE(site.Log().find("https://127.0.0.1:" + std::to_string(site.WebPort) + "/zol/_server/index.html"),
            std::string::npos)
      << site.Log();
  const std::string url = "https://127.0.0.1:" + std::to_string(site.WebPort);
  const std::string page = Curl(secrets, {"--insecure", url + "/zol/_server/index.html"});
  EXPECT_EQ(LastLine(page), "200") << page;
  EXPECT_NE(page.find("Welcome to the ZOL server"), std::string::npos) << page;
  // Without trusting the certificate the client refuses; plain HTTP gets no page.
  EXPECT_EQ(LastLine(Curl(secrets, {url + "/zol/_server/index.html"})), "000");
  const std::string plain = Curl(secrets, {"http://127.0.0.1:" + std::to_string(site.WebPort) + "/zol/_server/index.html"});
  EXPECT_EQ(plain.find("Welcome"), std::string::npos) << plain;
  // A form of this https origin with the token is taken; the same from http is not.
  const std::string token = ReadWholeFile(site.Logs.File("form-token"));
  ASSERT_EQ(token.size(), 32u);
  const std::string ownForm = Curl(secrets, {"--insecure", "-H", "Origin: " + url, "--data", "porttype=2&formtoken=" + token,
                                             url + "/zol/_server/index.html"});
  EXPECT_EQ(LastLine(ownForm), "301") << ownForm;
  const std::string httpOrigin =
      Curl(secrets, {"--insecure", "-H", "Origin: http://127.0.0.1:" + std::to_string(site.WebPort), "--data",
                     "porttype=2&formtoken=" + token, url + "/zol/_server/index.html"});
  EXPECT_EQ(LastLine(httpOrigin), "403") << httpOrigin;
}

TEST(ZolhostWebTls, ACertificateWithoutKeyOrAFileThatIsNoneIsOneLineAndExitTwo) {
  TempDir secrets;
  ASSERT_TRUE(MakeCertificate(secrets, "a"));
  ASSERT_TRUE(MakeCertificate(secrets, "b"));
  const std::string garbage = secrets.Write("garbage.pem", "-----BEGIN CERTIFICATE-----\nnot base64 at all\n-----END CERTIFICATE-----\n");
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  const std::string web = "127.0.0.1:" + std::to_string(port);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--web-cert", secrets.File("a-cert.pem")}, "--web-key"},
      {{"--web-key", secrets.File("a-key.pem")}, "--web-cert"},
      {{"--web-cert", secrets.File("absent.pem"), "--web-key", secrets.File("a-key.pem")}, "cannot read"},
      {{"--web-cert", secrets.File("a-cert.pem"), "--web-key", secrets.File("absent.pem")}, "cannot read"},
      {{"--web-cert", garbage, "--web-key", secrets.File("a-key.pem")}, "certificate"},
      {{"--web-cert", secrets.File("a-cert.pem"), "--web-key", garbage}, "certificate"},
      {{"--web-cert", secrets.File("a-cert.pem"), "--web-key", secrets.File("b-key.pem")}, "certificate"},
  };
  for (const auto& [options, expected] : cases) {
    std::vector<std::string> arguments = {"--appdir", kExampleFolder, "--web", web};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::string err;
    const auto status = RunToEnd(kHost, arguments, secrets.Path(), 10, nullptr, &err);
    ASSERT_TRUE(status.has_value()) << expected;
    EXPECT_EQ(*status, 2) << expected << "\n" << err;
    EXPECT_NE(err.find(expected), std::string::npos) << err;
    const std::string last = err.substr(err.rfind('\n', err.size() - 2) + 1);
    EXPECT_EQ(last.rfind("zolhost: ", 0), 0u) << err;
  }
}

TEST(ZolhostWebTls, ANetworkAddressWithoutTlsSaysThePasswordTravelsInClearText) {
  TempDir secrets;
  const std::string file = secrets.Write("web-password", "staff:s3cret\n");
  const std::uint16_t page = platform::FindFreeTcpPort();
  const std::uint16_t port = platform::FindFreeTcpPort();
  TempDir appdir;
  ASSERT_TRUE(CopyExamples(appdir, page));
  ChildProcess host(kHost, {"--appdir", appdir.Path(), "--web", "0.0.0.0:" + std::to_string(port), "--web-password-file", file},
                    secrets.Path());
  ASSERT_TRUE(host.WaitForStderr("administration pages at", 20)) << host.Stderr();
  const std::string log = host.Stderr();
  const auto at = log.find("clear text");
  ASSERT_NE(at, std::string::npos) << log;
  EXPECT_NE(log.find("--web-cert"), std::string::npos) << log;
  EXPECT_EQ(log.find("clear text", at + 1), std::string::npos) << "one line";
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}

TEST(ZolhostWeb, VerboseLogsEveryRequestWithItsStatus) {
  WebInstallation site({"--verbose"});
  ASSERT_TRUE(site.Ready) << site.Log();
  auto client = site.Client();
  ASSERT_TRUE(client.Get("/zol/_server/index.html"));
  ASSERT_TRUE(client.Get("/zol/no/such.html"));
  ASSERT_TRUE(client.Get("/includes/frame.css"));
  EXPECT_TRUE(site.Host->WaitForStderr("web: GET /zol/_server/index.html 200", 5)) << site.Log();
  EXPECT_TRUE(site.Host->WaitForStderr("web: GET /zol/no/such.html 404", 5)) << site.Log();
  EXPECT_TRUE(site.Host->WaitForStderr("web: GET /includes/frame.css 200", 5)) << site.Log();
}

// Over the cap the answer comes as soon as the headers are in, before any of the body is
// sent; a body of exactly the cap reaches the page.
TEST(ZolhostWeb, ABodyOverOneMegabyteIs413AtOnceAndOneOfOneMegabyteReachesThePage) {
  WebInstallation site;
  ASSERT_TRUE(site.Ready) << site.Log();
  const std::string headers = "POST /zol/_server/index.html HTTP/1.1\r\n" + HostLine(site) + "Origin: " + site.Origin() +
                              "\r\nContent-Type: application/x-www-form-urlencoded\r\n";
  const int fd = RawConnect(site.WebPort, "", 10);
  ASSERT_GE(fd, 0);
  const auto start = Clock::now();
  ASSERT_TRUE(SendText(fd, headers + "Content-Length: " + std::to_string(1024 * 1024 + 1) + "\r\n\r\n"));
  const RawAnswer refused = ReadAnswer(fd, 5);
  EXPECT_EQ(refused.Status, 413) << refused.Head;
  EXPECT_LT(SecondsSince(start), 2.0);
  ::close(fd);

  std::string fits = site.WithToken("porttype=2") + "&pad=";
  fits += std::string(1024 * 1024 - fits.size(), 'a');
  ASSERT_EQ(fits.size(), 1024u * 1024u);
  auto client = site.Client();
  const auto taken = client.Post("/zol/_server/index.html", site.FormHeaders(), fits, "application/x-www-form-urlencoded");
  ASSERT_TRUE(taken) << httplib::to_string(taken.error());
  EXPECT_EQ(taken->status, 301);
  const auto page = client.Get("/zol/_server/index.html");
  ASSERT_TRUE(page);
  EXPECT_EQ(PortIDs(page->body).size(), 2u);
}
