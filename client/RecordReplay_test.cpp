// Recording and replay: the replay source plays a recording at its pace (or at once),
// keeps datagrams and new connections as they came, and tells damage in one line; the
// client records what it receives, and a replay of it rebuilds the same folder.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "client/ClientOptions.h"
#include "client/ClientRun.h"
#include "client/ClientSources.h"
#include "client/HandBuiltPackets.h"
#include "client/Recording.h"
#include "client/TestFolders.h"
#include "frame/platform/Sockets.h"
#include "frame/platform/Time.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/TempDir.h"

namespace {

namespace fs = std::filesystem;
using handbuilt::Bytes;
using zolclient::RecordKind;

void WriteBytes(const std::string& path, const std::vector<BYTE>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<BYTE> FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<BYTE>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<BYTE> Pattern(std::size_t n, unsigned seed) { return handbuilt::SeededBytes(n, seed); }

void AppendData(std::vector<BYTE>& file, std::uint64_t microseconds, const Bytes& data) {
  zolclient::AppendRecord(file, microseconds, RecordKind::Data, data.data(), data.size());
}

zolclient::ClientOptions ReplayOptions(const std::string& file, double speed) {
  zolclient::ClientOptions options;
  options.Transport = zolclient::TransportKind::Replay;
  options.Source = "replay:" + file;
  options.ReplayFile = file;
  options.ReplaySpeed = speed;
  return options;
}

std::unique_ptr<zolclient::CByteSource> OpenReplay(const std::string& file, double speed, std::ostream& err) {
  std::string error;
  auto source = zolclient::OpenByteSource(ReplayOptions(file, speed), err, error);
  EXPECT_TRUE(source) << error;
  return source;
}

// Everything the source gives, read by read, until it finishes (within `seconds`).
std::vector<Bytes> ReadToTheEnd(zolclient::CByteSource& source, double seconds, std::size_t bufferSize = 65536) {
  std::vector<Bytes> reads;
  Bytes buffer(bufferSize);
  const std::uint64_t start = platform::MonotonicMilliseconds();
  while (!source.Finished() && platform::MonotonicMilliseconds() - start < seconds * 1000) {
    const long got = source.Read(buffer.data(), buffer.size(), 100);
    if (got > 0) reads.emplace_back(buffer.begin(), buffer.begin() + got);
  }
  return reads;
}

// Three small reads, 300 ms apart.
std::vector<BYTE> PacedRecording() {
  std::vector<BYTE> file = zolclient::RecordingHeader(false, 0);
  for (unsigned i = 0; i < 3; ++i) AppendData(file, 300000u * i, Pattern(10, i));
  return file;
}

TEST(RecordReplaySource, AtSpeedOneItTakesTheRecordedTimeAndAtSpeedZeroItDoesNot) {
  TempDir temp;
  const std::string path = temp.File("paced.zolrec");
  WriteBytes(path, PacedRecording());
  std::ostringstream err;
  {
    auto source = OpenReplay(path, 1, err);
    ASSERT_TRUE(source);
    const std::uint64_t start = platform::MonotonicMilliseconds();
    const std::vector<Bytes> reads = ReadToTheEnd(*source, 20);
    const std::uint64_t took = platform::MonotonicMilliseconds() - start;
    ASSERT_EQ(reads.size(), 3u);
    EXPECT_EQ(reads[2], Pattern(10, 2));
    EXPECT_GE(took, 590u);
    EXPECT_LT(took, 10000u);
  }
  {
    auto source = OpenReplay(path, 3, err);
    ASSERT_TRUE(source);
    const std::uint64_t start = platform::MonotonicMilliseconds();
    EXPECT_EQ(ReadToTheEnd(*source, 20).size(), 3u);
    EXPECT_GE(platform::MonotonicMilliseconds() - start, 195u);
  }
  {
    auto source = OpenReplay(path, 0, err);
    ASSERT_TRUE(source);
    const std::uint64_t start = platform::MonotonicMilliseconds();
    EXPECT_EQ(ReadToTheEnd(*source, 20).size(), 3u);
    EXPECT_LT(platform::MonotonicMilliseconds() - start, 500u);
  }
  EXPECT_EQ(err.str(), "");
}

TEST(RecordReplaySource, AReadWaitsNoLongerThanItsTimeoutForARecordNotDueYet) {
  TempDir temp;
  const std::string path = temp.File("late.zolrec");
  std::vector<BYTE> file = zolclient::RecordingHeader(false, 0);
  AppendData(file, 0, Pattern(5, 1));
  AppendData(file, 60000000u, Pattern(5, 2));  // a minute later
  WriteBytes(path, file);
  std::ostringstream err;
  auto source = OpenReplay(path, 1, err);
  ASSERT_TRUE(source);
  BYTE buffer[64];
  EXPECT_EQ(source->Read(buffer, sizeof buffer, 100), 5);
  for (int i = 0; i < 3; ++i) {
    const std::uint64_t start = platform::MonotonicMilliseconds();
    EXPECT_EQ(source->Read(buffer, sizeof buffer, 50), 0);
    EXPECT_LT(platform::MonotonicMilliseconds() - start, 1000u);
    EXPECT_FALSE(source->Finished());
  }
  const std::uint64_t start = platform::MonotonicMilliseconds();
  EXPECT_EQ(source->Read(buffer, sizeof buffer, 0), 0);
  EXPECT_LT(platform::MonotonicMilliseconds() - start, 1000u);
}

TEST(RecordReplaySource, NewConnectionsCountUpWhereTheyWereRecordedBeforeTheirData) {
  TempDir temp;
  const std::string path = temp.File("connections.zolrec");
  std::vector<BYTE> file = zolclient::RecordingHeader(false, 0);
  zolclient::AppendRecord(file, 0, RecordKind::NewConnection, nullptr, 0);
  AppendData(file, 10, Pattern(4, 1));
  AppendData(file, 20, Pattern(4, 2));
  zolclient::AppendRecord(file, 30, RecordKind::NewConnection, nullptr, 0);
  AppendData(file, 30, Pattern(4, 3));
  WriteBytes(path, file);
  std::ostringstream err;
  auto source = OpenReplay(path, 0, err);
  ASSERT_TRUE(source);
  EXPECT_FALSE(source->IsDatagram());
  EXPECT_EQ(source->Connections(), 0u);
  BYTE buffer[64];
  std::vector<std::pair<unsigned, Bytes>> seen;
  while (!source->Finished()) {
    const long got = source->Read(buffer, sizeof buffer, 100);
    if (got > 0) seen.emplace_back(source->Connections(), Bytes(buffer, buffer + got));
  }
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0], std::make_pair(1u, Pattern(4, 1)));
  EXPECT_EQ(seen[1], std::make_pair(1u, Pattern(4, 2)));
  EXPECT_EQ(seen[2], std::make_pair(2u, Pattern(4, 3)));
  EXPECT_EQ(source->Read(buffer, sizeof buffer, 100), 0);
}

