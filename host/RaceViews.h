// The result views the data manager stand-in serves, computed from the meeting as it
// stands: the results of a run, its run information, the schedule of an event, the
// announcements and the lap times. Each view is a list of columns, each column a key, a
// type and how its cell is filled, so that structure and rows cannot disagree.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/RaceSimulation.h"
#include "views/Column.h"
#include "views/ViewEncoder.h"

namespace RaceViews {

inline constexpr char kResults[] = "lgView_Results";
inline constexpr char kRunInfo[] = "lgView_RunInfo";
inline constexpr char kSchedule[] = "lgView_EventSchedule";
inline constexpr char kAnnouncements[] = "lgView_Announcements";
inline constexpr char kLapTimes[] = "lgView_LapTimes";

// The announcements view keeps the latest ones of its run or event.
inline constexpr std::size_t kAnnouncementRows = 20;

// Every view served, in the order the view list gives them.
const std::vector<std::string>& Names();

// What the module asked for: a view name and the parameters that matter here.
struct Request {
  std::string Name;
  DWORD UniqueID = 0xFFFFFFFF;
  int SortType = -1;  // results only: 0 by laps and time, 1 by best lap; -1 by the run's type
};

// The columns of a served view; empty for a name this data manager does not serve.
std::vector<CColumn> Columns(const std::string& name);

// The rows of the view as the meeting stands, in the data manager's order. A UniqueID
// that names no run (or, for the schedule and announcements, no event) gives no rows.
std::vector<ViewRowValues> Rows(const Request& request, const CRaceSimulation& meeting);

// Changes whenever the rows of the view may have changed; the same value means the
// rows are the same.
std::uint64_t Revision(const Request& request, const CRaceSimulation& meeting);

// The competitors of a run in the order of their positions: by laps and then by the time
// of the latest crossing (sort type 0), or by best lap (1); equal ones by start order.
std::vector<std::size_t> Standings(const SimRun& run, int sortType);

// The index of the run with the replica's unique ID, or -1.
int RunIndexOf(const CRaceSimulation& meeting, DWORD uniqueID);

}  // namespace RaceViews
