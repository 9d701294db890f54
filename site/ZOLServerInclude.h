// An include of a page template: names another page of the site, which the client
// puts in place itself. On the wire only the target's page number is sent.
#pragma once

#include <string>

#include "frame/Types.h"

class CParameters;
class CZOLServerPage;

class CZOLServerInclude {
 public:
  // Includes nested deeper than this are not expanded for a browser.
  static constexpr int kMaxExpansionDepth = 32;

  explicit CZOLServerInclude(long id) : m_id(id) {}
  CZOLServerInclude(const CZOLServerInclude&) = delete;
  CZOLServerInclude& operator=(const CZOLServerInclude&) = delete;
  virtual ~CZOLServerInclude() = default;

  // Reads `file` (required, not empty) and `path` of a zol_include element. 1 or 0.
  BOOL ZOLImport(const std::string& text);
  // Empty while no target is known, else the target's page number in an include tag.
  std::string ZOLExport() const;
  // The target as a browser sees it, or a failure text naming the include.
  std::string HTMLExport(const CParameters& clockParameters) const;

  long GetId() const { return m_id; }
  const std::string& GetPath() const { return m_path; }
  const std::string& GetFile() const { return m_file; }
  CZOLServerPage* GetTarget() const { return m_target; }
  void SetTarget(CZOLServerPage* target) { m_target = target; }

 private:
  long m_id;
  std::string m_path;
  std::string m_file;
  CZOLServerPage* m_target = nullptr;
};
