// Reading the tables of a page as it goes on the wire, for tests: the zol_table element
// of a type, its column types from the zol_rh heads and its rows' cell texts.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The whole zol_table element of that type, or nothing when the page has none.
inline std::optional<std::string> TableOf(const std::string& page, const std::string& type) {
  for (auto at = page.find("<zol_table"); at != std::string::npos; at = page.find("<zol_table", at + 1)) {
    const auto tagEnd = page.find('>', at);
    if (tagEnd == std::string::npos) break;
    if (page.substr(at, tagEnd - at).find("type=\"" + type + "\"") == std::string::npos) continue;
    const auto end = page.find("</zol_table>", tagEnd);
    if (end == std::string::npos) break;
    return page.substr(at, end + 12 - at);
  }
  return std::nullopt;
}

// The texts of the cells of the table's rows, row by row.
inline std::vector<std::vector<std::string>> RowsOf(const std::string& table) {
  std::vector<std::vector<std::string>> rows;
  for (auto row = table.find("<zol_rr"); row != std::string::npos; row = table.find("<zol_rr", row + 1)) {
    const auto rowEnd = table.find("</zol_rr>", row);
    if (rowEnd == std::string::npos) break;
    std::vector<std::string> cells;
    for (auto cell = table.find("<zol_rd", row); cell != std::string::npos && cell < rowEnd;
         cell = table.find("<zol_rd", cell + 1)) {
      const auto open = table.find('>', cell);
      const auto close = table.find("</zol_rd>", open);
      if (open == std::string::npos || close == std::string::npos) break;
      cells.push_back(table.substr(open + 1, close - open - 1));
    }
    rows.push_back(cells);
  }
  return rows;
}

// The column types of the table's heads in order ("position", "name", ...).
inline std::vector<std::string> ColumnTypesOf(const std::string& table) {
  std::vector<std::string> types;
  for (auto head = table.find("<zol_rh"); head != std::string::npos; head = table.find("<zol_rh", head + 1)) {
    const auto tagEnd = table.find('>', head);
    const std::string tag = table.substr(head, tagEnd - head);
    const auto type = tag.find("type=");
    if (type == std::string::npos || type + 6 >= tag.size()) continue;
    const char quote = tag[type + 5];
    const auto close = tag.find(quote, type + 6);
    types.push_back(tag.substr(type + 6, close - type - 6));
  }
  return types;
}

// The value a zol_label of that type shows, or nothing.
inline std::optional<std::string> LabelOf(const std::string& page, const std::string& type) {
  for (auto at = page.find("<zol_label"); at != std::string::npos; at = page.find("<zol_label", at + 1)) {
    const auto tagEnd = page.find('>', at);
    if (tagEnd == std::string::npos) break;
    if (page.substr(at, tagEnd - at).find("type=\"" + type + "\"") == std::string::npos) continue;
    if (page[tagEnd - 1] == '/') return std::string();
    const auto end = page.find("</zol_label>", tagEnd);
    if (end == std::string::npos) break;
    return page.substr(tagEnd + 1, end - tagEnd - 1);
  }
  return std::nullopt;
}
