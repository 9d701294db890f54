#include "site/ZOLServerPage.h"

#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <memory>

#include "data/Event.h"
#include "data/Merge.h"
#include "data/RMData.h"
#include "data/Run.h"
#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"
#include "frame/Parameters.h"
#include "site/ElementEndScan.h"
#include "site/ZOLInfo.h"
#include "site/ZOLServerInclude.h"
#include "site/ZOLServerTable.h"
#include "site/xml/XmlDocument.h"
#include "views/RMComm.h"

namespace {

bool IsTagNameEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>' || c == '/'; }

// Reads the marker's number with its format; false when the chunk isn't that marker.
bool ReadMarker(const std::string& chunk, const char* format, long& number) {
  return std::sscanf(chunk.c_str(), format, &number) == 1;
}

// A run or merge identifier with this bit names a merge.
constexpr DWORD kMergeBit = 0x20000000;

// Whether a table of `type` shows on a page bound to a run of `runType`. One template
// serves every kind of run: only the tables that fit the run survive the import.
bool TableFitsRun(const std::string& type, BYTE runType) {
  if (type == "practice") return runType == 0;
  if (type == "qualify") return runType == 1;
  if (type == "race") return runType == 2;
  if (type == "results") return RunTypeHasResults(runType) != FALSE;
  // Shows only when there is no run at all, and then empty.
  if (type == "none") return false;
  return true;
}

bool TableFitsMerge(const std::string& type, BYTE mergeType) {
  if (type == "qualify") return mergeType == 1;
  if (type == "race") return mergeType == 2;
  if (type == "points") return mergeType == 3;
  return true;
}

template <class Object>
void RemoveFromWaiting(std::vector<Object*>& waiting, Object* object) {
  auto found = std::find(waiting.begin(), waiting.end(), object);
  if (found != waiting.end()) waiting.erase(found);
}

}  // namespace

CZOLServerPage::CZOLServerPage(DWORD siteId, DWORD pageNumber, DWORD level, DWORD repeat, const std::string& path,
                               const std::string& file)
    : COutputPage(siteId, pageNumber, level, repeat, path, file) {
  Guarded("CZOLServerPage::CZOLServerPage()", [&] {
    m_tagHandlers["table"] = &CZOLServerPage::ZOLImportResultsTemplate;
    m_tagHandlers["label"] = &CZOLServerPage::ZOLImportInfo;
    m_tagHandlers["include"] = &CZOLServerPage::ZOLImportInclude;
  });
}

CZOLServerPage::~CZOLServerPage() { DeleteLiveObjects(); }

void CZOLServerPage::DeleteLiveObjects() {
  for (auto& [id, table] : m_tables) CZOLServerTableObserver::Detach(table);
  for (auto& [id, label] : m_labels) CZOLInfoObserver::Detach(label);
  m_waitingTables.clear();
  m_waitingLabels.clear();
  for (auto& entry : m_includes) delete entry.second;
  m_includes.clear();
  for (auto& entry : m_labels) delete entry.second;
  m_labels.clear();
  for (auto& entry : m_tables) delete entry.second;
  m_tables.clear();
}

BOOL CZOLServerPage::Initialize(CRMComm* comm, int eventId, const std::string& rootDir, int runId,
                                const std::string& content, int activeRunId) {
  return Guarded("CZOLServerPage::Initialize()", [&]() -> BOOL {
    Clear();
    m_comm = comm;
    m_eventId = eventId;
    m_runId = runId;
    m_followsActiveRun = false;
    m_activeRunId = activeRunId;
    std::string text = content;
    if (text.empty()) {
      if (!FileImport(rootDir)) {
        InitialVersion = 0;
        return FALSE;
      }
      text = GetDataAsString();
      // The page's data is the export, not the template.
      Data.clear();
    }
    m_importing = 1;
    ZOLImport(text);
    m_importing = 0;
    return TRUE;
  });
}

