// Conversion of text between a named code page and Unicode (16-bit code units, or UTF-8),
// through the C library's character set converter.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// Converts `length` bytes of `text`, written in `codePage` (a converter name such as
// "CP1252"), into UTF-16 code units in `out`, which has room for `capacity` units.
// A byte sequence that the code page does not define gives U+FFFD and the conversion
// goes on behind it. An unknown code page is read as CP1252. Returns the number of
// units written; never more than `capacity` (`length` units always suffice).
std::size_t CodePageToUtf16(const std::string& codePage, const char* text, std::size_t length,
                            char16_t* out, std::size_t capacity);

// Converts UTF-8 `text` into the code page `codePage` (a converter name such as "CP1252"
// or "UTF-8"). A character the code page cannot hold, and a byte that begins no valid
// UTF-8 sequence, become "?". An unknown code page is written as CP1252. When `replaced`
// is given, it receives the number of "?" put in for such characters.
std::string Utf8ToCodePage(const std::string& codePage, const std::string& text,
                           std::size_t* replaced = nullptr);

}  // namespace platform
