#include "host/RaceFile.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "frame/platform/CodePage.h"

namespace {

using nlohmann::json;

// A fault of the file at a place such as "runs[2].type".
struct RaceFileFault : std::runtime_error {
  RaceFileFault(const std::string& place, const std::string& what) : std::runtime_error(place + ": " + what) {}
};

std::string Member(const std::string& place, const std::string& key) {
  return place.empty() ? key : place + "." + key;
}

std::string Element(const std::string& place, std::size_t index) {
  return place + "[" + std::to_string(index) + "]";
}

const json& Required(const json& object, const std::string& key, const std::string& place) {
  if (!object.contains(key)) throw RaceFileFault(place.empty() ? "top level" : place, "\"" + key + "\" is missing");
  return object.at(key);
}

const json& ObjectAt(const json& value, const std::string& place) {
  if (!value.is_object()) throw RaceFileFault(place, "expected an object");
  return value;
}

const json& ArrayAt(const json& value, const std::string& place) {
  if (!value.is_array()) throw RaceFileFault(place, "expected a list");
  return value;
}

std::string TextAt(const json& value, const std::string& place) {
  if (!value.is_string()) throw RaceFileFault(place, "expected a text");
  return value.get<std::string>();
}

double NumberAt(const json& value, const std::string& place, double low, double high) {
  if (!value.is_number()) throw RaceFileFault(place, "expected a number");
  const double number = value.get<double>();
  if (number < low || number > high) {
    char text[160];
    std::snprintf(text, sizeof text, "%g is out of range (%g to %g)", number, low, high);
    throw RaceFileFault(place, text);
  }
  return number;
}

long long WholeAt(const json& value, const std::string& place, long long low, long long high) {
  if (!value.is_number_integer()) throw RaceFileFault(place, "expected a whole number");
  const long long number = value.get<long long>();
  if (number < low || number > high) {
    throw RaceFileFault(place, std::to_string(number) + " is out of range (" + std::to_string(low) + " to " +
                                   std::to_string(high) + ")");
  }
  return number;
}

std::string OptionalText(const json& object, const std::string& key, const std::string& place) {
  return object.contains(key) ? TextAt(object.at(key), Member(place, key)) : std::string();
}

DWORD IdAt(const json& object, const std::string& key, const std::string& place, long long high = 0xFFFFFF) {
  return static_cast<DWORD>(WholeAt(Required(object, key, place), Member(place, key), 1, high));
}

// "HH:MM" or "HH:MM:SS" as seconds of the day.
int SecondOfDay(const json& value, const std::string& place) {
  const std::string text = TextAt(value, place);
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  char tail = 0;
  const int read = std::sscanf(text.c_str(), "%d:%d:%d%c", &hours, &minutes, &seconds, &tail);
  if ((read != 2 && read != 3) || hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || seconds < 0 ||
      seconds > 59) {
    throw RaceFileFault(place, "\"" + text + "\" is no time of day (HH:MM or HH:MM:SS)");
  }
  return hours * 3600 + minutes * 60 + seconds;
}

void ReadTrack(const json& track, const std::string& place, RaceDescription& race) {
  ObjectAt(track, place);
  race.TrackName = TextAt(Required(track, "name", place), Member(place, "name"));
  race.TrackLength = NumberAt(Required(track, "length", place), Member(place, "length"), 0.1, 100.0);
  const std::string linesPlace = Member(place, "timelines");
  const json& lines = ArrayAt(Required(track, "timelines", place), linesPlace);
  std::set<BYTE> ids;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string at = Element(linesPlace, i);
    const json& line = ObjectAt(lines[i], at);
    RaceTimelinePlan plan;
    plan.ID = static_cast<BYTE>(WholeAt(Required(line, "id", at), Member(at, "id"), 0, 254));
    plan.Name = TextAt(Required(line, "name", at), Member(at, "name"));
    plan.Position = NumberAt(Required(line, "position", at), Member(at, "position"), 0.0, race.TrackLength);
    if (!ids.insert(plan.ID).second) throw RaceFileFault(Member(at, "id"), "timeline id used twice");
    race.Timelines.push_back(plan);
  }
  std::sort(race.Timelines.begin(), race.Timelines.end(),
            [](const RaceTimelinePlan& a, const RaceTimelinePlan& b) { return a.Position < b.Position; });
  if (race.Timelines.empty() || race.Timelines.front().Position != 0.0) {
    throw RaceFileFault(linesPlace, "needs the finish line, a timeline at position 0");
  }
  if (track.contains("sections")) {
    const std::string sectionsPlace = Member(place, "sections");
    const json& sections = ArrayAt(track.at("sections"), sectionsPlace);
    for (std::size_t i = 0; i < sections.size(); ++i) {
      const std::string at = Element(sectionsPlace, i);
      race.Sections.push_back({TextAt(Required(ObjectAt(sections[i], at), "name", at), Member(at, "name"))});
    }
  }
}

