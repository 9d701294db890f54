// The whole road from a site folder to clients: zolhost publishes a site over TCP and
// zolclient processes rebuild every file byte for byte.
#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/TempDir.h"

namespace {

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kClient = std::string(ZOL_BINARY_DIR) + "/zolclient";

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// Files of the kinds a site publishes every 20 seconds, of many sizes and contents.
std::map<std::string, std::string> MakeSiteFiles() {
  std::mt19937 random(20261122);
  auto bytes = [&](std::size_t count) {
    std::string text(count, '\0');
    for (char& c : text) c = static_cast<char>(random() & 0xFF);
    return text;
  };
  std::string table;
  for (int row = 0; row < 4000; ++row) table += ".row" + std::to_string(row) + " { color: #" + std::to_string(row % 999) + "; }\n";
  return {
      {"empty.css", ""},
      {"small.js", "var lap = 1;\n"},
      {"table.css", table},
      {"noise/random.js", bytes(300000)},
      {"noise/escapes.css", std::string(5000, static_cast<char>(0x8D)) + std::string(5000, static_cast<char>(0x8F))},
  };
}

}  // namespace

TEST(EndToEndTcp, ThreeClientsGetEverySiteFileAndTheServerDropsTheOneThatWasKilled) {
  TempDir appdir;
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  appdir.Write("Config/ZOLServer.ini", "[ports]\ncount=1\nport0=2\n[port0]\nID=1\nport=" + std::to_string(port) +
                                           "\n[sites]\ncount=1\nsite0=test\n[test]\nroot=\\site\\\nports=1\n");
  const auto files = MakeSiteFiles();
  for (const auto& [name, contents] : files) appdir.Write("site/" + name, contents);

  TempDir work;
  const std::string source = "tcp://127.0.0.1:" + std::to_string(port);
  auto startClient = [&](const std::string& out, const std::string& timeout) {
    return std::make_unique<ChildProcess>(
        kClient,
        std::vector<std::string>{source, "--out", out, "--until-complete", "site", "--timeout",
                                 timeout, "--reconnect-pause", "0.1", "--stats"},
        work.Path());
  };
  // The clients wait for the server, so they hear the very first turn of every page.
  std::vector<std::unique_ptr<ChildProcess>> clients;
  for (int i = 0; i < 2; ++i) clients.push_back(startClient(work.Path() + "/out" + std::to_string(i), "90"));
  auto doomed = startClient(work.Path() + "/doomed", "90");

  ChildProcess host(kHost, {"--appdir", appdir.Path(), "--no-web"}, work.Path());
  ASSERT_TRUE(host.WaitForStderr("Starting TCP/IP server (Port " + std::to_string(port) + ").", 20)) << host.Stderr();
  // Killed mid-stream: after its first page, while the large ones are still coming.
  ASSERT_TRUE(doomed->WaitForStdout("site 1 page", 30)) << doomed->Stderr();
  doomed->Signal(SIGKILL);
  doomed->WaitForExit(5);

  for (std::size_t i = 0; i < clients.size(); ++i) {
    const auto status = clients[i]->WaitForExit(120);
    ASSERT_TRUE(status.has_value()) << "client " << i << " still running";
    EXPECT_EQ(*status, 0) << clients[i]->Stderr() << clients[i]->Stdout();
    for (const auto& [name, contents] : files) {
      const std::string received = work.Path() + "/out" + std::to_string(i) + "/" + name;
      ASSERT_TRUE(std::filesystem::exists(received)) << received << "\n" << clients[i]->Stdout();
      EXPECT_TRUE(ReadFile(received) == contents) << name << " differs for client " << i;
    }
  }
  EXPECT_TRUE(host.WaitForStderr("Closing and removing socket", 30)) << host.Stderr();
  host.Signal(SIGTERM);
  const auto hostStatus = host.WaitForExit(10);
  ASSERT_TRUE(hostStatus.has_value());
  EXPECT_EQ(*hostStatus, 0) << host.Stderr();
}
