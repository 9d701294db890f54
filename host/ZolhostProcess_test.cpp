// zolhost as race staff run it: a process on the example application directory.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "testing/ChildProcess.h"
#include "testing/TempDir.h"

namespace {

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kExamples = std::string(ZOL_SOURCE_DIR) + "/examples";

unsigned long TicksReported(const std::string& log) {
  const std::string lead = "stopped after ";
  const auto at = log.find(lead);
  return at == std::string::npos ? 0 : std::stoul(log.substr(at + lead.size()));
}

}  // namespace

TEST(ZolhostProcess, RunsOnTheExamplesTicksAsAskedAndEndsOnSigterm) {
  TempDir logs;
  ChildProcess host(kHost, {"--appdir", kExamples, "--no-web", "--verbose"}, logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 10)) << host.Stderr();
  const auto started = std::chrono::steady_clock::now();
  // It stays up.
  EXPECT_FALSE(host.WaitForExit(1.5).has_value()) << host.Stderr();

  host.Signal(SIGTERM);
  const auto status = host.WaitForExit(1.0);
  ASSERT_TRUE(status.has_value()) << "zolhost did not end within a second of SIGTERM";
  EXPECT_EQ(*status, 0);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  const std::string log = host.Stderr();
  EXPECT_NE(log.find("module \"ZOL Server\", class 38, version 3.1.563"), std::string::npos) << log;
  EXPECT_NE(log.find("message out: id 0x0030 to class 0, 4 bytes"), std::string::npos) << log;
  EXPECT_NE(log.find(" timer ticks, largest timer lag "), std::string::npos) << log;
  // About five ticks a second: the bounds only rule out a timer that is off or runs free.
  const unsigned long ticks = TicksReported(log);
  EXPECT_GE(ticks, 3u) << log;
  EXPECT_LE(ticks, static_cast<unsigned long>(seconds * 5) + 5) << log;
}

TEST(ZolhostProcess, SigintEndsItCleanlyToo) {
  TempDir logs;
  ChildProcess host(kHost, {"--appdir", kExamples, "--no-web"}, logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 10)) << host.Stderr();
  host.Signal(SIGINT);
  const auto status = host.WaitForExit(1.0);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0);
}

TEST(ZolhostProcess, MissingApplicationDirectoryIsOneLineAndExitTwo) {
  TempDir logs;
  std::string err;
  const auto status = RunToEnd(kHost, {"--appdir", logs.Path() + "/absent"}, logs.Path(), 10, nullptr, &err);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 2);
  EXPECT_NE(err.find("does not exist"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

TEST(ZolhostProcess, UnloadableModuleIsOneLineAndExitTwo) {
  TempDir logs;
  const std::string notALibrary = logs.Write("fake.so", "not a shared library");
  std::string err;
  const auto status = RunToEnd(kHost, {"--appdir", kExamples, "--module", notALibrary}, logs.Path(), 10, nullptr, &err);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 2);
  EXPECT_NE(err.find("cannot load module"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

TEST(ZolhostProcess, UnknownOptionIsRefusedWithExitTwo) {
  TempDir logs;
  std::string err;
  const auto status = RunToEnd(kHost, {"--no-such-option"}, logs.Path(), 10, nullptr, &err);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 2);
  EXPECT_NE(err.find("unknown option"), std::string::npos) << err;
}

TEST(ZolhostProcess, HelpExplainsEveryOption) {
  TempDir logs;
  std::string out;
  const auto status = RunToEnd(kHost, {"--help"}, logs.Path(), 10, &out);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0);
  for (const char* option : {"--appdir", "--module", "--language", "--com", "--code-page", "--verbose", "--help"}) {
    EXPECT_NE(out.find(option), std::string::npos) << option;
  }
}

TEST(ZolhostProcess, DataManagerStandInPlaysTheExampleRace) {
  TempDir logs;
  ChildProcess host(kHost, {"--appdir", logs.Path(), "--no-web", "--race", kExamples + "/race.json", "--verbose"}, logs.Path());
  ASSERT_TRUE(host.WaitForStderr("message in: id 0x8020 from class 5", 10)) << host.Stderr();
  host.Signal(SIGTERM);
  ASSERT_EQ(host.WaitForExit(5), std::optional<int>(0));
  const std::string log = host.Stderr();
  EXPECT_NE(log.find("message out: id 0x0000 to class 5"), std::string::npos) << log;
  EXPECT_NE(log.find("message in: id 0x0002 from class 5"), std::string::npos) << log;
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
}

TEST(ZolhostProcess, UnreadableRaceFileIsOneLineAndExitTwo) {
  TempDir logs;
  const std::string broken = logs.Write("race.json", "{ \"track\": ");
  std::string err;
  const auto status = RunToEnd(kHost, {"--appdir", logs.Path(), "--race", broken}, logs.Path(), 10, nullptr, &err);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 2);
  EXPECT_NE(err.find("zolhost: "), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

TEST(ZolhostProcess, ARaceFileWithAMissingFieldOrAWrongRunTypeIsOneLineNamingThePlaceAndExitTwo) {
  TempDir logs;
  const std::string head = R"({"track": {"name": "T", "length": 2, "timelines": [{"id": 0, "name": "F", "position": 0}]},
    "events": [{"id": 1, "name": "E"}], "competitors": [{"id": 1, "number": "1", "last": "L"}], "runs": [)";
  const std::string badType = logs.Write("type.json", head + R"({"id": 1, "event": 1, "name": "R", "type": 3, "laps": 2}]})");
  const std::string noName = logs.Write("name.json", head + R"({"id": 1, "event": 1, "type": 2, "laps": 2}]})");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {badType, "type.json: runs[0].type: 3 is no run type (0 practice, 1 qualifying, 2 race)"},
      {noName, "name.json: runs[0]: \"name\" is missing"}};
  for (const auto& [file, expected] : cases) {
    std::string err;
    const auto status = RunToEnd(kHost, {"--appdir", logs.Path(), "--race", file}, logs.Path(), 10, nullptr, &err);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 2);
    EXPECT_NE(err.find(expected), std::string::npos) << err;
    EXPECT_EQ(err.rfind("zolhost: race file ", 0), 0u) << err;
    // Nothing started: the module was not even loaded.
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  }
}
