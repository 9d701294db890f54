// Text of the local code page turned into UTF-8, the encoding of pages on the wire.
#pragma once

#include <string>

// Converts `text` from the code page `codePage` (default CP1252 when empty) to UTF-8.
std::string CodePageToUtf8(const std::string& codePage, const std::string& text);

// Converts `text` from the host's code page (the package's CodePage, CP1252 without a
// package) to UTF-8.
std::string LocalToUtf8(const std::string& text);

// UTF-16 code units to UTF-8: a pair of surrogates is combined into one code point; a
// high surrogate at the end ends the conversion; a surrogate without its partner gives
// U+FFFD.
std::string Utf16ToUtf8(const char16_t* units, std::size_t count);