void CZOLServerPage::Clear() {
  Guarded("CZOLServerPage::Clear()", [&] {
    Data.clear();
    m_chunks.clear();
    m_links.clear();
    m_fileChanged = 0;
    m_exportDue = false;
    DeleteLiveObjects();
    m_nextIncludeId = 0;
    m_nextLabelId = 0;
    m_nextTableId = 0;
  });
}

void CZOLServerPage::ReadRootAttributes(const std::string& text, bool& found) {
  Guarded("CZOLServerPage::ReadRootAttributes()", [&] {
    CXmlDocument document;
    found = document.Parse(text) && document.FindElement("zol");
    if (!found) return;
    m_version = document.GetAttribute("version");
    m_pageId = document.GetAttribute("id");
    m_type = document.GetAttribute("type");
    m_pageType = document.GetAttribute("pagetype");
    const int level = std::atoi(document.GetAttribute("level").c_str());
    if (level >= 1 && level <= 3) {
      PageKey = wire::MakePageKey(wire::SiteNumber(PageKey), wire::PageNumber(PageKey), static_cast<DWORD>(level));
    }
    const int repeat = std::atoi(document.GetAttribute("repeat").c_str());
    if (repeat > 2) Repeat = static_cast<DWORD>(repeat);
    const int refresh = std::atoi(document.GetAttribute("refresh").c_str());
    if (refresh > 1) m_refresh = static_cast<DWORD>(refresh);
  });
}

void CZOLServerPage::ZOLImport(const std::string& text) {
  Guarded("CZOLServerPage::ZOLImport()", [&] {
    bool found = false;
    ReadRootAttributes(text, found);
    if (!found) return;
    std::string rest = text;
    for (;;) {
      const std::size_t start = rest.find("<zol");
      if (start == std::string::npos) {
        m_chunks.push_back(rest);
        return;
      }
      m_chunks.push_back(rest.substr(0, start));
      rest.erase(0, start);
      // The name runs to the first blank, ">" or "/", the last character not looked at.
      std::size_t nameEnd = 0;
      while (nameEnd + 1 < rest.size() && !IsTagNameEnd(rest[nameEnd])) ++nameEnd;
      if (nameEnd + 1 >= rest.size()) nameEnd = rest.size() - 1;
      std::string name = nameEnd > 4 ? rest.substr(4, nameEnd - 4) : std::string();
      if (!name.empty()) name.erase(0, 1);
      if (name.empty()) {
        // The root tag: its start tag and everything from its end tag on are dropped.
        const std::size_t close = rest.find('>');
        rest.erase(0, close == std::string::npos ? rest.size() : close + 1);
        const std::size_t end = rest.find("</zol>");
        if (end != std::string::npos) rest.erase(end);
        continue;
      }
      const std::size_t elementEnd = FindElementEnd(rest);
      if (elementEnd == std::string::npos) {
        m_chunks.push_back(rest);
        return;
      }
      const std::string element = rest.substr(0, elementEnd);
      rest.erase(0, elementEnd);
      std::string chunk = ZOLParseTag(name, element);
      if (!chunk.empty()) m_chunks.push_back(std::move(chunk));
    }
  });
}

std::string CZOLServerPage::ZOLParseTag(const std::string& name, const std::string& text) {
  return Guarded("CZOLServerPage::ZOLParseTag()", [&]() -> std::string {
    const auto handler = m_tagHandlers.find(name);
    if (handler == m_tagHandlers.end()) return text;
    return (this->*(handler->second))(text);
  });
}

