#include "site/xml/CodePageText.h"

#include <memory>

#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/CodePage.h"
#include "site/xml/XmlText.h"

std::string Utf16ToUtf8(const char16_t* units, std::size_t count) {
  return Guarded("Utf16ToUtf8()", [&] {
    std::string out;
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      DWORD code = units[i];
      if (code >= 0xD800 && code <= 0xDBFF) {
        if (i + 1 == count) break;
        const DWORD low = units[i + 1];
        if (low >= 0xDC00 && low <= 0xDFFF) {
          code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        } else {
          code = 0xFFFD;
        }
      } else if (code >= 0xDC00 && code <= 0xDFFF) {
        code = 0xFFFD;
      }
      AppendUtf8(out, code);
    }
    return out;
  });
}

std::string CodePageToUtf8(const std::string& codePage, const std::string& text) {
  return Guarded("CodePageToUtf8()", [&] {
    // Up to 255 characters the units stay on the stack.
    constexpr std::size_t kStackUnits = 255;
    char16_t stackUnits[kStackUnits];
    std::unique_ptr<char16_t[]> heapUnits;
    char16_t* units = stackUnits;
    if (text.size() > kStackUnits) {
      heapUnits = std::make_unique<char16_t[]>(text.size());
      units = heapUnits.get();
    }
    const std::size_t count = platform::CodePageToUtf16(codePage.empty() ? "CP1252" : codePage,
                                                        text.data(), text.size(), units,
                                                        text.size());
    return Utf16ToUtf8(units, count);
  });
}

std::string LocalToUtf8(const std::string& text) {
  return Guarded("LocalToUtf8()", [&] {
    const CPackage* package = GetPackage();
    return CodePageToUtf8(package ? package->CodePage : std::string(), text);
  });
}
