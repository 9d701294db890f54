// Finds where a markup element ends without parsing it, by counting tag openings and
// closings. Used to cut the special tags out of a page template.
#pragma once

#include <string>

// The offset just behind the end of the element that starts `text`, or std::string::npos
// when the element is not closed. A "/" or a closing tag's last character directly
// before ">" closes one level; a ">" alone never closes anything.
std::size_t FindElementEnd(const std::string& text);
