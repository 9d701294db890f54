#include "site/ZOLServerPage.h"

#include <cstdio>
#include <cstdlib>

#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"
#include "site/ElementEndScan.h"
#include "site/ZOLServerInclude.h"
#include "site/xml/XmlDocument.h"

namespace {

bool IsTagNameEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>' || c == '/'; }

// Reads the marker's number with its format; false when the chunk isn't that marker.
bool ReadMarker(const std::string& chunk, const char* format, long& number) {
  return std::sscanf(chunk.c_str(), format, &number) == 1;
}

}  // namespace

CZOLServerPage::CZOLServerPage(DWORD siteId, DWORD pageNumber, DWORD level, DWORD repeat, const std::string& path,
                               const std::string& file)
    : COutputPage(siteId, pageNumber, level, repeat, path, file) {
  Guarded("CZOLServerPage::CZOLServerPage()", [&] {
    // Tables and labels have no handler yet: their tags stay in the page as literal text.
    m_tagHandlers["include"] = &CZOLServerPage::ZOLImportInclude;
  });
}

CZOLServerPage::~CZOLServerPage() {
  for (auto& entry : m_includes) delete entry.second;
  m_includes.clear();
}

BOOL CZOLServerPage::Initialize(CRMComm* comm, int eventId, const std::string& rootDir, int runId,
                                const std::string& content) {
  return Guarded("CZOLServerPage::Initialize()", [&]() -> BOOL {
    Clear();
    m_comm = comm;
    m_eventId = eventId;
    m_runId = runId;
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
    m_waitingTables.clear();
    m_waitingLabels.clear();
    for (auto& entry : m_includes) delete entry.second;
    m_includes.clear();
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
      long number = 0;
      if (chunk.find("#TABLE#") != std::string::npos || chunk.find("#LABEL#") != std::string::npos) {
        // No table or label objects exist on this page: their markers give no output.
        continue;
      }
      if (chunk.find("#INCLUDE#") != std::string::npos) {
        if (!ReadMarker(chunk, "#INCLUDE#%ld", number)) continue;
        const auto include = m_includes.find(number);
        if (include != m_includes.end()) out += include->second->ZOLExport();
        continue;
      }
      out += chunk;
    }
    out += "</zol>";
    Data.assign(out.begin(), out.end());
    Data.push_back(0);
  });
}

std::string CZOLServerPage::HTMLExport(const CParameters& clockParameters) {
  return Guarded("CZOLServerPage::HTMLExport()", [&]() -> std::string {
    std::string out;
    for (const std::string& chunk : m_chunks) {
      long number = 0;
      if (chunk.find("#TABLE#") != std::string::npos || chunk.find("#LABEL#") != std::string::npos) continue;
      if (chunk.find("#INCLUDE#") != std::string::npos) {
        if (!ReadMarker(chunk, "#INCLUDE#%ld", number)) continue;
        const auto include = m_includes.find(number);
        if (include != m_includes.end()) out += include->second->HTMLExport(clockParameters);
        continue;
      }
      out += chunk;
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
    ZOLExport();
    NotifyPageUpdated();
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
