// Text put into the HTML of the administration pages: numbers the way printf writes
// them, and every other value escaped for the place it lands.
#pragma once

#include <string>

// printf into a string of any length.
std::string HTMLFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Element text: & < > " ' become entities, so a value can neither open a tag nor, when
// it lands in an attribute by mistake, close the quotes.
std::string HtmlText(const std::string& value);
// The value of an attribute quoted with ' or ": the same escapes as element text.
std::string HtmlAttribute(const std::string& value);
// The content of a <textarea>: the same escapes, so "</textarea>" in a file stays text.
// The browser gives back the original characters when the form is sent.
std::string HtmlTextArea(const std::string& value);
// One value of a URL's query part: every byte but letters, digits and -._~ as %XX.
std::string UrlQueryValue(const std::string& value);
// A string in single quotes inside an inline script (an onclick): backslash-escaped
// quotes and < > & as \xNN, so it can end neither the string nor the element.
std::string ScriptString(const std::string& value);
