// zolhost: runs the ZOL Server module on its own, as the installation's host would.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "frame/platform/Paths.h"
#include "frame/platform/Signals.h"
#include "frame/platform/Interfaces.h"
#include "host/DataManagerPeer.h"
#include "host/ModuleHost.h"

int main(int argc, char** argv) {
  platform::BlockTerminationSignals();
  std::string error;
  const auto options = ParseHostOptions(std::vector<std::string>(argv + 1, argv + argc), error);
  if (!options) {
    std::fprintf(stderr, "zolhost: %s\n", error.c_str());
    return 2;
  }
  if (options->Help) {
    std::fputs(HostUsage().c_str(), stdout);
    return 0;
  }
  if (!platform::DirectoryExists(options->ApplicationDirectory)) {
    std::fprintf(stderr, "zolhost: application directory %s does not exist\n", options->ApplicationDirectory.c_str());
    return 2;
  }

  CModuleHost host(*options);
  if (!options->RaceFile.empty()) {
    auto dataManager = std::make_unique<CDataManagerPeer>(platform::LocalIPv4Address());
    if (!dataManager->LoadRace(options->RaceFile, error)) {
      std::fprintf(stderr, "zolhost: %s\n", error.c_str());
      return 2;
    }
    host.AddPeer(std::move(dataManager));
  }
  if (!host.Load()) {
    std::fprintf(stderr, "zolhost: %s\n", host.Error().c_str());
    return 2;
  }
  const ModuleInformation& info = host.Information();
  const DWORD version = info.Version;
  std::fprintf(stderr, "zolhost: module \"%.64s\", class %u, version %u.%u.%u\n", info.ModuleName,
               static_cast<unsigned>(info.ModuleClass), version >> 24, (version >> 16) & 0xFF, version & 0xFFFF);
  std::fprintf(stderr, "zolhost: application directory %s\n", options->ApplicationDirectory.c_str());
  if (!options->RaceFile.empty()) {
    std::fprintf(stderr, "zolhost: data manager stand-in plays %s\n", options->RaceFile.c_str());
  }

  if (!host.Start()) {
    std::fprintf(stderr, "zolhost: %s\n", host.Error().c_str());
    return 2;
  }
  const int signal = platform::WaitForTerminationSignal();
  std::fprintf(stderr, "zolhost: signal %d, stopping\n", signal);
  host.Stop();
  std::fprintf(stderr, "zolhost: stopped after %llu timer ticks\n", static_cast<unsigned long long>(host.TimerTicks()));
  return 0;
}
