// Writes received pages into one output folder at their path and name, and never
// anywhere else: a location that could leave the folder is refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "client/PageAssembler.h"

namespace zolclient {

enum class WriteResult { Written, Refused, Failed };

struct WriteCounters {
  std::uint64_t Written = 0;
  std::uint64_t Refused = 0;  // unsafe path or name, or a symbolic link on the way
  std::uint64_t Failed = 0;   // the file system said no
  std::uint64_t InformationWritten = 0;  // information files of sites, not counted above
};

// The file that holds what the client knows of a site's information page: the page itself
// has no path and no name, and its content is binary.
std::string InformationFileName(DWORD siteNumber);

// The page's location relative to the output folder ("dir/sub/name"), or false when the
// path or name has a ".." component, a leading "/", a backslash or a NUL byte, or when the
// name is empty, "." or holds a "/". Empty and "." components of the path fall away.
bool SafeRelativeLocation(const std::string& path, const std::string& name, std::string& relative);

// "path/name" as the page is known on the wire, for messages.
std::string DisplayLocation(const std::string& path, const std::string& name);

class CPageWriter {
 public:
  explicit CPageWriter(std::string outputFolder);

  // Creates the output folder if needed; false when that is impossible.
  bool Prepare(std::string& error);

  WriteResult Write(const ReceivedPage& page);
  // Writes `text` as InformationFileName(site) at the top of the folder.
  WriteResult WriteInformation(DWORD siteNumber, const std::string& text);

  const WriteCounters& Counters() const { return Stats; }
  const std::string& OutputFolder() const { return Folder; }

 private:
  // Writes the bytes at a location already found safe; counts only what went wrong.
  WriteResult WriteAt(const std::string& relative, const BYTE* data, std::size_t size);

  std::string Folder;
  WriteCounters Stats;
};

}  // namespace zolclient
