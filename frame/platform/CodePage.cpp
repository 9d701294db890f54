#include "frame/platform/CodePage.h"

#include <errno.h>
#include <iconv.h>

#include <cstring>

namespace platform {

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr const char* kDefaultCodePage = "CP1252";

// One open converter per thread, kept for the code page last asked for: opening a
// converter loads tables, and a table import converts every cell.
class ConverterCache {
 public:
  ~ConverterCache() { Close(); }

  iconv_t Get(const std::string& codePage) {
    if (Handle != Invalid() && Name == codePage) return Handle;
    Close();
    Handle = iconv_open("UTF-16LE", codePage.c_str());
    if (Handle == Invalid()) Handle = iconv_open("UTF-16LE", kDefaultCodePage);
    Name = codePage;
    return Handle;
  }

 private:
  static iconv_t Invalid() { return reinterpret_cast<iconv_t>(-1); }
  void Close() {
    if (Handle != Invalid()) iconv_close(Handle);
    Handle = Invalid();
  }

  std::string Name;
  iconv_t Handle = Invalid();
};

thread_local ConverterCache t_Converters;

}  // namespace

std::size_t CodePageToUtf16(const std::string& codePage, const char* text, std::size_t length,
                            char16_t* out, std::size_t capacity) {
  iconv_t converter = t_Converters.Get(codePage.empty() ? kDefaultCodePage : codePage);
  std::size_t written = 0;
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    // No converter at all on this system: the bytes are taken as Latin-1.
    for (; written < length && written < capacity; ++written)
      out[written] = static_cast<unsigned char>(text[written]);
    return written;
  }
  iconv(converter, nullptr, nullptr, nullptr, nullptr);

  char* in = const_cast<char*>(text);
  std::size_t inLeft = length;
  // UTF-16LE bytes are collected here and turned into units, whatever the host's order.
  char bytes[512];
  while (inLeft > 0 && written < capacity) {
    char* outBytes = bytes;
    std::size_t room = capacity - written;
    std::size_t outLeft = room * 2 < sizeof bytes ? room * 2 : sizeof bytes;
    const std::size_t outStart = outLeft;
    const std::size_t result = iconv(converter, &in, &inLeft, &outBytes, &outLeft);
    const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
    const std::size_t produced = (outStart - outLeft) / 2;
    for (std::size_t i = 0; i < produced; ++i) {
      out[written++] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                             (static_cast<unsigned char>(bytes[2 * i + 1]) << 8));
    }
    if (error == EILSEQ || error == EINVAL) {
      // Undefined or cut-off sequence: one replacement unit, then on behind the byte.
      if (written < capacity) out[written++] = kReplacement;
      ++in;
      --inLeft;
      iconv(converter, nullptr, nullptr, nullptr, nullptr);
    } else if (error != 0 && (error != E2BIG || produced == 0)) {
      break;
    }
  }
  return written;
}

}  // namespace platform
