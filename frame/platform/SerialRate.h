// The line rate through the kernel's own interface, which takes any rate in bits per
// second, not only those with a termios constant. Its header clashes with <termios.h>,
// so it lives in a translation unit of its own.
#pragma once

#include <cstdint>

namespace platform {

// Sets `baudRate` both ways, leaving every other setting of the line as it is. False
// when the driver refuses it or settles more than 3% away from it (farther than two
// ends of a line can tolerate).
bool SetSerialRateExactly(int device, std::uint32_t baudRate);

// The output rate the line is set to, in bits per second; 0 when unknown.
std::uint32_t ReadSerialRate(int device);

}  // namespace platform
