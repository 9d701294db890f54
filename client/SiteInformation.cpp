#include "client/SiteInformation.h"

#include <cstring>
#include <utility>

#include "frame/KVTException.h"

namespace zolclient {

namespace {

// Reads the record front to back; every read says whether the bytes were there.
class RecordReader {
 public:
  RecordReader(const BYTE* data, std::size_t length) : Data(data), Length(length) {}

  bool ReadDword(DWORD& value) {
    if (Length - Offset < sizeof value) return false;
    std::memcpy(&value, Data + Offset, sizeof value);  // little-endian host, as the writer
    Offset += sizeof value;
    return true;
  }

  bool ReadInt(int& value) {
    DWORD raw = 0;
    if (!ReadDword(raw)) return false;
    std::memcpy(&value, &raw, sizeof value);
    return true;
  }

  bool ReadString(std::string& value) {
    DWORD size = 0;
    if (!ReadDword(size)) return false;
    if (size > Length - Offset) return false;
    value.assign(reinterpret_cast<const char*>(Data + Offset), size);
    Offset += size;
    return true;
  }

  // A parameter block: count, then count pairs of strings. Later pairs win over earlier
  // ones of the same key, as when the module merges a block into its table.
  bool ReadBlock(std::map<std::string, std::string>& entries, const char* what, std::string& why) {
    int count = 0;
    if (!ReadInt(count)) {
      why = std::string("the count of the ") + what + " is cut off";
      return false;
    }
    if (count < 0) {
      why = std::string("the count of the ") + what + " is negative";
      return false;
    }
    for (int i = 0; i < count; ++i) {
      std::string key;
      std::string value;
      if (!ReadString(key) || !ReadString(value)) {
        why = std::string("the ") + what + " end before their count of " + std::to_string(count);
        return false;
      }
      entries[key] = value;
    }
    return true;
  }

  std::size_t Left() const { return Length - Offset; }

 private:
  const BYTE* Data;
  std::size_t Length;
  std::size_t Offset = 0;
};

}  // namespace

bool DecodeSiteInformation(const BYTE* data, std::size_t length, SiteInformation& information, std::string* reason) {
  return Guarded("DecodeSiteInformation()", [&] {
    std::string why;
    SiteInformation decoded;
    RecordReader reader(data, data == nullptr ? 0 : length);
    bool good = false;
    if (!reader.ReadDword(decoded.BuildTime)) {
      why = "shorter than the build time";
    } else if (reader.ReadBlock(decoded.Clock, "clock parameters", why) &&
               reader.ReadBlock(decoded.SiteParameters, "site parameters", why)) {
      if (reader.Left() != 0) {
        why = std::to_string(reader.Left()) + " bytes after the site parameters";
      } else {
        good = true;
      }
    }
    if (!good) {
      if (reason != nullptr) *reason = why;
      return false;
    }
    decoded.HasSiteParameters = !decoded.SiteParameters.empty();
    information = std::move(decoded);
    return true;
  });
}

std::optional<std::size_t> SitePageCount(const std::map<std::string, std::string>& siteParameters) {
  return Guarded("SitePageCount()", [&]() -> std::optional<std::size_t> {
    const auto found = siteParameters.find("pagecount");
    if (found == siteParameters.end()) return std::nullopt;
    const std::string& text = found->second;
    if (text.empty() || text.size() > 9) return std::nullopt;
    std::size_t value = 0;
    for (char c : text) {
      if (c < '0' || c > '9') return std::nullopt;
      value = value * 10 + static_cast<std::size_t>(c - '0');
    }
    return value;
  });
}

}  // namespace zolclient