// Every chain of parents must end at a root event: the views walk up the chain. Each
// event is walked once, so a long chain costs no more than its length.
void RefuseParentCircles(const std::vector<RaceEventPlan>& events, const std::string& place) {
  std::map<DWORD, std::size_t> indexOf;
  for (std::size_t i = 0; i < events.size(); ++i) indexOf[events[i].ID] = i;
  enum class Walked { Not, Now, ToRoot };
  std::vector<Walked> state(events.size(), Walked::Not);
  for (std::size_t start = 0; start < events.size(); ++start) {
    std::vector<std::size_t> walk;
    std::size_t at = start;
    while (state[at] == Walked::Not) {
      state[at] = Walked::Now;
      walk.push_back(at);
      if (events[at].Parent == 0) break;
      at = indexOf.at(events[at].Parent);
    }
    if (state[at] == Walked::Now && events[at].Parent != 0) {
      // The walk came back to `at`: the circle is the walk from there on. Named at the
      // event of the circle that stands first in the file.
      const std::size_t first = *std::min_element(std::find(walk.begin(), walk.end(), at), walk.end());
      throw RaceFileFault(Member(Element(place, first), "parent"),
                          "event " + std::to_string(events[first].ID) +
                              " lies below itself (its parents run in a circle)");
    }
    for (std::size_t walked : walk) state[walked] = Walked::ToRoot;
  }
}

void ReadEvents(const json& events, const std::string& place, RaceDescription& race) {
  ArrayAt(events, place);
  if (events.empty()) throw RaceFileFault(place, "needs at least one event");
  std::set<DWORD> ids;
  for (std::size_t i = 0; i < events.size(); ++i) {
    const std::string at = Element(place, i);
    ObjectAt(events[i], at);
    RaceEventPlan plan;
    plan.ID = IdAt(events[i], "id", at);
    plan.Name = TextAt(Required(events[i], "name", at), Member(at, "name"));
    if (events[i].contains("parent")) plan.Parent = IdAt(events[i], "parent", at);
    if (!ids.insert(plan.ID).second) throw RaceFileFault(Member(at, "id"), "event id used twice");
    race.Events.push_back(plan);
  }
  for (std::size_t i = 0; i < race.Events.size(); ++i) {
    if (race.Events[i].Parent != 0 && ids.count(race.Events[i].Parent) == 0) {
      throw RaceFileFault(Member(Element(place, i), "parent"), "no event has the id " + std::to_string(race.Events[i].Parent));
    }
  }
  RefuseParentCircles(race.Events, place);
}

void ReadRuns(const json& runs, const std::string& place, RaceDescription& race) {
  ArrayAt(runs, place);
  if (runs.empty()) throw RaceFileFault(place, "needs at least one run");
  std::set<DWORD> ids;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const std::string at = Element(place, i);
    const json& run = ObjectAt(runs[i], at);
    RaceRunPlan plan;
    plan.ID = IdAt(run, "id", at);
    plan.Event = IdAt(run, "event", at);
    plan.Name = TextAt(Required(run, "name", at), Member(at, "name"));
    const json& type = Required(run, "type", at);
    if (!type.is_number_integer() || type.get<long long>() < 0 || type.get<long long>() > 2) {
      throw RaceFileFault(Member(at, "type"), type.dump() + " is no run type (0 practice, 1 qualifying, 2 race)");
    }
    plan.Type = static_cast<BYTE>(type.get<int>());
    const bool timed = run.contains("minutes");
    const bool overLaps = run.contains("laps");
    if (timed == overLaps) throw RaceFileFault(at, "needs its length: either \"minutes\" or \"laps\"");
    if (timed) plan.Minutes = static_cast<int>(WholeAt(run.at("minutes"), Member(at, "minutes"), 1, 24 * 60));
    if (overLaps) plan.Laps = static_cast<int>(WholeAt(run.at("laps"), Member(at, "laps"), 1, 10000));
    if (!ids.insert(plan.ID).second) throw RaceFileFault(Member(at, "id"), "run id used twice");
    const bool eventKnown = std::any_of(race.Events.begin(), race.Events.end(),
                                        [&](const RaceEventPlan& event) { return event.ID == plan.Event; });
    if (!eventKnown) throw RaceFileFault(Member(at, "event"), "no event has the id " + std::to_string(plan.Event));
    race.Runs.push_back(plan);
  }
}