std::string CZOLServerPage::ZOLImportResultsTemplate(const std::string& text) {
  return Guarded("CZOLServerPage::ZOLImportResultsTemplate()", [&]() -> std::string {
    auto table = std::make_unique<CZOLServerTable>(m_nextTableId++, m_comm);
    if (!table->ZOLImport(text)) return "<zol_error>Failed to import table.</zol_error>";
    CRMData* data = m_comm != nullptr ? m_comm->GetData() : nullptr;
    // The page observes the table before it connects: a view that is already filled
    // answers during the connection, and that first report must not be lost.
    CZOLServerTableObserver::Attach(table.get());
    if (table->GetType() == "schedule") {
      Cevent* event = data != nullptr ? data->GetEvent(static_cast<DWORD>(m_eventId)) : nullptr;
      if (event != nullptr) {
        m_waitingTables.push_back(table.get());
        table->EventConnect(event, CParameters());
      }
    } else {
      CRun* run = nullptr;
      if (m_runId == -1) {
        m_followsActiveRun = true;
        if (data != nullptr) {
          run = m_activeRunId != -1 ? data->GetRun(static_cast<DWORD>(m_activeRunId)) : data->GetActiveRun();
        }
        if (run == nullptr) return std::string();
        m_runId = static_cast<int>(run->UniqueID);
      } else if (data != nullptr) {
        run = data->GetRun(static_cast<DWORD>(m_runId));
      }
      CMerge* merge = nullptr;
      if (run == nullptr) {
        merge = data != nullptr ? data->GetMerge(static_cast<DWORD>(m_runId)) : nullptr;
        if (merge == nullptr) return "<zol_error>Cannot find run or merge (invalid ID).</zol_error>";
      }
      if (run != nullptr ? !TableFitsRun(table->GetType(), run->RunType)
                         : !TableFitsMerge(table->GetType(), merge->MergeType)) {
        return std::string();
      }
      m_waitingTables.push_back(table.get());
      if (run != nullptr) {
        table->RunConnect(run, CParameters());
      } else {
        table->MergeConnect(merge, CParameters());
      }
    }
    const long id = table->GetId();
    m_tables[id] = table.release();
    return "#TABLE#" + std::to_string(id);
  });
}

std::string CZOLServerPage::ZOLImportInfo(const std::string& text) {
  return Guarded("CZOLServerPage::ZOLImportInfo()", [&]() -> std::string {
    auto label = std::make_unique<CZOLInfo>(m_nextLabelId++, m_eventId, m_comm);
    if (m_runId != -1 && (static_cast<DWORD>(m_runId) & kMergeBit) != 0) label->MergeConnect(static_cast<DWORD>(m_runId));
    if (!label->ZOLImport(text)) return "<zol_error>Failed to import label.</zol_error>";
    CZOLInfoObserver::Attach(label.get());
    CZOLInfo* bound = label.get();
    m_labels[bound->GetId()] = label.release();
    CRMData* data = m_comm != nullptr ? m_comm->GetData() : nullptr;
    if (m_runId != -1 && data != nullptr && data->GetRun(static_cast<DWORD>(m_runId)) != nullptr) {
      m_waitingLabels.push_back(bound);
      bound->Import(m_runId);
    }
    return "#LABEL#" + std::to_string(bound->GetId());
  });
}

std::string CZOLServerPage::ZOLImportInclude(const std::string& text) {
  return Guarded("CZOLServerPage::ZOLImportInclude()", [&]() -> std::string {
    const long id = m_nextIncludeId++;
    auto* include = new CZOLServerInclude(id);
    if (!include->ZOLImport(text)) {
      delete include;
      return "<zol_error>Failed to import include.</zol_error>";
    }
    m_includes[id] = include;
    m_links.push_back(include->GetPath() + "|" + include->GetFile());
    return "#INCLUDE#" + std::to_string(id);
  });
}

