#include "site/ZOLServerInclude.h"

#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"
#include "site/ZOLServerPage.h"
#include "site/xml/XmlDocument.h"

BOOL CZOLServerInclude::ZOLImport(const std::string& text) {
  return Guarded("CZOLServerInclude::ZOLImport()", [&]() -> BOOL {
    CXmlDocument document;
    if (!document.Parse(text) || !document.FindElement("zol_include")) return FALSE;
    m_file = document.GetAttribute("file");
    m_path = document.GetAttribute("path");
    return m_file.empty() ? FALSE : TRUE;
  });
}

std::string CZOLServerInclude::ZOLExport() const {
  return Guarded("CZOLServerInclude::ZOLExport()", [&]() -> std::string {
    if (m_target == nullptr) return "";
    return "<zol_include pageid='" + std::to_string(wire::PageNumber(m_target->GetPageKey())) + "'/>";
  });
}

namespace {

// How many includes are being expanded on this thread right now.
thread_local int expansionDepth = 0;

class ExpansionLevel {
 public:
  ExpansionLevel() { ++expansionDepth; }
  ExpansionLevel(const ExpansionLevel&) = delete;
  ExpansionLevel& operator=(const ExpansionLevel&) = delete;
  ~ExpansionLevel() { --expansionDepth; }
};

}  // namespace

std::string CZOLServerInclude::HTMLExport(const CParameters& clockParameters) const {
  return Guarded("CZOLServerInclude::HTMLExport()", [&]() -> std::string {
    // A cycle of includes is fine on the wire but would expand for ever here.
    if (m_target == nullptr || expansionDepth >= kMaxExpansionDepth) {
      return "Failed to include page (" + m_path + m_file + ").";
    }
    ExpansionLevel level;
    return m_target->HTMLExport(clockParameters);
  });
}
