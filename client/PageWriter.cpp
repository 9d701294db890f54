#include "client/PageWriter.h"

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "frame/KVTException.h"

namespace zolclient {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> SplitComponents(const std::string& path) {
  std::vector<std::string> parts;
  std::string current;
  for (char c : path) {
    if (c == '/') {
      parts.push_back(current);
      current.clear();
    } else {
      current += c;
    }
  }
  parts.push_back(current);
  return parts;
}

bool HasForbiddenByte(const std::string& text) {
  return text.find('\\') != std::string::npos || text.find('\0') != std::string::npos;
}

// Whose file a location is: a page (by site and page number, whatever its level) or the
// information of a site.
std::uint64_t PageOwner(DWORD site, DWORD page) { return (static_cast<std::uint64_t>(site) << 9) | page; }
std::uint64_t InformationOwner(DWORD site) { return (std::uint64_t{1} << 32) | site; }

}  // namespace

bool SafeRelativeLocation(const std::string& path, const std::string& name, std::string& relative) {
  return Guarded("SafeRelativeLocation()", [&] {
    if (HasForbiddenByte(path) || HasForbiddenByte(name)) return false;
    if (!path.empty() && path[0] == '/') return false;
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) return false;
    relative.clear();
    for (const std::string& part : SplitComponents(path)) {
      if (part == "..") return false;
      if (part.empty() || part == ".") continue;
      relative += part;
      relative += '/';
    }
    relative += name;
    return true;
  });
}

std::string DisplayLocation(const std::string& path, const std::string& name) {
  if (path.empty()) return name;
  if (path.back() == '/') return path + name;
  return path + "/" + name;
}

CPageWriter::CPageWriter(std::string outputFolder, std::uint64_t maxBytes)
    : Folder(std::move(outputFolder)), Limit(maxBytes) {}

bool CPageWriter::Prepare(std::string& error) {
  return Guarded("CPageWriter::Prepare()", [&] {
    std::error_code code;
    fs::create_directories(Folder, code);
    if (!fs::is_directory(Folder, code)) {
      error = "cannot create output folder " + Folder;
      return false;
    }
    return true;
  });
}

std::string InformationFileName(DWORD siteNumber) { return "_site" + std::to_string(siteNumber) + ".info"; }

WriteResult CPageWriter::Write(const ReceivedPage& page) {
  return Guarded("CPageWriter::Write()", [&] {
    std::string relative;
    if (!SafeRelativeLocation(page.Record.Path, page.Record.Name, relative)) {
      ++Stats.Refused;
      return WriteResult::Refused;
    }
    const WriteResult result = WriteFor(PageOwner(page.SiteNumber, page.PageNumber), relative,
                                        page.Record.Data.data(), page.Record.Data.size());
    if (result == WriteResult::Written) ++Stats.Written;
    return result;
  });
}

WriteResult CPageWriter::WriteInformation(DWORD siteNumber, const std::string& text) {
  return Guarded("CPageWriter::WriteInformation()", [&] {
    const WriteResult result = WriteFor(InformationOwner(siteNumber), InformationFileName(siteNumber),
                                        reinterpret_cast<const BYTE*>(text.data()), text.size());
    if (result == WriteResult::Written) ++Stats.InformationWritten;
    return result;
  });
}

WriteResult CPageWriter::WriteFor(std::uint64_t owner, const std::string& relative, const BYTE* data,
                                  std::size_t size) {
  return Guarded("CPageWriter::WriteFor()", [&] {
    // The file written over, if this writer wrote it, gives its bytes back.
    const auto old = Held.find(relative);
    const std::uint64_t freed = old == Held.end() ? 0 : old->second;
    if (Full || HeldBytes - freed + size > Limit) {
      Full = true;
      ++Stats.OverLimit;
      return WriteResult::OverLimit;
    }
    const WriteResult result = WriteAt(relative, data, size);
    if (result != WriteResult::Written) return result;
    HeldBytes = HeldBytes - freed + size;
    Held[relative] = size;
    const auto previous = Locations.find(owner);
    if (previous == Locations.end()) {
      Locations.emplace(owner, relative);
      return result;
    }
    const std::string moved = previous->second;
    if (moved == relative) return result;
    previous->second = relative;
    // Another page may have come to the old location since; then the file is its own.
    for (const auto& [other, location] : Locations) {
      if (location == moved) return result;
    }
    RemoveAt(moved);
    return result;
  });
}

