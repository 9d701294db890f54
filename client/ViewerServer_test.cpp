#include "client/ViewerServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <string>
#include <vector>

#include "frame/platform/Sockets.h"

namespace zolclient {
namespace {

using Clock = std::chrono::steady_clock;

struct HttpReply {
  int Status = 0;
  std::string Head;
  std::string Body;
};

// One request on its own connection, read until the server closes it (5 s at most).
HttpReply Fetch(std::uint16_t port, const std::string& method, const std::string& path) {
  HttpReply reply;
  const int socket = platform::TcpConnectWithin("127.0.0.1", port, 2000);
  if (socket < 0) return reply;
  const std::string request = method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
  platform::SendSome(socket, request.data(), request.size());
  std::string all;
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  char buffer[8192];
  while (Clock::now() < deadline) {
    if (!platform::WaitReadable(socket, 100000)) continue;
    const long got = platform::ReceiveSome(socket, buffer, sizeof buffer);
    if (got <= 0) break;
    all.append(buffer, static_cast<std::size_t>(got));
  }
  platform::CloseSocket(socket);
  const auto end = all.find("\r\n\r\n");
  if (all.rfind("HTTP/1.1 ", 0) != 0 || end == std::string::npos) return reply;
  reply.Status = std::stoi(all.substr(9, 3));
  reply.Head = all.substr(0, end);
  reply.Body = all.substr(end + 4);
  return reply;
}

ReceivedPage MakePage(DWORD number, const std::string& path, const std::string& name, const std::string& text,
                      BYTE low = 1) {
  ReceivedPage page;
  page.SiteNumber = 1;
  page.PageNumber = number;
  page.SequenceLow = low;
  page.Record.Path = path;
  page.Record.Name = name;
  page.Record.Data.assign(text.begin(), text.end());
  return page;
}

const std::string kResultsPage = std::string(
                                     "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                                     "<zol version=\"1\" id=\"current\" type=\"html\" refresh=\"5\">\n"
                                     "<html><head><title>Results</title></head><body><h1>Race</h1>"
                                     "<table class=\"results\"><zol_table type=\"race\">"
                                     "<zol_rh type='position'>Pos</zol_rh><zol_rh type='name'>Name</zol_rh>"
                                     "<zol_rr><tr><td><zol_rd>1</zol_rd></td><td><zol_rd>Ann</zol_rd></td></tr></zol_rr>"
                                     "</zol_table></table></body></html>\n</zol>") +
                                 '\0';

class ViewerServing : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(Server.Start("127.0.0.1", 0, error)) << error;
    ASSERT_NE(Server.Port(), 0);
  }
  CViewerPages Pages;
  CViewerServer Server{Pages};
};

TEST_F(ViewerServing, ServesTheIndexRenderedPagesAndPlainFiles) {
  Pages.OnPacket();
  Pages.OnPage(MakePage(2, "results/", "current.zol", kResultsPage));
  Pages.OnPage(MakePage(3, "", "style.css", "h1 { color: red; }"));

  const HttpReply index = Fetch(Server.Port(), "GET", "/");
  EXPECT_EQ(index.Status, 200);
  EXPECT_NE(index.Body.find("href=\"/site/1/results/current.html\""), std::string::npos) << index.Body;

  const HttpReply page = Fetch(Server.Port(), "GET", "/site/1/results/current.html");
  EXPECT_EQ(page.Status, 200);
  EXPECT_NE(page.Head.find("Content-Type: text/html; charset=utf-8"), std::string::npos) << page.Head;
  EXPECT_NE(page.Head.find("Content-Security-Policy: default-src 'self'; script-src 'self'"), std::string::npos);
  EXPECT_NE(page.Body.find("<div id=\"zol-live\">"), std::string::npos) << page.Body;
  EXPECT_NE(page.Body.find("<th class=\"position\">Pos</th>"), std::string::npos) << page.Body;
  EXPECT_NE(page.Body.find("<noscript><meta http-equiv=\"refresh\" content=\"5\"></noscript>"), std::string::npos);
  EXPECT_EQ(page.Body.find("<zol"), std::string::npos);
  EXPECT_EQ(page.Body.find('\0'), std::string::npos);

  const HttpReply live = Fetch(Server.Port(), "GET", "/site/1/results/current.html?part=live");
  EXPECT_EQ(live.Status, 200);
  EXPECT_EQ(live.Body.find("zol-status"), std::string::npos);
  EXPECT_NE(live.Body.find("<h1>Race</h1>"), std::string::npos) << live.Body;

  const HttpReply style = Fetch(Server.Port(), "GET", "/site/1/style.css");
  EXPECT_EQ(style.Status, 200);
  EXPECT_NE(style.Head.find("Content-Type: text/css"), std::string::npos);
  EXPECT_EQ(style.Body, "h1 { color: red; }");

  EXPECT_EQ(Fetch(Server.Port(), "GET", "/_viewer/live.js").Status, 200);
  EXPECT_EQ(Fetch(Server.Port(), "GET", "/site/1/missing.html").Status, 404);
  EXPECT_EQ(Fetch(Server.Port(), "GET", "/site/9/results/current.html").Status, 404);
  EXPECT_EQ(Fetch(Server.Port(), "GET", "/elsewhere").Status, 404);
  const HttpReply posted = Fetch(Server.Port(), "POST", "/site/1/results/current.html");
  EXPECT_EQ(posted.Status, 405);
  EXPECT_NE(posted.Head.find("Allow: GET, HEAD"), std::string::npos);
}