TEST(RecordReplaySource, DatagramsComeOnePerReadAndAStreamRecordInPieces) {
  TempDir temp;
  const std::string datagrams = temp.File("datagrams.zolrec");
  std::vector<BYTE> file = zolclient::RecordingHeader(true, 0);
  for (unsigned i = 0; i < 5; ++i) AppendData(file, i, Pattern(20 + i, i));
  WriteBytes(datagrams, file);
  std::ostringstream err;
  auto source = OpenReplay(datagrams, 0, err);
  ASSERT_TRUE(source);
  EXPECT_TRUE(source->IsDatagram());
  EXPECT_EQ(source->Connections(), 0u);
  const std::vector<Bytes> reads = ReadToTheEnd(*source, 10);
  ASSERT_EQ(reads.size(), 5u);
  for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(reads[i], Pattern(20 + i, i));
  // A buffer smaller than a datagram gets its start, and the rest is gone, as with a socket.
  source = OpenReplay(datagrams, 0, err);
  ASSERT_TRUE(source);
  const std::vector<Bytes> cut = ReadToTheEnd(*source, 10, 21);
  ASSERT_EQ(cut.size(), 5u);
  EXPECT_EQ(cut[0], Pattern(20, 0));
  const Bytes last = Pattern(24, 4);
  EXPECT_EQ(cut[4], Bytes(last.begin(), last.begin() + 21));

  const std::string stream = temp.File("stream.zolrec");
  file = zolclient::RecordingHeader(false, 0);
  AppendData(file, 0, Pattern(1000, 7));
  WriteBytes(stream, file);
  source = OpenReplay(stream, 0, err);
  ASSERT_TRUE(source);
  const std::vector<Bytes> pieces = ReadToTheEnd(*source, 10, 300);
  ASSERT_EQ(pieces.size(), 4u);
  Bytes joined;
  for (const Bytes& piece : pieces) joined.insert(joined.end(), piece.begin(), piece.end());
  EXPECT_EQ(joined, Pattern(1000, 7));
  EXPECT_EQ(err.str(), "");
}

