#include "frame/platform/SerialRate.h"

// Not <termios.h>: this header brings the kernel's own termios structures.
#include <asm/termbits.h>
#include <sys/ioctl.h>

#include <cerrno>

namespace platform {

namespace {

int Control(int device, unsigned long request, termios2* settings) {
  int result;
  do {
    result = ioctl(device, request, settings);
  } while (result < 0 && errno == EINTR);
  return result;
}

}  // namespace

bool SetSerialRateExactly(int device, std::uint32_t baudRate) {
  if (baudRate == 0) return false;  // a rate of 0 hangs the line up
  termios2 settings{};
  if (Control(device, TCGETS2, &settings) != 0) return false;
  settings.c_cflag &= ~static_cast<tcflag_t>(CBAUD | (CBAUD << IBSHIFT));
  settings.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
  settings.c_ospeed = baudRate;
  settings.c_ispeed = baudRate;
  if (Control(device, TCSETS2, &settings) != 0) return false;
  // A driver that cannot make the rate picks another one and says so in what it keeps.
  const std::uint32_t kept = ReadSerialRate(device);
  const std::uint64_t difference = kept > baudRate ? kept - baudRate : baudRate - kept;
  return difference * 100 <= static_cast<std::uint64_t>(baudRate) * 3;
}

std::uint32_t ReadSerialRate(int device) {
  termios2 settings{};
  if (Control(device, TCGETS2, &settings) != 0) return 0;
  return settings.c_ospeed;
}

}  // namespace platform