TEST_F(ViewerServing, APageIsRenderedAgainWhenAnIncludedPageChanges) {
  const std::string index = std::string("<zol version=\"1\" type=\"html\"><html><body><zol_include pageid='9'/></body>"
                                        "</html></zol>") +
                            '\0';
  Pages.OnPage(MakePage(2, "", "index.zol", index));
  Pages.OnPage(MakePage(9, "pages/", "header.zol", std::string("<zol version=\"1\"><p>First</p></zol>") + '\0', 1));
  EXPECT_NE(Fetch(Server.Port(), "GET", "/site/1/index.html").Body.find("First"), std::string::npos);
  Pages.OnPage(MakePage(9, "pages/", "header.zol", std::string("<zol version=\"1\"><p>Second</p></zol>") + '\0', 2));
  const std::string body = Fetch(Server.Port(), "GET", "/site/1/index.html").Body;
  EXPECT_NE(body.find("Second"), std::string::npos) << body;
  EXPECT_EQ(body.find("First"), std::string::npos);
}

TEST_F(ViewerServing, APageThatIsNotWellFormedIsServedAsEscapedTextWithANote) {
  const std::string broken =
      std::string("<zol version=\"1\"><html><body><h1>Race<script>alert(1)</script></body></zol>") + '\0';
  Pages.OnPage(MakePage(2, "results/", "broken.zol", broken));
  const HttpReply page = Fetch(Server.Port(), "GET", "/site/1/results/broken.html");
  EXPECT_EQ(page.Status, 200);
  EXPECT_NE(page.Body.find("<p class=\"zol-note\">This page is not well-formed"), std::string::npos) << page.Body;
  EXPECT_NE(page.Body.find("&lt;h1&gt;Race&lt;script&gt;alert(1)&lt;/script&gt;"), std::string::npos) << page.Body;
  EXPECT_EQ(page.Body.find("<h1>"), std::string::npos);
  EXPECT_EQ(page.Body.find("<script>"), std::string::npos);
}

// Reads what has come on each socket until every one holds `text` or 10 s pass.
std::size_t CountHolding(const std::vector<int>& sockets, std::vector<std::string>& received, const std::string& text) {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  std::size_t holding = 0;
  while (Clock::now() < deadline) {
    holding = 0;
    for (std::size_t i = 0; i < sockets.size(); ++i) {
      char buffer[4096];
      while (platform::WaitReadable(sockets[i], 0)) {
        const long got = platform::ReceiveSome(sockets[i], buffer, sizeof buffer);
        if (got <= 0) break;
        received[i].append(buffer, static_cast<std::size_t>(got));
      }
      if (received[i].find(text) != std::string::npos) ++holding;
    }
    if (holding == sockets.size()) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return holding;
}

TEST_F(ViewerServing, TwoHundredOpenEventStreamsAllHearOfANewPageVersionAndOfTheStatus) {
  constexpr std::size_t kStreams = 200;
  std::vector<int> sockets;
  for (std::size_t i = 0; i < kStreams; ++i) {
    const int socket = platform::TcpConnectWithin("127.0.0.1", Server.Port(), 2000);
    ASSERT_GE(socket, 0);
    const std::string request = "GET /events HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: text/event-stream\r\n\r\n";
    platform::SendSome(socket, request.data(), request.size());
    sockets.push_back(socket);
  }
  std::vector<std::string> received(kStreams);
  // Every stream is open once the server answered it.
  EXPECT_EQ(CountHolding(sockets, received, "Content-Type: text/event-stream"), kStreams);

  Pages.OnPacket();
  Pages.OnPage(MakePage(2, "results/", "current.zol", kResultsPage, 7));
  EXPECT_EQ(CountHolding(sockets, received,
                         "event: page\ndata: {\"site\":1,\"page\":2,\"name\":\"results/current.html\",\"version\":\"0.7\"}"),
            kStreams);
  EXPECT_EQ(CountHolding(sockets, received, "event: status\ndata: {\"site\":1,\"text\":\"Time of day"), kStreams);
  for (int socket : sockets) platform::CloseSocket(socket);
}

TEST_F(ViewerServing, StopsWhileStreamsAreOpen) {
  const int socket = platform::TcpConnectWithin("127.0.0.1", Server.Port(), 2000);
  ASSERT_GE(socket, 0);
  const std::string request = "GET /events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  platform::SendSome(socket, request.data(), request.size());
  std::vector<std::string> received(1);
  EXPECT_EQ(CountHolding({socket}, received, "retry: 2000"), 1u);
  const auto start = Clock::now();
  Server.Stop();
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  platform::CloseSocket(socket);
}

}  // namespace
}  // namespace zolclient
