// The fixed-width names the whole module uses for its wire and record fields.
#pragma once

#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using INT64 = std::int64_t;
using BOOL = int;

// Microseconds; the time of day in it is local time counted from 1970.
using KVTTIME = std::int64_t;

inline constexpr KVTTIME KVTTIME_NULL = 0x7FFFFFFFFFFFFFFFLL;
inline constexpr KVTTIME KVTTIME_DAY = 86400000000LL;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
