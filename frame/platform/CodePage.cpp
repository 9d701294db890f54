#include "frame/platform/CodePage.h"

#include <errno.h>
#include <iconv.h>

#include <cstring>

namespace platform {

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr const char* kDefaultCodePage = "CP1252";

// One open converter per thread and direction, kept for the code page last asked for:
// opening a converter loads tables, and a table import converts every cell.
class ConverterCache {
 public:
  enum class Direction { FromCodePage, ToCodePage };
  explicit ConverterCache(Direction direction, const char* unicode) : Way(direction), Unicode(unicode) {}
  ~ConverterCache() { Close(); }

  iconv_t Get(const std::string& codePage) {
    if (Handle != Invalid() && Name == codePage) return Handle;
    Close();
    Handle = Open(codePage.c_str());
    if (Handle == Invalid()) Handle = Open(kDefaultCodePage);
    Name = codePage;
    return Handle;
  }

 private:
  static iconv_t Invalid() { return reinterpret_cast<iconv_t>(-1); }
  iconv_t Open(const char* codePage) const {
    return Way == Direction::FromCodePage ? iconv_open(Unicode, codePage) : iconv_open(codePage, Unicode);
  }
  void Close() {
    if (Handle != Invalid()) iconv_close(Handle);
    Handle = Invalid();
  }

  Direction Way;
  const char* Unicode;
  std::string Name;
  iconv_t Handle = Invalid();
};

thread_local ConverterCache t_Converters(ConverterCache::Direction::FromCodePage, "UTF-16LE");
thread_local ConverterCache t_ToCodePage(ConverterCache::Direction::ToCodePage, "UTF-8");

// How many bytes at `at` (of `left`) one "?" stands for: a lead byte with the
// continuation bytes that follow it, as many as it announces; a stray byte alone.
std::size_t Utf8SequenceLength(const char* at, std::size_t left) {
  const auto lead = static_cast<unsigned char>(at[0]);
  std::size_t length = 1;
  if ((lead & 0xE0) == 0xC0) {
    length = 2;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
  }
  std::size_t taken = 1;
  while (taken < length && taken < left && (static_cast<unsigned char>(at[taken]) & 0xC0) == 0x80) ++taken;
  return taken;
}

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

std::string Utf8ToCodePage(const std::string& codePage, const std::string& text, std::size_t* replaced) {
  std::size_t question = 0;
  std::string out;
  iconv_t converter = t_ToCodePage.Get(codePage.empty() ? kDefaultCodePage : codePage);
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    // No converter at all on this system: ASCII passes, every other character is "?".
    for (std::size_t at = 0; at < text.size();) {
      const auto lead = static_cast<unsigned char>(text[at]);
      if (lead < 0x80) {
        out += static_cast<char>(lead);
        ++at;
      } else {
        out += '?';
        ++question;
        at += Utf8SequenceLength(text.data() + at, text.size() - at);
      }
    }
    if (replaced != nullptr) *replaced = question;
    return out;
  }
  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  char* in = const_cast<char*>(text.data());
  std::size_t inLeft = text.size();
  char bytes[512];
  while (inLeft > 0) {
    char* outBytes = bytes;
    std::size_t outLeft = sizeof bytes;
    const std::size_t result = iconv(converter, &in, &inLeft, &outBytes, &outLeft);
    const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
    out.append(bytes, sizeof bytes - outLeft);
    if (error == EILSEQ || error == EINVAL) {
      // A character the code page cannot hold, or no valid UTF-8: one "?" for it.
      out += '?';
      ++question;
      const std::size_t skip = Utf8SequenceLength(in, inLeft);
      in += skip;
      inLeft -= skip;
      iconv(converter, nullptr, nullptr, nullptr, nullptr);
    } else if (error != 0 && error != E2BIG) {
      break;
    }
  }
  // A stateful code page ends in its initial shift state.
  char* outBytes = bytes;
  std::size_t outLeft = sizeof bytes;
  iconv(converter, nullptr, nullptr, &outBytes, &outLeft);
  out.append(bytes, sizeof bytes - outLeft);
  if (replaced != nullptr) *replaced = question;
  return out;
}

}  // namespace platform
