// The example application directory as the process tests run it: a copy whose TCP port
// is a free one, so that tests running side by side do not meet; and the race file's
// competitor names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "testing/TempDir.h"

// The example application directory, copied into `appdir`, with its TCP port moved to
// `port`; false when the settings could not be changed.
bool CopyExamples(const TempDir& appdir, std::uint16_t port);

// The competitors' full names ("First Last", or the last name alone) of a race file.
std::vector<std::string> RaceCompetitorNames(const std::string& raceFile);

std::string ReadWholeFile(const std::string& path);

inline const std::string kExampleFolder = std::string(ZOL_SOURCE_DIR) + "/examples";
inline const std::string kExampleRace = kExampleFolder + "/race.json";
