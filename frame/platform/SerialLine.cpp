#include "frame/platform/SerialLine.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "frame/platform/SerialRate.h"

namespace platform {

namespace {

bool SpeedOf(std::uint32_t baudRate, speed_t& speed) {
  static const std::map<std::uint32_t, speed_t> speeds = {
      {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
      {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
      {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
      {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
      {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
      {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000}};
  const auto found = speeds.find(baudRate);
  if (found == speeds.end()) return false;
  speed = found->second;
  return true;
}

int OpenDevice(const std::string& device, int access) {
  int handle;
  do {
    handle = open(device.c_str(), access | O_NOCTTY | O_CLOEXEC);
  } while (handle < 0 && errno == EINTR);
  return handle;
}

}  // namespace

int OpenSerialForWriting(const std::string& device) { return OpenDevice(device, O_WRONLY); }

int OpenSerialForReading(const std::string& device) { return OpenDevice(device, O_RDONLY); }

int OpenSerialForReadWrite(const std::string& device, SerialOpenResult& result) {
  const int handle = OpenDevice(device, O_RDWR | O_NONBLOCK);
  if (handle >= 0) {
    result = SerialOpenResult::Opened;
  } else if (errno == EACCES || errno == EBUSY || errno == EPERM) {
    result = SerialOpenResult::InUse;
  } else {
    result = SerialOpenResult::NotPresent;
  }
  return handle;
}

bool ConfigureSerialLine(int device, std::uint32_t baudRate, int parityIndex, int dataBits, int stopBitsIndex) {
  termios settings{};
  if (tcgetattr(device, &settings) != 0) return false;
  cfmakeraw(&settings);
  if (baudRate == 0) return false;  // a rate of 0 hangs the line up
  // A rate with a constant of its own goes the usual way; any other goes to the driver
  // as a number once the rest is set.
  speed_t speed = 0;
  const bool standard = SpeedOf(baudRate, speed);
  if (standard && (cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0)) return false;
  // No separate input rate: one left from a rate set as a number would stay otherwise.
  settings.c_cflag &= ~static_cast<tcflag_t>(CIBAUD);

  settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE);
  switch (dataBits) {
    case 5: settings.c_cflag |= CS5; break;
    case 6: settings.c_cflag |= CS6; break;
    case 7: settings.c_cflag |= CS7; break;
    default: settings.c_cflag |= CS8; break;
  }
  settings.c_cflag &= ~static_cast<tcflag_t>(PARENB | PARODD | CMSPAR);
  switch (parityIndex) {
    case 1: settings.c_cflag |= PARENB; break;
    case 2: settings.c_cflag |= PARENB | PARODD; break;
    case 3: settings.c_cflag |= PARENB | PARODD | CMSPAR; break;
    case 4: settings.c_cflag |= PARENB | CMSPAR; break;
    default: break;
  }
  // One and a half stop bits do not exist here; they are taken as two.
  if (stopBitsIndex == 0) {
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
  } else {
    settings.c_cflag |= CSTOPB;
  }
  settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
  settings.c_cflag |= CLOCAL | CREAD;
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  if (tcsetattr(device, TCSANOW, &settings) != 0) return false;
  return standard || SetSerialRateExactly(device, baudRate);
}

std::uint32_t SerialBaudRate(int device) { return ReadSerialRate(device); }

void PurgeSerialOutput(int device) { tcflush(device, TCOFLUSH); }

long SerialOutputQueued(int device) {
  int queued = 0;
  if (ioctl(device, TIOCOUTQ, &queued) != 0) return -1;
  return queued;
}

long WriteSerial(int device, const void* data, std::size_t length) {
  ssize_t written;
  do {
    written = write(device, data, length);
  } while (written < 0 && errno == EINTR);
  return static_cast<long>(written);
}

long ReadSerial(int device, void* data, std::size_t length, int timeoutMilliseconds) {
  pollfd entry{};
  entry.fd = device;
  entry.events = POLLIN;
  int ready;
  do {
    ready = poll(&entry, 1, timeoutMilliseconds);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) return -1;
  if (ready == 0) return 0;
  ssize_t got;
  do {
    got = read(device, data, length);
  } while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
}

void CloseSerial(int device) {
  if (device >= 0) close(device);
}

bool OpenPseudoTerminal(int& controller, int& device, std::string& deviceName) {
  char name[256] = {0};
  termios raw{};
  cfmakeraw(&raw);
  if (openpty(&controller, &device, name, &raw, nullptr) != 0) return false;
  fcntl(controller, F_SETFD, FD_CLOEXEC);
  fcntl(device, F_SETFD, FD_CLOEXEC);
  deviceName = name;
  return true;
}

}  // namespace platform