TEST(RecordReplaySource, DamageIsToldOnceAndTheSourceFinishesThere) {
  TempDir temp;
  const std::string path = temp.File("damaged.zolrec");
  std::vector<BYTE> file = zolclient::RecordingHeader(false, 0);
  AppendData(file, 0, Pattern(50, 1));
  const std::size_t second = file.size();
  AppendData(file, 1, Pattern(50, 2));
  AppendData(file, 2, Pattern(50, 3));
  file[second + 20] ^= 0xFF;
  WriteBytes(path, file);
  std::ostringstream err;
  auto source = OpenReplay(path, 0, err);
  ASSERT_TRUE(source);
  EXPECT_EQ(ReadToTheEnd(*source, 10), std::vector<Bytes>{Pattern(50, 1)});
  EXPECT_TRUE(source->Finished());
  BYTE buffer[64];
  EXPECT_EQ(source->Read(buffer, sizeof buffer, 10), 0);
  EXPECT_EQ(err.str(), "zolclient: the recording " + path + " is damaged at byte " + std::to_string(second) +
                           " (record 2): its checksum does not match; played up to there\n");
}

TEST(RecordReplaySource, AFileThatIsNoRecordingIsNotOpened) {
  TempDir temp;
  const std::string path = temp.Write("notes.txt", "just some notes, long enough to hold a header\n");
  std::ostringstream err;
  std::string error;
  EXPECT_FALSE(zolclient::OpenByteSource(ReplayOptions(path, 1), err, error));
  EXPECT_EQ(error, path + " is not a recording made with --record");
}

// A recording of hand-built pages: page 1 cut off by a new connection and sent again
// after it, then pages 2 and 3.
std::vector<BYTE> PagesRecording(bool datagrams) {
  std::vector<BYTE> file = zolclient::RecordingHeader(datagrams, 0);
  const auto one = handbuilt::PagePackets(1, 1, 0, 1, "", "one.html", handbuilt::TextBytes("<p>one</p>"));
  const auto two = handbuilt::PagePackets(1, 2, 0, 1, "sub/", "two.bin", Pattern(3000, 5));
  const auto three = handbuilt::PagePackets(1, 3, 0, 2, "", "three.txt", handbuilt::TextBytes("three"));
  std::uint64_t time = 0;
  if (datagrams) {
    for (const auto* page : {&one, &two, &three}) {
      for (const Bytes& packet : *page) AppendData(file, time += 100, packet);
    }
    return file;
  }
  zolclient::AppendRecord(file, time, RecordKind::NewConnection, nullptr, 0);
  const Bytes half(one[0].begin(), one[0].begin() + 60);
  AppendData(file, time += 100, half);
  zolclient::AppendRecord(file, time += 100, RecordKind::NewConnection, nullptr, 0);
  Bytes rest = handbuilt::Join(one);
  handbuilt::AppendBytes(rest, handbuilt::Join(two));
  AppendData(file, time += 100, rest);
  AppendData(file, time += 100, handbuilt::Join(three));
  return file;
}