void ReadCompetitors(const json& competitors, const std::string& place, RaceDescription& race) {
  ArrayAt(competitors, place);
  if (competitors.empty()) throw RaceFileFault(place, "needs at least one competitor");
  std::set<DWORD> ids;
  for (std::size_t i = 0; i < competitors.size(); ++i) {
    const std::string at = Element(place, i);
    const json& entry = ObjectAt(competitors[i], at);
    RaceCompetitorPlan plan;
    plan.ID = IdAt(entry, "id", at);
    plan.Number = TextAt(Required(entry, "number", at), Member(at, "number"));
    plan.FirstName = OptionalText(entry, "first", at);
    plan.LastName = TextAt(Required(entry, "last", at), Member(at, "last"));
    plan.Class = OptionalText(entry, "class", at);
    if (entry.contains("transponders")) {
      const std::string txPlace = Member(at, "transponders");
      const json& list = ArrayAt(entry.at("transponders"), txPlace);
      for (std::size_t t = 0; t < list.size(); ++t) {
        plan.Transponders.push_back(static_cast<DWORD>(WholeAt(list[t], Element(txPlace, t), 1, 0x1FFFFFFF)));
      }
    }
    if (entry.contains("pace")) {
      const std::string pacePlace = Member(at, "pace");
      const json& pace = ObjectAt(entry.at("pace"), pacePlace);
      plan.LapSeconds = NumberAt(Required(pace, "lap", pacePlace), Member(pacePlace, "lap"), 5.0, 3600.0);
      if (pace.contains("spread")) {
        plan.SpreadSeconds = NumberAt(pace.at("spread"), Member(pacePlace, "spread"), 0.0, plan.LapSeconds / 4);
      }
    }
    if (!ids.insert(plan.ID).second) throw RaceFileFault(Member(at, "id"), "competitor id used twice");
    race.Competitors.push_back(plan);
  }
}

void FillCompetitors(CBaseCompetitorContainer& container, const std::vector<RaceCompetitorPlan>& plans) {
  for (const RaceCompetitorPlan& plan : plans) {
    auto* competitor = new CBaseCompetitor;
    competitor->UniqueID = plan.ID;
    competitor->Number = plan.Number;
    competitor->FirstName = plan.FirstName;
    competitor->LastName = plan.LastName;
    competitor->Class = plan.Class;
    competitor->Transponders = plan.Transponders;
    competitor->BuildFullName();
    auto& slot = container.Competitors[competitor->UniqueID];
    delete slot;
    slot = competitor;
  }
  container.UpdateTransponderMap();
}

// `text` (UTF-8) in the race's code page; counts it when it lost a character.
std::string InCodePage(const std::string& text, RaceDescription& race) {
  std::size_t replaced = 0;
  std::string converted = platform::Utf8ToCodePage(race.CodePage, text, &replaced);
  if (replaced > 0) ++race.NamesLosingCharacters;
  return converted;
}

// Every text read from the file into the race's code page.
void ConvertTexts(RaceDescription& race) {
  race.TrackName = InCodePage(race.TrackName, race);
  for (RaceTimelinePlan& line : race.Timelines) line.Name = InCodePage(line.Name, race);
  for (RaceSectionPlan& section : race.Sections) section.Name = InCodePage(section.Name, race);
  for (RaceEventPlan& event : race.Events) event.Name = InCodePage(event.Name, race);
  for (RaceRunPlan& run : race.Runs) run.Name = InCodePage(run.Name, race);
  for (RaceCompetitorPlan& competitor : race.Competitors) {
    competitor.Number = InCodePage(competitor.Number, race);
    competitor.FirstName = InCodePage(competitor.FirstName, race);
    competitor.LastName = InCodePage(competitor.LastName, race);
    competitor.Class = InCodePage(competitor.Class, race);
  }
}

