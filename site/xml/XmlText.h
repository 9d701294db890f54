// Text forms of the markup: decoding of character references, escaping, and the
// CDATA form of a text.
#pragma once

#include <string>

#include "frame/Types.h"

// Decodes "&lt;", "&amp;", "&gt;", "&apos;", "&quot;", "&#digits;" and "&#xhex;" (at
// most 7 characters between "&#" and ";", a code from 1 to 0x10FFFF that is no
// surrogate, written as UTF-8). Any other "&" stays as it is.
std::string XmlDecode(const char* text, std::size_t length);
inline std::string XmlDecode(const std::string& text) { return XmlDecode(text.data(), text.size()); }

// Escapes "<", "&", ">"; in an attribute value also "'" and '"'.
std::string XmlEscape(const std::string& text, bool inAttribute);

// The text as one or more CDATA sections: a "]]>" inside it is written as
// "]]]]><![CDATA[>", which ends the section between the brackets and the ">".
std::string XmlCData(const std::string& text);

// Appends the UTF-8 form of `code` (at most 0x10FFFF) to `out`.
void AppendUtf8(std::string& out, DWORD code);