template <class TableText, class LabelText, class IncludeText>
void CZOLServerPage::ExportChunk(const std::string& chunk, std::string& out, TableText tableText, LabelText labelText,
                                 IncludeText includeText) {
  long number = 0;
  if (chunk.find("#TABLE#") != std::string::npos) {
    if (ReadMarker(chunk, "#TABLE#%ld", number)) {
      if (const auto found = m_tables.find(number); found != m_tables.end()) out += tableText(*found->second);
    }
    return;
  }
  if (chunk.find("#LABEL#") != std::string::npos) {
    if (ReadMarker(chunk, "#LABEL#%ld", number)) {
      if (const auto found = m_labels.find(number); found != m_labels.end()) out += labelText(*found->second);
    }
    return;
  }
  if (chunk.find("#INCLUDE#") != std::string::npos) {
    if (ReadMarker(chunk, "#INCLUDE#%ld", number)) {
      if (const auto found = m_includes.find(number); found != m_includes.end()) out += includeText(*found->second);
    }
    return;
  }
  out += chunk;
}

void CZOLServerPage::ZOLExport() {
  Guarded("CZOLServerPage::ZOLExport()", [&] {
    // A template that could not be parsed has no chunks and stays an empty page.
    if (m_chunks.empty()) {
      Data.clear();
      return;
    }
    std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<zol";
    if (!m_version.empty()) out += " version=\"" + m_version + "\" ";
    if (!m_pageId.empty()) out += " id=\"" + m_pageId + "\" ";
    if (!m_type.empty()) out += " type=\"" + m_type + "\" ";
    if (!m_pageType.empty()) out += " pagetype=\"" + m_pageType + "\" ";
    if (m_refresh != 0) out += " refresh=\"" + std::to_string(static_cast<int>(m_refresh)) + "\" ";
    out += ">";
    for (const std::string& chunk : m_chunks) {
      ExportChunk(chunk, out, [](CZOLServerTable& table) { return table.ZOLExport(); },
                  [](CZOLInfo& label) { return label.ZOLExport(); },
                  [](const CZOLServerInclude& include) { return include.ZOLExport(); });
    }
    out += "</zol>";
    m_exportDue = false;
    Data.assign(out.begin(), out.end());
    Data.push_back(0);
  });
}

std::string CZOLServerPage::HTMLExport(const CParameters& clockParameters) {
  return Guarded("CZOLServerPage::HTMLExport()", [&]() -> std::string {
    std::string out;
    for (const std::string& chunk : m_chunks) {
      ExportChunk(chunk, out, [](CZOLServerTable& table) { return table.HTMLExport(); },
                  [&](CZOLInfo& label) { return label.HTMLExport(clockParameters); },
                  [&](const CZOLServerInclude& include) { return include.HTMLExport(clockParameters); });
    }
    return out;
  });
}

void CZOLServerPage::AddLinksToQueue(std::deque<std::string>& queue) const {
  Guarded("CZOLServerPage::AddLinksToQueue()", [&] {
    for (const std::string& link : m_links) queue.push_back(Path + "|" + link);
  });
}

void CZOLServerPage::CheckWaiting() {
  Guarded("CZOLServerPage::CheckWaiting()", [&] {
    if (m_importing != 0 || !m_waitingTables.empty() || !m_waitingLabels.empty()) return;
    m_exportDue = true;
    NotifyPageUpdated();
  });
}

bool CZOLServerPage::ExportIfDue() {
  return Guarded("CZOLServerPage::ExportIfDue()", [&] {
    if (!m_exportDue) return false;
    ZOLExport();
    return true;
  });
}

void CZOLServerPage::OnTableUpdated(CZOLServerTable* table) {
  Guarded("CZOLServerPage::OnTableUpdated()", [&] {
    RemoveFromWaiting(m_waitingTables, table);
    CheckWaiting();
  });
}

void CZOLServerPage::OnInfoUpdated(CZOLInfo* label) {
  Guarded("CZOLServerPage::OnInfoUpdated()", [&] {
    RemoveFromWaiting(m_waitingLabels, label);
    CheckWaiting();
  });
}

void CZOLServerPage::SetFileChanged(DWORD flag) {
  Guarded("CZOLServerPage::SetFileChanged()", [&] {
    if (IsTemplate != 0) {
      m_fileChanged = flag;
      return;
    }
    FileImport(SourceRoot);
    BuildPackets();
    NotifyPageUpdated();
  });
}