TEST(RecordReplayRun, AReplayRebuildsThePagesAndEndsWithStatusZeroAtTheEnd) {
  for (const bool datagrams : {false, true}) {
    TempDir temp;
    const std::string path = temp.File("pages.zolrec");
    WriteBytes(path, PagesRecording(datagrams));
    zolclient::ClientOptions options = ReplayOptions(path, 0);
    options.OutputFolder = temp.File("out");
    options.Stats = true;
    std::ostringstream out;
    std::ostringstream err;
    const std::uint64_t start = platform::MonotonicMilliseconds();
    EXPECT_EQ(zolclient::RunClient(options, out, err), zolclient::kExitDone) << err.str();
    EXPECT_LT(platform::MonotonicMilliseconds() - start, 10000u);
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(testfolders::ReadWholeFile(temp.File("out/one.html")), "<p>one</p>") << datagrams;
    const Bytes two = Pattern(3000, 5);
    EXPECT_EQ(testfolders::ReadWholeFile(temp.File("out/sub/two.bin")), std::string(two.begin(), two.end()));
    EXPECT_EQ(testfolders::ReadWholeFile(temp.File("out/three.txt")), "three");
    EXPECT_NE(out.str().find("site 1 page 3 three.txt 5 bytes version 0.2\n"), std::string::npos) << out.str();
  }
}

TEST(RecordReplayRun, UntilCompleteAndTimeoutKeepTheirRulesInAReplay) {
  TempDir temp;
  const std::string path = temp.File("pages.zolrec");
  WriteBytes(path, PagesRecording(false));
  {
    // Reached: stops there with status 0, before the third page.
    zolclient::ClientOptions options = ReplayOptions(path, 0);
    options.UntilComplete = 2;
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(zolclient::RunClient(options, out, err), zolclient::kExitDone) << err.str();
    EXPECT_EQ(out.str().find("three.txt"), std::string::npos) << out.str();
  }
  {
    // The recording ends before the count is reached: told as when the time runs out,
    // with status 1, instead of waiting for the timeout.
    zolclient::ClientOptions options = ReplayOptions(path, 0);
    options.UntilComplete = 10;
    options.TimeoutSeconds = 30;
    std::ostringstream out;
    std::ostringstream err;
    const std::uint64_t start = platform::MonotonicMilliseconds();
    EXPECT_EQ(zolclient::RunClient(options, out, err), zolclient::kExitFailed);
    EXPECT_LT(platform::MonotonicMilliseconds() - start, 10000u);
    EXPECT_EQ(err.str(), "zolclient: 3 of 10 pages complete when the recording ended\n");
  }
  {
    // The time runs out while the replay still waits for its records: status 1 as live.
    std::vector<BYTE> file = zolclient::RecordingHeader(false, 0);
    AppendData(file, 30000000u, Pattern(10, 1));
    const std::string slow = temp.File("slow.zolrec");
    WriteBytes(slow, file);
    zolclient::ClientOptions options = ReplayOptions(slow, 1);
    options.UntilComplete = 1;
    options.TimeoutSeconds = 0.3;
    std::ostringstream out;
    std::ostringstream err;
    const std::uint64_t start = platform::MonotonicMilliseconds();
    EXPECT_EQ(zolclient::RunClient(options, out, err), zolclient::kExitFailed);
    EXPECT_LT(platform::MonotonicMilliseconds() - start, 5000u);
    EXPECT_EQ(err.str(), "zolclient: 0 of 1 pages complete when the time ran out\n");
  }
}

TEST(RecordReplayRun, ARecordOfAReplayIsTheSameRecordingAndTheSameFileIsRefused) {
  TempDir temp;
  const std::string path = temp.File("pages.zolrec");
  WriteBytes(path, PagesRecording(true));
  zolclient::ClientOptions options = ReplayOptions(path, 0);
  options.RecordFile = temp.File("again.zolrec");
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(zolclient::RunClient(options, out, err), zolclient::kExitDone) << err.str();
  zolclient::CRecordingReader original;
  zolclient::CRecordingReader again;
  std::string error;
  ASSERT_TRUE(original.Open(path, error)) << error;
  ASSERT_TRUE(again.Open(options.RecordFile, error)) << error;
  EXPECT_TRUE(again.IsDatagram());
  zolclient::RecordedRead a;
  zolclient::RecordedRead b;
  std::size_t count = 0;
  while (original.Next(a)) {
    ASSERT_TRUE(again.Next(b)) << count;
    EXPECT_EQ(a.Bytes, b.Bytes) << count;
    ++count;
  }
  EXPECT_FALSE(again.Next(b));
  EXPECT_GT(count, 5u);

  options.RecordFile = path;
  std::ostringstream err2;
  EXPECT_EQ(zolclient::RunClient(options, out, err2), zolclient::kExitFailed);
  EXPECT_EQ(err2.str(), "zolclient: --record " + path + " is the recording being played\n");
  EXPECT_EQ(FileBytes(path), PagesRecording(true));
}

