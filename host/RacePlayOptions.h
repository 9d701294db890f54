// How the data manager stand-in plays the meeting of its race file.
#pragma once

#include <cstdint>

struct RacePlayOptions {
  // The race clock runs this many times faster than real time.
  double Speed = 1.0;
  // Seeds the simulation: the same seed and race file play the same meeting.
  std::uint32_t Seed = 1;
  // Starts the meeting again after its last run.
  bool Loop = false;
};
