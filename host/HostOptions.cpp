#include "host/HostOptions.h"

#include <cstdlib>

#include "frame/platform/ProgramFiles.h"

// Where an installed zolhost finds the module, relative to its own folder; the install
// rules set it from the folders they install into.
#ifndef ZOL_INSTALLED_MODULE
#define ZOL_INSTALLED_MODULE "../lib/zolserver/libzolserver.so"
#endif

namespace {

bool ParseComMapping(const std::string& text, HostOptions& options) {
  const auto equals = text.find('=');
  if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) return false;
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (end != text.c_str() + equals || number < 1 || number > 255) return false;
  options.ComPorts[static_cast<int>(number)] = text.substr(equals + 1);
  return true;
}

}  // namespace

std::string HostUsage() {
  return "Usage: zolhost [options]\n"
         "Loads the ZOL Server module, hands it the application directory and carries its\n"
         "messages and timer until SIGINT or SIGTERM.\n"
         "\n"
         "Options:\n"
         "  --appdir DIR       application directory; the module reads DIR/Config/ZOLServer.ini\n"
         "                     and finds its sites under DIR (default: the current directory)\n"
         "  --module PATH      the module library (default: libzolserver.so beside zolhost,\n"
         "                     else " ZOL_INSTALLED_MODULE " from zolhost's folder)\n"
         "  --language FILE    texts of the language in use, one key=text per line\n"
         "  --com N=DEVICE     serial port number N is the device DEVICE (repeatable;\n"
         "                     without a mapping COM N is /dev/ttyS<N-1>)\n"
         "  --code-page NAME   code page of text from the data manager (default CP1252)\n"
         "  --race FILE        run a stand-in data manager that plays the race described in\n"
         "                     FILE (JSON, see examples/race.json)\n"
         "  --verbose          log every message in and out with ID, class and payload size\n"
         "  --help             show this text\n";
}

std::optional<HostOptions> ParseHostOptions(const std::vector<std::string>& arguments, std::string& error) {
  HostOptions options;
  // Beside the program in the build tree; in a library folder of its own once installed.
  options.ModulePath = platform::FindProgramFile({"libzolserver.so", ZOL_INSTALLED_MODULE});
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    auto value = [&](std::string& target) {
      if (i + 1 >= arguments.size()) {
        error = "option " + argument + " needs a value";
        return false;
      }
      target = arguments[++i];
      return true;
    };
    if (argument == "--help" || argument == "-h") {
      options.Help = true;
    } else if (argument == "--verbose" || argument == "-v") {
      options.Verbose = true;
    } else if (argument == "--appdir") {
      if (!value(options.ApplicationDirectory)) return std::nullopt;
    } else if (argument == "--module") {
      if (!value(options.ModulePath)) return std::nullopt;
    } else if (argument == "--language") {
      if (!value(options.LanguageFile)) return std::nullopt;
    } else if (argument == "--race") {
      if (!value(options.RaceFile)) return std::nullopt;
    } else if (argument == "--code-page") {
      if (!value(options.CodePage)) return std::nullopt;
    } else if (argument == "--com") {
      std::string mapping;
      if (!value(mapping)) return std::nullopt;
      if (!ParseComMapping(mapping, options)) {
        error = "bad --com mapping '" + mapping + "': expected N=DEVICE with N from 1 to 255";
        return std::nullopt;
      }
    } else {
      error = "unknown option '" + argument + "' (see --help)";
      return std::nullopt;
    }
  }
  return options;
}