// ---- the programs

const std::string kClientProgram = std::string(ZOL_BINARY_DIR) + "/zolclient";
const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";

// Every regular file under `root` with its bytes, by relative path.
std::vector<std::pair<std::string, std::string>> FolderContents(const fs::path& root) {
  std::vector<std::pair<std::string, std::string>> files;
  for (const std::string& entry : testfolders::ListTree(root)) {
    if (fs::is_regular_file(root / entry)) files.emplace_back(entry, testfolders::ReadWholeFile(root / entry));
  }
  return files;
}

std::size_t LineCount(const std::string& text) { return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')); }

TEST(RecordReplayProcess, ALiveRunRecordedAndReplayedAtFullSpeedWritesTheSameFolder) {
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  TempDir appdir;
  ASSERT_TRUE(CopyExamples(appdir, port));
  TempDir work;
  TempDir hostLogs;
  ChildProcess host(kHost, {"--appdir", appdir.Path(), "--no-web", "--race", kExampleRace, "--race-speed", "60"},
                    hostLogs.Path());
  const std::string recording = work.File("live.zolrec");
  std::string stdoutA;
  std::string stderrA;
  const std::optional<int> live = RunToEnd(kClientProgram,
                                           {"tcp://127.0.0.1:" + std::to_string(port), "--out", work.File("A"),
                                            "--record", recording, "--until-complete", "site", "--timeout", "90",
                                            "--reconnect-pause", "0.2"},
                                           work.Path(), 120, &stdoutA, &stderrA);
  host.Signal(SIGTERM);
  EXPECT_TRUE(host.WaitForExit(10).has_value());
  ASSERT_EQ(live, std::optional<int>(0)) << stderrA << host.Stderr();

  std::string stdoutB;
  std::string stderrB;
  const std::optional<int> replay = RunToEnd(
      kClientProgram, {"replay:" + recording, "--speed", "0", "--out", work.File("B")}, work.Path(), 60, &stdoutB, &stderrB);
  ASSERT_EQ(replay, std::optional<int>(0)) << stderrB;
  EXPECT_EQ(stderrB, "");
  const auto a = FolderContents(work.File("A"));
  const auto b = FolderContents(work.File("B"));
  EXPECT_GT(a.size(), 5u);
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].first, b[i].first);
    EXPECT_TRUE(a[i].second == b[i].second) << a[i].first << " differs";
  }
  // The page lines of the replay are the live run's.
  EXPECT_EQ(stdoutB, stdoutA);

  // Garbage over the middle: the replay gets as far as the damage, says where in one
  // line, and ends normally.
  std::vector<BYTE> bytes = FileBytes(recording);
  ASSERT_GT(bytes.size(), 4096u);
  const std::size_t middle = bytes.size() / 2;
  for (std::size_t i = 0; i < 256; ++i) bytes[middle + i] = static_cast<BYTE>(i * 151 + 7);
  const std::string damaged = work.File("damaged.zolrec");
  WriteBytes(damaged, bytes);
  std::string stdoutC;
  std::string stderrC;
  const std::optional<int> partial = RunToEnd(
      kClientProgram, {"replay:" + damaged, "--speed", "0", "--out", work.File("C")}, work.Path(), 60, &stdoutC, &stderrC);
  EXPECT_EQ(partial, std::optional<int>(0)) << stderrC;
  EXPECT_EQ(LineCount(stderrC), 1u) << stderrC;
  const std::string prefix = "zolclient: the recording " + damaged + " is damaged at byte ";
  ASSERT_EQ(stderrC.rfind(prefix, 0), 0u) << stderrC;
  const std::size_t offset = std::stoul(stderrC.substr(prefix.size()));
  EXPECT_LE(offset, middle);
  EXPECT_GT(offset + 2 * 65536, middle);
  EXPECT_NE(stderrC.find("; played up to there\n"), std::string::npos) << stderrC;
  // What came before the damage was played: the lines are the first ones of the live run.
  EXPECT_FALSE(stdoutC.empty());
  EXPECT_EQ(stdoutA.rfind(stdoutC, 0), 0u);
}