// The race data as the data manager holds it; the first run of the meeting is active.
std::unique_ptr<CBaseDataComm> BuildModel(const json& file, RaceDescription& race) {
  auto model = std::make_unique<CBaseDataComm>();
  const json& source = file.at("track");
  const DWORD trackID = source.contains("id") ? IdAt(source, "id", "track") : 1;
  auto* track = new CTrack(nullptr);
  model->Tracks[trackID] = track;
  track->UniqueID = trackID;
  track->Name = race.TrackName;
  track->Length = race.TrackLength;
  for (std::size_t i = 0; i < race.Timelines.size(); ++i) {
    auto* line = new CTimeline;
    line->UniqueID = race.Timelines[i].ID;
    line->Name = race.Timelines[i].Name;
    line->Order = static_cast<BYTE>(i);
    line->Position = race.Timelines[i].Position;
    track->Timelines[line->UniqueID] = line;
  }
  // Sections run from each timeline to the next one around the lap.
  for (std::size_t i = 0; i < race.Timelines.size() && race.Timelines.size() > 1; ++i) {
    const std::size_t next = (i + 1) % race.Timelines.size();
    auto* section = new CSection;
    section->UniqueID = static_cast<BYTE>(i + 1);
    section->Name = i < race.Sections.size() ? race.Sections[i].Name : "Sector " + std::to_string(i + 1);
    section->StartTimeline = race.Timelines[i].ID;
    section->EndTimeline = race.Timelines[next].ID;
    section->Order = static_cast<BYTE>(i);
    const double end = next == 0 ? race.TrackLength : race.Timelines[next].Position;
    section->Length = end - race.Timelines[i].Position;
    track->Sections[section->UniqueID] = section;
  }
  for (const RaceEventPlan& plan : race.Events) {
    auto* event = new Cevent(nullptr);
    event->UniqueID = kRaceEventBit | plan.ID;
    model->Events[event->UniqueID] = event;
    event->Name = plan.Name;
    event->StartDate = event->EndDate = 0;
    if (plan.Parent != 0) {
      event->ParentID = kRaceEventBit | plan.Parent;
    } else {
      event->TrackID = trackID;
      FillCompetitors(*event->Competitors, race.Competitors);
    }
  }
  for (std::size_t i = 0; i < race.Runs.size(); ++i) {
    const RaceRunPlan& plan = race.Runs[i];
    auto* run = new CRun(nullptr);
    run->UniqueID = kRaceRunBit | plan.ID;
    model->Runs[run->UniqueID] = run;
    run->Name = plan.Name;
    run->EventID = kRaceEventBit | plan.Event;
    run->RunType = plan.Type;
    run->Flags = kRunLocal;
    if (i == 0) run->Flags |= kRunActive;
    run->Parameters.Add("UniqueID", run->UniqueID);
    FillCompetitors(*run->Competitors, race.Competitors);
  }
  if (file.contains("txtranslations")) {
    const json& list = ArrayAt(file.at("txtranslations"), "txtranslations");
    for (std::size_t i = 0; i < list.size(); ++i) {
      const std::string at = Element("txtranslations", i);
      ObjectAt(list[i], at);
      // Read before anything is made, so that a fault leaves nothing behind.
      const auto number = static_cast<DWORD>(
          WholeAt(Required(list[i], "transponder", at), Member(at, "transponder"), 1, 0x1FFFFFFF));
      const std::string text = InCodePage(OptionalText(list[i], "text", at), race);
      auto* record = new CBaseTxTranslation;
      record->UniqueID = number & kTransponderNumberMask;
      record->Text = text;
      delete model->TxTranslations[record->UniqueID];
      model->TxTranslations[record->UniqueID] = record;
    }
  }
  return model;
}

// Line and column of a byte offset, both from 1.
std::string LineAndColumn(const std::string& text, std::size_t offset) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

bool ReadRaceDescription(const std::string& text, const std::string& fileName, RaceDescription& race,
                         std::string& error, const std::string& codePage) {
  const std::string prefix = "race file " + fileName + ": ";
  json file;
  try {
    file = json::parse(text);
  } catch (const json::parse_error& e) {
    // The library's message names the place as a byte; a person looks for a line.
    std::string what = e.what();
    if (const auto colon = what.rfind(": "); colon != std::string::npos) what = what.substr(colon + 2);
    error = prefix + LineAndColumn(text, e.byte == 0 ? 0 : e.byte - 1) + ": not valid JSON: " + what;
    return false;
  }
  try {
    RaceDescription read;
    read.CodePage = codePage;
    ObjectAt(file, "top level");
    ReadTrack(Required(file, "track", ""), "track", read);
    ReadEvents(Required(file, "events", ""), "events", read);
    ReadRuns(Required(file, "runs", ""), "runs", read);
    ReadCompetitors(Required(file, "competitors", ""), "competitors", read);
    if (file.contains("meeting")) {
      const json& meeting = ObjectAt(file.at("meeting"), "meeting");
      if (meeting.contains("start")) read.StartSecondOfDay = SecondOfDay(meeting.at("start"), "meeting.start");
      if (meeting.contains("break")) {
        read.BreakSeconds = static_cast<int>(WholeAt(meeting.at("break"), "meeting.break", 0, 24 * 3600));
      }
    }
    if (file.contains("views")) {
      const json& views = ArrayAt(file.at("views"), "views");
      for (std::size_t i = 0; i < views.size(); ++i) read.ViewNames.push_back(TextAt(views[i], Element("views", i)));
    }
    ConvertTexts(read);
    read.Model = BuildModel(file, read);
    race = std::move(read);
    return true;
  } catch (const RaceFileFault& fault) {
    error = prefix + fault.what();
    return false;
  } catch (const json::exception& e) {
    error = prefix + e.what();
    return false;
  }
}
