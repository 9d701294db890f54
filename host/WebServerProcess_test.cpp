// zolhost's web server through HTTP: a real client against a zolhost process on a copy
// of the examples, every port a free one, every wait bounded.
#include <gtest/gtest.h>
#include <httplib.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/PageReassembler.h"
#include "testing/TempDir.h"
#include "testing/WebInstallation.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string Head(const std::string& page) {
  const auto end = page.find("</HEAD>");
  return end == std::string::npos ? std::string() : page.substr(0, end);
}

bool Framed(const std::string& page) { return page.find("class='FrameMenu'") != std::string::npos; }

}  // namespace

TEST(ZolhostWeb, MainPageIsFramedWithItsMenuAndTheNoteOnSettings) {
  WebInstallation site;
  ASSERT_TRUE(site.Started());
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
  ASSERT_TRUE(site.Started());
  const auto idsBefore = site.MainPagePortIDs();
  ASSERT_EQ(idsBefore.size(), 1u);

  const auto added = site.PostForm("/zol/_server/index.html", site.WithToken("porttype=2"));
  ASSERT_TRUE(added);
  EXPECT_EQ(added->status, 301);
  EXPECT_EQ(added->get_header_value("location"), "index.html");
  EXPECT_EQ(added->body, "redirect");

  const auto idsAfter = site.MainPagePortIDs();
  ASSERT_EQ(idsAfter.size(), 2u);
  std::string newID;
  for (const std::string& id : idsAfter) {
    if (std::find(idsBefore.begin(), idsBefore.end(), id) == idsBefore.end()) newID = id;
  }
  ASSERT_FALSE(newID.empty());

  const auto deleted = site.PostForm("/zol/_server/deleteport.html?ID=" + newID, site.WithToken("ID=" + newID));
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->status, 301);
  EXPECT_EQ(deleted->get_header_value("location"), "index.html");
  EXPECT_EQ(site.MainPagePortIDs(), idsBefore);
}

TEST(ZolhostWeb, ContentPageComesUnframedOnAskAndFramedWithAPrintLink) {
  WebInstallation site;
  ASSERT_TRUE(site.Started());
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
  ASSERT_TRUE(site.Started());
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
  ASSERT_TRUE(site.Started());
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
  EXPECT_EQ(site.MainPagePortIDs().size(), 1u);
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
  ASSERT_TRUE(site.Started());
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
  ASSERT_TRUE(site.Started());
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
  const auto status = RunToEnd(kZolhostProgram, {"--appdir", kExampleFolder, "--web", "0.0.0.0:" + std::to_string(port)},
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
    const auto status = RunToEnd(kZolhostProgram, arguments, logs.Path(), 10, nullptr, &err);
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
  ChildProcess host(kZolhostProgram, {"--appdir", appdir.Path(), "--no-web", "--verbose"}, logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 20)) << host.Stderr();
  EXPECT_EQ(host.Stderr().find("administration pages at"), std::string::npos);
  EXPECT_EQ(host.Stderr().find("module of class 2"), std::string::npos) << host.Stderr();
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}

TEST(ZolhostWeb, HelpNamesTheWebOptions) {
  TempDir logs;
  std::string out;
  const auto status = RunToEnd(kZolhostProgram, {"--help"}, logs.Path(), 10, &out);
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
  ASSERT_TRUE(site.Started());
  auto client = site.Client();
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
    const auto answer = request.Post ? site.PostForm(request.Path, site.WithToken(request.Body)) : client.Get(request.Path);
    const std::string what = (request.Post ? "POST " : "GET ") + request.Path.substr(0, 80) + " " + request.Body;
    ASSERT_TRUE(answer) << what << ": " << httplib::to_string(answer.error());
    EXPECT_GE(answer->status, 200) << what;
    EXPECT_LT(answer->status, 500) << what << "\n" << answer->body;
  }
  EXPECT_TRUE(site.Host->Running());
  EXPECT_EQ(site.Log().find("exception"), std::string::npos) << site.Log();
  const std::string settings = ReadWholeFile(site.AppDir.File("Config/ZOLServer.ini"));
  EXPECT_EQ(settings.find("\nx"), std::string::npos);
  const auto page = site.MainPage();
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
}

TEST(ZolhostWeb, TheFaviconIsServedAndTheFrameLinksItWithItsCharset) {
  WebInstallation site;
  ASSERT_TRUE(site.Started());
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

TEST(ZolhostWeb, VerboseLogsEveryRequestWithItsStatus) {
  WebInstallation site({"--verbose"});
  ASSERT_TRUE(site.Started());
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
  ASSERT_TRUE(site.Started());
  const std::string headers = "POST /zol/_server/index.html HTTP/1.1\r\n" + site.HostLine() + "Origin: " + site.Origin() +
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
  const auto taken = site.PostForm("/zol/_server/index.html", fits);
  ASSERT_TRUE(taken) << httplib::to_string(taken.error());
  EXPECT_EQ(taken->status, 301);
  EXPECT_EQ(site.MainPagePortIDs().size(), 2u);
}

// Many browsers at once: every request is answered, and the message thread keeps its
// timer meanwhile, so the information page of the site still goes out every second.
TEST(ZolhostWebThreadLoad, TwentyClientsOfTwoHundredRequestsAreAllAnsweredWhilePagesKeepGoingOut) {
  WebInstallation site;
  ASSERT_TRUE(site.Started());
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
