#include "site/ZOLInfo.h"

#include <cstdio>

#include "data/Event.h"
#include "data/Merge.h"
#include "data/RMData.h"
#include "data/Run.h"
#include "data/Track.h"
#include "frame/KVTException.h"
#include "frame/TimeText.h"
#include "site/FlagText.h"
#include "site/xml/CodePageText.h"
#include "site/xml/XmlDocument.h"
#include "views/RMCell.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/RMViewRow.h"

namespace {

// A member of a merge with this bit is a merge itself, else a run.
constexpr DWORD kMergeBit = 0x20000000;

// The entry of the static labels that holds the merge legend.
const char kMergeInfo[] = "MERGEINFO";

// One line of the merge legend: "R" for a run, "M" for a merge, the running number and
// the member's name.
std::string LegendLine(char kind, int number, const std::string& name) {
  return std::string("<TR><TD>") + kind + std::to_string(number) + ":</TD><TD>" + name + "</TD></TR>\n";
}

}  // namespace

CZOLInfo::CZOLInfo(long id, int eventId, CRMComm* comm) : m_id(id), m_comm(comm) {
  Guarded("CZOLInfo::CZOLInfo()", [&] {
    m_columnLabels = {
        {"eventname", "lgHeader_ParentEvent"},
        {"trackname", "lgHeader_Track"},
        {"groupname", "lgHeader_Event"},
        {"runname", "lgHeader_Run"},
        {"runtype", "lgHeader_RunType"},
        {"runid", "lgHeader_RunID"},
        {"laps", "lgHeader_Laps"},
        {"leader", "lgHeader_Leader"},
        {"avgspeed", "lgHeader_AvgSpeed"},
        {"margin", "lgLabel_Margin_of_Victory"},
        {"lapstogo", "lgHeader_LapsToGo"},
        {"bestlaptime", "lgHeader_Best_Laptime"},
        {"bestlapby", "lgHeader_BestLapBy"},
        {"racetime", "lgHeader_ElapsedTime"},
        {"timetogo", "lgHeader_TimeToGo"},
        {"timeofday", "lgHeader_TimeOfDay"},
        {"flag", "lgHeader_Flag"},
        {"timestamp", "lgHeader_Timestamp"},
    };
    CRMData* data = m_comm != nullptr ? m_comm->GetData() : nullptr;
    if (data == nullptr) return;
    const Cevent* event = data->GetEvent(static_cast<DWORD>(eventId));
    if (event == nullptr) return;
    const CTrack* track = data->GetTrack(event->TrackID);
    if (track == nullptr) return;
    char length[64];
    std::snprintf(length, sizeof length, "%0.3f", track->Length);
    m_staticLabels["eventname"] = LocalToUtf8(event->Name);
    m_staticLabels["trackname"] = LocalToUtf8(track->Name);
    m_staticLabels["tracklength"] = length;
  });
}

CZOLInfo::~CZOLInfo() = default;

BOOL CZOLInfo::ZOLImport(const std::string& text) {
  return Guarded("CZOLInfo::ZOLImport()", [&]() -> BOOL {
    CXmlDocument document;
    if (!document.Parse(text) || !document.FindElement("zol_label")) {
      // Not a label: the text stands as it is.
      m_text = text;
      return TRUE;
    }
    const std::string type = document.GetAttribute("type");
    const std::string format = document.GetAttribute("format");
    const std::string url = document.GetAttribute("url");
    if (const auto column = m_columnLabels.find(type); column != m_columnLabels.end()) {
      m_columnKey = column->second;
      // Shown only as an escaped value until the view delivers, so it stays as built.
      m_text = "<zol_label";
      m_text += "type=\"";
      m_text += type;
      m_text += "\"";
      if (!url.empty()) {
        m_text += "url=\"";
        m_text += url;
        m_text += "\"";
      }
      if (!format.empty()) {
        m_text += "format=\"";
        m_text += format;
        m_text += "\"";
      }
      m_text += "/>";
    } else if (const auto fixed = m_staticLabels.find(type); fixed != m_staticLabels.end()) {
      m_text = fixed->second;
    } else {
      return FALSE;
    }
    m_source = text;
    return TRUE;
  });
}

