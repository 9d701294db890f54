// Serial lines behind small functions named for their role. The sending port opens a
// device for writing, sets it raw, drops what the driver still holds before each
// packet, writes, and watches the driver's output queue until the packet is out; a receiving client opens one for reading. Devices are plain ints;
// -1 means none. Tests use a pseudo-terminal in place of a device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

inline constexpr int kNoDevice = -1;

enum class SerialOpenResult { Opened, NotPresent, InUse };

// Opens an existing device, without making it the controlling terminal.
int OpenSerialForWriting(const std::string& device);
int OpenSerialForReading(const std::string& device);
int OpenSerialForReadWrite(const std::string& device, SerialOpenResult& result);

// Raw mode, `baudRate` both ways, data bits, parity (index: 0 none, 1 even, 2 odd,
// 3 mark, 4 space), stop bits (index: 0 one, 1 one and a half, 2 two), no flow
// control of any kind. Any rate the driver takes works: one without a termios constant
// (250000, 31250) is set as a number. False when the driver refuses a value or settles
// on a rate more than 3% away; a rate of 0 is refused.
bool ConfigureSerialLine(int device, std::uint32_t baudRate, int parityIndex, int dataBits, int stopBitsIndex);
// The output baud rate the line is set to, as the driver keeps it; 0 when unknown.
std::uint32_t SerialBaudRate(int device);
// Drops whatever the driver still holds for sending.
void PurgeSerialOutput(int device);
// The bytes the driver holds that have not gone out on the line yet; -1 on error. A
// pseudo-terminal hands its bytes on at once and always says 0.
long SerialOutputQueued(int device);
// One write call; -1 on error.
long WriteSerial(int device, const void* data, std::size_t length);
// Waits up to `timeoutMilliseconds` for data, then one read call; 0 when none came,
// -1 on error.
long ReadSerial(int device, void* data, std::size_t length, int timeoutMilliseconds);
void CloseSerial(int device);

// A pseudo-terminal pair in raw mode: the module writes to the device named
// `deviceName`, the test reads from `controller`.
bool OpenPseudoTerminal(int& controller, int& device, std::string& deviceName);

}  // namespace platform
