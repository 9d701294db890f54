#include "testing/WebInstallation.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <regex>

#include "frame/platform/Sockets.h"
#include "testing/ExampleInstallation.h"

namespace {

using Clock = std::chrono::steady_clock;

const char* const kMainPagePath = "/zol/_server/index.html";

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

}  // namespace

WebInstallation::WebInstallation(const std::vector<std::string>& extra) {
  PagePort = platform::FindFreeTcpPort();
  WebPort = platform::FindFreeTcpPort();
  Ready = PagePort != 0 && WebPort != 0 && PagePort != WebPort && CopyExamples(AppDir, PagePort);
  if (!Ready) return;
  std::vector<std::string> arguments = {"--appdir", AppDir.Path(), "--web", "127.0.0.1:" + std::to_string(WebPort)};
  arguments.insert(arguments.end(), extra.begin(), extra.end());
  Host.emplace(kZolhostProgram, arguments, Logs.Path());
  Ready = Host->WaitForStderr("registered under /zol/", 20) && Host->WaitForStderr("administration pages at", 20);
}

WebInstallation::~WebInstallation() {
  if (Host && Host->Running()) {
    Host->Signal(SIGTERM);
    Host->WaitForExit(10);
  }
}

::testing::AssertionResult WebInstallation::Started() const {
  if (Ready) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "zolhost with its web server did not start:\n" << Log();
}

httplib::Client WebInstallation::Client() const {
  httplib::Client client("127.0.0.1", WebPort);
  client.set_connection_timeout(5, 0);
  client.set_read_timeout(20, 0);
  client.set_write_timeout(20, 0);
  return client;
}

httplib::Result WebInstallation::MainPage() const { return Client().Get(kMainPagePath); }

std::vector<std::string> WebInstallation::MainPagePortIDs() const {
  const auto page = MainPage();
  if (!page) {
    ADD_FAILURE() << "no main page: " << httplib::to_string(page.error());
    return {};
  }
  return PortIDs(page->body);
}

httplib::Result WebInstallation::PostForm(const std::string& path, const std::string& body) const {
  return Client().Post(path, {{"Origin", Origin()}}, body, "application/x-www-form-urlencoded");
}

std::string WebInstallation::Origin() const { return "http://127.0.0.1:" + std::to_string(WebPort); }

std::string WebInstallation::HostLine() const { return "Host: 127.0.0.1:" + std::to_string(WebPort) + "\r\n"; }

std::string WebInstallation::Token() const {
  if (!CachedToken.empty()) return CachedToken;
  const auto page = MainPage();
  return CachedToken = page ? FormTokenIn(page->body) : std::string();
}

std::string FormTokenIn(const std::string& page) {
  const std::regex field("name='formtoken' value='([0-9a-f]+)'");
  std::smatch found;
  return std::regex_search(page, found, field) ? std::string(found[1]) : std::string();
}

std::string WebInstallation::WithToken(const std::string& body) const {
  return body + (body.empty() ? "" : "&") + "formtoken=" + Token();
}

pid_t WebInstallation::Pid() const { return Host ? Host->ProcessId() : -1; }

std::string WebInstallation::Log() const { return Host ? Host->Stderr() : std::string(); }

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

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

int RawConnect(std::uint16_t port, const std::string& source, int seconds) {
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