void CPageWriter::RemoveAt(const std::string& relative) {
  Guarded("CPageWriter::RemoveAt()", [&] {
    const auto held = Held.find(relative);
    if (held != Held.end()) {
      HeldBytes -= held->second;
      Held.erase(held);
    }
    std::error_code code;
    // As when writing: never through a link that someone else put on the way.
    fs::path directory = Folder;
    std::vector<fs::path> made;
    const std::vector<std::string> parts = SplitComponents(relative);
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      directory /= parts[i];
      const fs::file_status status = fs::symlink_status(directory, code);
      if (!fs::is_directory(status) || fs::is_symlink(status)) return;
      made.push_back(directory);
    }
    const fs::path target = directory / parts.back();
    const fs::file_status status = fs::symlink_status(target, code);
    if (!fs::is_regular_file(status) && !fs::is_symlink(status)) return;
    if (!fs::remove(target, code) || code) return;
    ++Stats.Removed;
    // Folders that held nothing else go with it, deepest first; a folder that still holds
    // something stays, and so do all above it.
    for (auto it = made.rbegin(); it != made.rend(); ++it) {
      if (!fs::is_empty(*it, code) || code) break;
      if (!fs::remove(*it, code) || code) break;
    }
  });
}

WriteResult CPageWriter::WriteAt(const std::string& relative, const BYTE* data, std::size_t size) {
  return Guarded("CPageWriter::WriteAt()", [&] {
    std::error_code code;
    // Walk down from the output folder; the client never makes links, so a link on the
    // way was put there by someone else and could lead out of the folder.
    fs::path directory = Folder;
    const std::vector<std::string> parts = SplitComponents(relative);
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      directory /= parts[i];
      const fs::file_status status = fs::symlink_status(directory, code);
      if (fs::is_symlink(status)) {
        ++Stats.Refused;
        return WriteResult::Refused;
      }
      if (!fs::exists(status)) {
        fs::create_directory(directory, code);
        if (code) {
          ++Stats.Failed;
          return WriteResult::Failed;
        }
      } else if (!fs::is_directory(status)) {
        ++Stats.Failed;
        return WriteResult::Failed;
      }
    }
    const fs::path target = directory / parts.back();
    const fs::file_status targetStatus = fs::symlink_status(target, code);
    if (fs::is_symlink(targetStatus)) {
      ++Stats.Refused;
      return WriteResult::Refused;
    }
    if (fs::exists(targetStatus) && !fs::is_regular_file(targetStatus)) {
      ++Stats.Failed;
      return WriteResult::Failed;
    }
    // Written beside the target and renamed over it, so a reader never sees half a page.
    const fs::path part = directory / ("." + parts.back() + ".zolclient-part");
    fs::remove(part, code);  // a leftover, or a link someone put there
    {
      std::ofstream out(part, std::ios::binary | std::ios::trunc);
      if (!out) {
        ++Stats.Failed;
        return WriteResult::Failed;
      }
      out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
      out.close();
      if (!out) {
        fs::remove(part, code);
        ++Stats.Failed;
        return WriteResult::Failed;
      }
    }
    fs::rename(part, target, code);
    if (code) {
      fs::remove(part, code);
      ++Stats.Failed;
      return WriteResult::Failed;
    }
    return WriteResult::Written;
  });
}

}  // namespace zolclient
