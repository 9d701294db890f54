// The named-parameter block that runs and merges carry: int count, then count pairs of
// name and value strings. Reading merges into the table (a name present gets the new
// value); writing walks the table in key order.
#pragma once

#include <map>
#include <string>

#include "frame/TTBuffer.h"

using ParameterTable = std::map<std::string, std::string>;

void ReadParameterBlock(CTTBuffer& buffer, ParameterTable& table);
void WriteParameterBlock(CTTBuffer& buffer, const ParameterTable& table);
