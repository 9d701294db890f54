// Conversion of text in a named code page into 16-bit code units (UTF-16), through the
// C library's character set converter.
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

}  // namespace platform
