// Writes received pages into one output folder at their path and name, and never
// anywhere else: a location that could leave the folder is refused. Each page has one
// file: when a page comes under another path or name, its old file goes. What the files
// hold together stays within a limit; past it nothing more is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "client/PageAssembler.h"

namespace zolclient {

// What the files written under the output folder may hold together, unless told otherwise.
inline constexpr std::uint64_t kDefaultMaxBytes = std::uint64_t{1} << 30;

enum class WriteResult { Written, Refused, Failed, OverLimit };

struct WriteCounters {
  std::uint64_t Written = 0;
  std::uint64_t Refused = 0;  // unsafe path or name, or a symbolic link on the way
  std::uint64_t Failed = 0;   // the file system said no
  std::uint64_t InformationWritten = 0;  // information files of sites, not counted above
  std::uint64_t OverLimit = 0;  // pages and information files not written for the byte limit
  std::uint64_t Removed = 0;    // old files of pages that came under another path or name
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
  // `maxBytes`: what the files this writer keeps may hold together. A write that would take
  // them beyond it is not done, and from then on nothing more is written.
  explicit CPageWriter(std::string outputFolder, std::uint64_t maxBytes = kDefaultMaxBytes);

  // Creates the output folder if needed; false when that is impossible.
  bool Prepare(std::string& error);

  WriteResult Write(const ReceivedPage& page);
  // Writes `text` as InformationFileName(site) at the top of the folder.
  WriteResult WriteInformation(DWORD siteNumber, const std::string& text);

  const WriteCounters& Counters() const { return Stats; }
  const std::string& OutputFolder() const { return Folder; }
  std::uint64_t MaxBytes() const { return Limit; }
  // What the files written and kept by this writer hold now.
  std::uint64_t BytesHeld() const { return HeldBytes; }
  // True once a write was turned down for the limit: nothing is written any more.
  bool LimitReached() const { return Full; }

 private:
  // Writes the bytes at a location already found safe for the file of `owner` (a page or
  // a site's information), then removes the owner's old file if it stood elsewhere.
  // Counts only what went wrong.
  WriteResult WriteFor(std::uint64_t owner, const std::string& relative, const BYTE* data, std::size_t size);
  WriteResult WriteAt(const std::string& relative, const BYTE* data, std::size_t size);
  // Removes a file this writer wrote and no owner keeps any more, and folders left empty.
  void RemoveAt(const std::string& relative);

  std::string Folder;
  std::uint64_t Limit;
  std::uint64_t HeldBytes = 0;
  bool Full = false;
  std::map<std::string, std::uint64_t> Held;      // location -> bytes of the file written there
  std::map<std::uint64_t, std::string> Locations;  // owner -> location of its file
  WriteCounters Stats;
};

}  // namespace zolclient
