#include "site/ZOLCell.h"

#include <array>
#include <utility>

#include "frame/KVTException.h"

namespace {

using Entity = std::pair<char, const char*>;

// Built once, at first use; the order is the order of replacement.
const std::array<Entity, 5>& Entities() {
  static const std::array<Entity, 5> entities = {
      Entity{'&', "&amp;"}, Entity{'<', "&lt;"}, Entity{'>', "&gt;"}, Entity{'\'', "&apos;"}, Entity{'"', "&quot;"}};
  return entities;
}

// Attribute values are written as they stand: a quote inside one is not escaped.
void AppendAttribute(std::string& out, const char* name, const std::string& value) {
  if (value.empty()) return;
  out += ' ';
  out += name;
  out += "='";
  out += value;
  out += '\'';
}

}  // namespace

std::string ZOLEscape(const std::string& text) {
  return Guarded("ZOLEscape()", [&]() -> std::string {
    std::string result = text;
    if (result.find_first_of("&<>'\"") == std::string::npos) return result;
    for (const auto& [character, entity] : Entities()) {
      const std::string replacement(entity);
      for (std::size_t at = result.find(character); at != std::string::npos;
           at = result.find(character, at + replacement.size())) {
        result.replace(at, 1, replacement);
      }
    }
    return result;
  });
}

CZOLCell::CZOLCell(std::string type) : m_type(std::move(type)) {}

std::string CZOLCell::ZOLExportColumn() const {
  return Guarded("CZOLCell::ZOLExportColumn", [&]() -> std::string {
    std::string out = "<zol_rh";
    AppendAttribute(out, "type", m_type);
    AppendAttribute(out, "url", m_url);
    out += '>';
    out += ZOLEscape(m_text);
    out += "</zol_rh>";
    return out;
  });
}

std::string CZOLCell::ZOLExportData() const {
  return Guarded("CZOLCell::ZOLExportData()", [&]() -> std::string {
    std::string out = "<zol_rd";
    AppendAttribute(out, "url", m_url);
    AppendAttribute(out, "flags", m_flags);
    AppendAttribute(out, "format", m_format);
    out += '>';
    out += ZOLEscape(m_text);
    out += "</zol_rd>";
    return out;
  });
}
