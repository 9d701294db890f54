// zolclient: receives the page carousel and writes the pages into a folder.
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "client/ClientOptions.h"
#include "client/ClientRun.h"
#include "frame/KVTException.h"

namespace {

extern "C" void OnStopSignal(int) { zolclient::RequestClientStop(); }

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  zolclient::ClientOptions options;
  std::string error;
  try {
    if (!zolclient::ParseClientOptions(arguments, options, error)) {
      std::cerr << "zolclient: " << error << std::endl;
      return zolclient::kExitBadArgument;
    }
    if (options.Help) {
      std::cout << zolclient::ClientUsage();
      return zolclient::kExitDone;
    }
    std::signal(SIGINT, OnStopSignal);
    std::signal(SIGTERM, OnStopSignal);
    return zolclient::RunClient(options, std::cout, std::cerr);
  } catch (CKVTException* e) {
    std::cerr << "zolclient: failure in " << e->Describe() << std::endl;
    delete e;
    return zolclient::kExitFailed;
  }
}
