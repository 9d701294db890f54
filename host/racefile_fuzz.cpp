// libFuzzer target over the race file reader and the meeting it plays.
//
// An input is the text of a race file. The reader must refuse it with one line or read
// it; a meeting read is played for a while, and at each step every view of every run
// must hold one results row per competitor in positions 1, 2, 3, ..., and the run
// information one row.
//
// Seeds: run the target once with --write-seeds=DIR to write the example race and a
// small meeting into DIR.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "host/RaceFile.h"
#include "host/RaceSimulation.h"
#include "host/RaceViews.h"

namespace {

void Check(bool condition) {
  if (!condition) __builtin_trap();
}

const char kSmallMeeting[] = R"({"track": {"name": "T", "length": 1.5,
  "timelines": [{"id": 0, "name": "F", "position": 0}, {"id": 1, "name": "S", "position": 1.5}]},
  "events": [{"id": 1, "name": "E"}, {"id": 2, "name": "G", "parent": 1}],
  "meeting": {"break": 0, "start": "23:59:50"},
  "runs": [{"id": 1, "event": 2, "name": "Q", "type": 1, "minutes": 1}, {"id": 2, "event": 1, "name": "R", "type": 2, "laps": 2}],
  "competitors": [{"id": 1, "number": "1", "last": "A", "pace": {"lap": 5, "spread": 1.25}},
                  {"id": 2, "number": "", "last": "B", "pace": {"lap": 5}}]})";

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  for (int i = 1; i < *argc; ++i) {
    const std::string argument = (*argv)[i];
    if (argument.rfind("--write-seeds=", 0) != 0) continue;
    const std::string directory = argument.substr(std::strlen("--write-seeds="));
    std::ifstream example(std::string(ZOL_SOURCE_DIR) + "/examples/race.json");
    std::stringstream text;
    text << example.rdbuf();
    std::ofstream(directory + "/seed-example", std::ios::binary) << text.str();
    std::ofstream(directory + "/seed-small", std::ios::binary) << kSmallMeeting;
    std::printf("2 seeds written to %s\n", directory.c_str());
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  RaceDescription race;
  std::string error;
  // Read as the stand-in reads it, its texts converted into the default code page.
  if (!ReadRaceDescription(text, "fuzz.json", race, error, "CP1252")) {
    Check(!error.empty() && error.find('\n') == std::string::npos);
    return 0;
  }
  // Large fields play slowly and find nothing more.
  if (race.Competitors.size() > 40 || race.Runs.size() > 6) return 0;
  CRaceSimulation meeting(race, 1, true, 0, 0);
  constexpr KVTTIME kStep = 20 * CRaceSimulation::kSecond;
  for (int step = 0; step < 200; ++step) {
    meeting.AdvanceTo(meeting.Now() + kStep);
    for (const SimRun& run : meeting.Runs()) {
      const DWORD id = kRaceRunBit | run.Plan->ID;
      const auto results = RaceViews::Rows({RaceViews::kResults, id, -1}, meeting);
      Check(results.size() == race.Competitors.size());
      for (std::size_t i = 0; i < results.size(); ++i) Check(results[i].Cells.at(0).Integer == static_cast<int>(i + 1));
      Check(RaceViews::Rows({RaceViews::kRunInfo, id, -1}, meeting).size() == 1);
      RaceViews::Rows({RaceViews::kLapTimes, id, -1}, meeting);
      RaceViews::Rows({RaceViews::kAnnouncements, id, -1}, meeting);
    }
    RaceViews::Rows({RaceViews::kSchedule, kRaceEventBit | race.Events.front().ID, -1}, meeting);
  }
  return 0;
}