std::string CZOLInfo::ZOLExport() {
  return Guarded("CZOLInfo::ZOLExport()", [&]() -> std::string {
    std::string value = "-";
    if (!m_columnKey.empty() && m_view == nullptr && m_lastViewValue.has_value()) {
      value = *m_lastViewValue;
    } else if (m_columnKey.empty() || m_column == -1) {
      value = m_text;
    } else if (m_view != nullptr && !m_view->GetSortedRows().empty()) {
      const CRMViewRow* row = m_view->GetSortedRows().front();
      if (const CRMCell* cell = row->CellGetAt(static_cast<DWORD>(m_column)); cell != nullptr) {
        if (m_columnKey == "lgHeader_ElapsedTime") {
          value = FormatTime(static_cast<KVTTIME>(*cell), 0, 0);
        } else if (m_columnKey == "lgHeader_TimeToGo") {
          value = FormatTime(static_cast<KVTTIME>(*cell), 1, 0);
        } else if (m_columnKey == "lgHeader_Flag") {
          // A view without a special flag column shows the flag alone.
          const CRMCell* special =
              m_flagSpecialColumn == -1 ? nullptr : row->CellGetAt(static_cast<DWORD>(m_flagSpecialColumn));
          value = FlagToString(static_cast<DWORD>(*cell), special != nullptr ? static_cast<DWORD>(*special) : 0);
        } else {
          value = LocalToUtf8(static_cast<const char*>(*cell));
        }
      }
    }
    if (!m_columnKey.empty() && m_view != nullptr && m_column != -1) m_lastViewValue = value;
    CXmlDocument document;
    if (!document.Parse(m_source) || !document.FindElement("zol_label")) return std::string();
    document.SetData(value, false);
    return document.GetDocument();
  });
}

std::string CZOLInfo::HTMLExport(const CParameters& clockParameters) {
  return Guarded("CZOLInfo::HTMLExport()", [&]() -> std::string {
    std::string text = ZOLExport();
    if (text.find("<zol_label") == std::string::npos) return text;
    CXmlDocument document;
    if (!document.Parse(text) || !document.FindElement("zol_label")) return std::string();
    // The four clock labels show the clock of the information page; the rest nothing.
    return clockParameters.GetString(document.GetAttribute("type"));
  });
}

std::string CZOLInfo::GetMergeLegenda(DWORD id) const {
  return Guarded("CZOLInfo::GetMergeLegenda()", [&]() -> std::string {
    CRMData* data = m_comm != nullptr ? m_comm->GetData() : nullptr;
    CMerge* merge = data != nullptr ? data->GetMerge(id) : nullptr;
    if (merge == nullptr) return std::string();
    std::string out = "<TABLE CLASS='MergeInfo'>\n";
    out += "<TR><TD COLSPAN='2'><B>Legenda</B></TD></TR>\n";
    out += "<TR><TD COLSPAN='2' BGCOLOR='black' HEIGHT='1'></TD></TR>\n";
    int number = 1;
    for (const DWORD member : merge->IDs) {
      // A member that is no longer known keeps its number with an empty name.
      std::string name;
      if ((member & kMergeBit) != 0) {
        if (const CMerge* inner = data->GetMerge(member); inner != nullptr) name = LocalToUtf8(inner->Name);
        out += LegendLine('M', number, name);
      } else {
        if (const CRun* run = data->GetRun(member); run != nullptr) name = LocalToUtf8(run->Name);
        out += LegendLine('R', number, name);
      }
      ++number;
    }
    out += "</TABLE>\n";
    return out;
  });
}

void CZOLInfo::Import(int runId) {
  Guarded("CZOLInfo::Import()", [&] {
    if (runId == -1) return;
    if (m_view != nullptr) {
      CRMView* old = m_view;
      m_view = nullptr;
      m_column = -1;
      m_flagColumn = -1;
      m_flagSpecialColumn = -1;
      CRMViewObserver::Detach(old, TRUE);
    }
    if (m_comm != nullptr) {
      CParameters parameters;
      parameters.Add("UniqueID", static_cast<DWORD>(runId));
      m_view = m_comm->CreateView(m_viewName, FALSE, parameters, FALSE);
      // A view that another reader holds answers at once, inside the attach.
      CRMViewObserver::Attach(m_view);
    }
    m_staticLabels.erase(kMergeInfo);
  });
}

void CZOLInfo::MergeConnect(DWORD id) {
  Guarded("CZOLInfo::MergeConnect()", [&] { m_staticLabels[kMergeInfo] = GetMergeLegenda(id); });
}

void CZOLInfo::OnNotifyStructure(CRMView* view) {
  Guarded("CZOLInfo::OnNotifyStructure()", [&] {
    if (view == nullptr || view != m_view) return;
    m_column = view->ColumnFind(m_columnKey);
    m_flagColumn = view->ColumnFind("lgHeader_Flag");
    m_flagSpecialColumn = view->ColumnFind("lgHeader_FlagSpecial");
  });
}

void CZOLInfo::OnNotifyData(int type, CRMView* view) {
  Guarded("CZOLInfo::OnNotifyData()", [&] {
    (void)type;
    if (view != m_view) return;
    std::string text = ZOLExport();
    // Only a real change of the value costs the page a new export.
    const bool changed = text != m_lastExport;
    m_lastExport = std::move(text);
    if (changed) NotifyDataAvailable();
  });
}

void CZOLInfo::OnSubjectRemoved(CRMView* view) {
  Guarded("CZOLInfo::OnSubjectRemoved()", [&] {
    if (view != m_view) return;
    m_view = nullptr;
    m_column = -1;
    m_flagColumn = -1;
    m_flagSpecialColumn = -1;
  });
}