TEST(RecordReplayProcess, AUdpRunRecordedIsReplayedAsDatagrams) {
  TempDir work;
  const std::uint16_t port = platform::FindFreeTcpPort();  // the same number is almost always free for UDP
  ASSERT_NE(port, 0);
  const Bytes data = Pattern(1500, 3);
  const auto page = handbuilt::PagePackets(0, 5, 0, 1, "", "u.bin", data);
  const std::string recording = work.File("udp.zolrec");
  ChildProcess client(kClientProgram,
                      {"udp://127.0.0.1:" + std::to_string(port), "--out", work.File("A"), "--record", recording,
                       "--until-complete", "1", "--timeout", "30"},
                      work.Path());
  const int sender = platform::OpenUdpSocket();
  ASSERT_NE(sender, platform::kNoSocket);
  const std::uint64_t start = platform::MonotonicMilliseconds();
  while (client.Running() && platform::MonotonicMilliseconds() - start < 30000) {
    for (const Bytes& packet : page) platform::SendDatagram(sender, packet.data(), packet.size(), "127.0.0.1", port);
    platform::SleepMilliseconds(50);
  }
  platform::CloseSocket(sender);
  ASSERT_EQ(client.WaitForExit(10), std::optional<int>(0)) << client.Stderr();

  zolclient::CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(recording, error)) << error;
  EXPECT_TRUE(reader.IsDatagram());
  zolclient::RecordedRead record;
  std::size_t count = 0;
  while (reader.Next(record)) {
    EXPECT_EQ(record.Kind, RecordKind::Data);
    EXPECT_EQ(record.Bytes.size(), 128u);
    ++count;
  }
  EXPECT_EQ(reader.Damage(), "");
  EXPECT_GE(count, page.size());

  std::string stdoutB;
  std::string stderrB;
  EXPECT_EQ(RunToEnd(kClientProgram, {"replay:" + recording, "--speed", "0", "--out", work.File("B"), "--stats"},
                     work.Path(), 60, &stdoutB, &stderrB),
            std::optional<int>(0))
      << stderrB;
  EXPECT_EQ(testfolders::ReadWholeFile(work.File("B/u.bin")), std::string(data.begin(), data.end()));
  EXPECT_NE(stdoutB.find("site 0 page 5 u.bin 1500 bytes version 0.1\n"), std::string::npos) << stdoutB;
}

TEST(RecordReplayProcess, AWriteThatFailsIsToldOnceAndReceivingGoesOn) {
  TempDir work;
  // Ten pages of 2000 bytes, a read each: far more than the file size limit below.
  std::vector<BYTE> file = zolclient::RecordingHeader(false, 0);
  for (DWORD page = 1; page <= 10; ++page) {
    AppendData(file, page * 10u,
               handbuilt::Join(handbuilt::PagePackets(1, page, 0, 1, "", "p" + std::to_string(page) + ".bin",
                                                      Pattern(2000, page))));
  }
  const std::string source = work.File("source.zolrec");
  WriteBytes(source, file);
  const std::string copy = work.File("copy.zolrec");
  // The shell limits the size of the files the client writes (8 blocks); an ignored
  // SIGXFSZ stays ignored past exec, so a write beyond the limit fails instead.
  ChildProcess client("/bin/sh",
                      {"-c", "trap '' XFSZ; ulimit -f 8 && exec " + kClientProgram + " replay:" + source +
                                 " --speed 0 --record " + copy},
                      work.Path());
  ASSERT_EQ(client.WaitForExit(60), std::optional<int>(0)) << client.Stderr();
  const std::string stdoutText = client.Stdout();
  const std::string stderrText = client.Stderr();
  for (int page = 1; page <= 10; ++page) {
    EXPECT_NE(stdoutText.find("site 1 page " + std::to_string(page) + " p" + std::to_string(page) + ".bin 2000 bytes"),
              std::string::npos)
        << stdoutText;
  }
  EXPECT_EQ(LineCount(stderrText), 1u) << stderrText;
  const std::string prefix = "zolclient: cannot write the recording " + copy + " (file too large); it ends after ";
  ASSERT_EQ(stderrText.rfind(prefix, 0), 0u) << stderrText;
  const std::size_t told = std::stoul(stderrText.substr(prefix.size()));
  EXPECT_NE(stderrText.find(" records, and receiving goes on\n"), std::string::npos) << stderrText;
  // What was written is a whole recording of the reads before the failure.
  EXPECT_LT(fs::file_size(copy), file.size());
  zolclient::CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(copy, error)) << error;
  zolclient::RecordedRead record;
  std::size_t count = 0;
  while (reader.Next(record)) ++count;
  EXPECT_EQ(reader.Damage(), "");
  EXPECT_EQ(count, told);
  EXPECT_LT(count, 10u);
}

