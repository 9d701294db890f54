// zolhost's web server: a request for the main page (a page of the module, made on the
// message thread) over a fresh connection, while 50 other connections have sent half a
// request and stall, against the same request with no stalled connection.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Sockets.h"
#include "host/ModuleHost.h"
#include "host/WebServer.h"

namespace {

int Connect(std::uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  ::inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
  if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
    if (fd >= 0) ::close(fd);
    return -1;
  }
  return fd;
}

// One GET over a new connection; the status, 0 when no answer came within 5 s.
int Get(std::uint16_t port, const std::string& path) {
  const int fd = Connect(port);
  if (fd < 0) return 0;
  const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                              "\r\nConnection: close\r\n\r\n";
  ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
  std::string answer;
  char chunk[65536];
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd wait{fd, POLLIN, 0};
    if (::poll(&wait, 1, 100) <= 0) continue;
    const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got <= 0) break;
    answer.append(chunk, static_cast<std::size_t>(got));
  }
  ::close(fd);
  return answer.rfind("HTTP/1.", 0) == 0 && answer.size() > 12 ? std::atoi(answer.c_str() + 9) : 0;
}

// The module in a host of its own, on an empty application directory, and its web server.
class WebBench {
 public:
  WebBench() {
    AppDir = std::filesystem::temp_directory_path() / ("zol-web-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(AppDir);
    HostOptions options;
    options.ModulePath = (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "libzolserver.so").string();
    options.ApplicationDirectory = AppDir.string();
    Host = std::make_unique<CModuleHost>(options);
    WebServerSettings settings;
    settings.Port = platform::FindFreeTcpPort();
    Web = std::make_unique<CWebServer>(*Host, settings);
    std::string error;
    if (!Host->Load() || !Web->Bind(error)) return;
    Host->AddPeer(Web->MakePeer(0x7F000001));
    if (!Host->Start()) return;
    Web->Start();
    Port = Web->Port();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Get(Port, "/zol/_server/index.html") != 200) {
      if (std::chrono::steady_clock::now() > deadline) {
        Port = 0;
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ~WebBench() {
    Web->Stop();
    Host->Stop();
    std::error_code ignored;
    std::filesystem::remove_all(AppDir, ignored);
  }
  std::uint16_t Port = 0;

 private:
  std::filesystem::path AppDir;
  std::unique_ptr<CModuleHost> Host;
  std::unique_ptr<CWebServer> Web;
};

void RunRequests(benchmark::State& state, int stalledConnections) {
  WebBench bench;
  if (bench.Port == 0) {
    state.SkipWithError("the web server did not start");
    return;
  }
  std::vector<int> stalled;
  const std::string half = "GET /zol/_server/index.html HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  for (int i = 0; i < stalledConnections; ++i) {
    const int fd = Connect(bench.Port);
    if (fd < 0) continue;
    ::send(fd, half.data(), half.size(), MSG_NOSIGNAL);
    stalled.push_back(fd);
  }
  int failed = 0;
  for (auto _ : state) {
    if (Get(bench.Port, "/zol/_server/index.html") != 200) ++failed;
  }
  for (int fd : stalled) ::close(fd);
  state.counters["stalled"] = static_cast<double>(stalled.size());
  if (failed > 0) state.SkipWithError("some requests were not answered 200");
}

void BM_WebRequestBesideStalled(benchmark::State& state) { RunRequests(state, 50); }
// The iterations stay within the 5 s after which the server closes the stalled connections.
BENCHMARK(BM_WebRequestBesideStalled)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(1.0);

void BM_WebRequestBesideStalled_Baseline(benchmark::State& state) { RunRequests(state, 0); }
BENCHMARK(BM_WebRequestBesideStalled_Baseline)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(1.0);

}  // namespace
