// Numbers put into the literal HTML fragments of the administration pages, the way
// printf does.
#pragma once

#include <string>

// printf into a string of any length.
std::string HTMLFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
