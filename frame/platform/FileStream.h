// A file read or written piece by piece through a descriptor, for files too long to
// hold whole (a recording of a receiving client). Paths may use "\\" separators.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

inline constexpr int kNoFile = -1;

// Makes `path` a new empty regular file (an old one is replaced) and opens it for
// writing. kNoFile on failure; LastError() tells why.
int CreateFileForWriting(const std::string& path);

// Opens an existing regular file for reading. kNoFile when it cannot be opened or is
// no regular file (a folder, a pipe, a device); LastError() tells why.
int OpenFileForReading(const std::string& path);

// Writes all `size` bytes at the file's end position. False when any of them could not
// be written (LastError() tells why); some may have been.
bool WriteToFile(int file, const void* data, std::size_t size);

// Reads up to `size` bytes: the count read, 0 at the end of the file, -1 on failure.
long ReadFromFile(int file, void* data, std::size_t size);

// Cuts the file to `size` bytes and moves the write position there.
bool TruncateFile(int file, std::uint64_t size);

void CloseFile(int file);

}  // namespace platform