TEST(RecordReplayProcess, ARecordingThatCannotBeMadeOrReadEndsWithStatusOneAndOneLine) {
  TempDir work;
  std::string stdoutText;
  std::string stderrText;
  EXPECT_EQ(RunToEnd(kClientProgram, {"tcp://127.0.0.1:1", "--record", work.File("no/folder/rec"), "--timeout", "5"},
                     work.Path(), 30, &stdoutText, &stderrText),
            std::optional<int>(1));
  EXPECT_EQ(stderrText, "zolclient: cannot make the recording " + work.File("no/folder/rec") +
                            " (no such file or directory)\n");

  const std::string notes = work.Write("notes.txt", "not a recording\n");
  EXPECT_EQ(RunToEnd(kClientProgram, {"replay:" + notes}, work.Path(), 30, &stdoutText, &stderrText),
            std::optional<int>(1));
  EXPECT_EQ(stderrText, "zolclient: " + notes + " is not a recording made with --record\n");
}

// GET `path` of the viewer on its own connection; the whole answer, or "" after 5 s.
std::string FetchFromViewer(std::uint16_t port, const std::string& path) {
  const int socket = platform::TcpConnectWithin("127.0.0.1", port, 2000);
  if (socket < 0) return "";
  const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
  platform::SendSome(socket, request.data(), request.size());
  std::string answer;
  char buffer[4096];
  const std::uint64_t start = platform::MonotonicMilliseconds();
  while (platform::MonotonicMilliseconds() - start < 5000) {
    if (!platform::WaitReadable(socket, 100000)) continue;
    const long got = platform::ReceiveSome(socket, buffer, sizeof buffer);
    if (got <= 0) break;
    answer.append(buffer, static_cast<std::size_t>(got));
  }
  platform::CloseSocket(socket);
  return answer;
}

TEST(RecordReplayProcess, AFinishedReplayKeepsItsPagesOnShowInTheViewerUntilStopped) {
  TempDir work;
  const std::string path = work.File("pages.zolrec");
  WriteBytes(path, PagesRecording(false));
  const std::uint16_t port = platform::FindFreeTcpPort();
  ChildProcess client(kClientProgram,
                      {"replay:" + path, "--speed", "0", "--serve", "127.0.0.1:" + std::to_string(port), "--timeout", "60"},
                      work.Path());
  ASSERT_TRUE(client.WaitForStderr("zolclient: viewer at http://127.0.0.1:" + std::to_string(port) + "/", 10))
      << client.Stderr();
  // The replay at full speed is over at once; the pages stay on show.
  ASSERT_TRUE(client.WaitForStdout("three.txt", 10)) << client.Stdout();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_TRUE(client.Running());
  const std::string index = FetchFromViewer(port, "/");
  EXPECT_NE(index.find("href=\"/site/1/one.html\""), std::string::npos) << index;
  EXPECT_NE(index.find("href=\"/site/1/sub/two.bin\""), std::string::npos) << index;
  const std::string page = FetchFromViewer(port, "/site/1/one.html");
  EXPECT_NE(page.find("Content-Type: text/html"), std::string::npos) << page;
  EXPECT_NE(page.find("\r\n\r\n<p>one</p>"), std::string::npos) << page;
  client.Signal(SIGTERM);
  EXPECT_EQ(client.WaitForExit(10), std::optional<int>(0));
}

}  // namespace
