// zolhost: runs the ZOL Server module on its own, as the installation's host would.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "frame/platform/FileRead.h"
#include "frame/platform/OpenFileLimit.h"
#include "frame/platform/Paths.h"
#include "frame/platform/Signals.h"
#include "frame/platform/Interfaces.h"
#include "frame/platform/Sockets.h"
#include "host/DataManagerLink.h"
#include "host/DataManagerPeer.h"
#include "host/ModuleHost.h"
#include "host/WebServer.h"


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

  // Clients of the ports and of the web server each hold a file descriptor: the soft limit
  // goes up to the hard one.
  const std::uint64_t files = platform::RaiseOpenFileLimit();

  WebServerSettings webSettings;
  if (options->WebEnabled) {
    webSettings.Address = options->WebAddress;
    webSettings.Port = options->WebPort;
    if (!options->WebPasswordFile.empty()) {
      std::vector<BYTE> text;
      if (!platform::ReadWholeFile(options->WebPasswordFile, text)) {
        std::fprintf(stderr, "zolhost: cannot read web password file %s\n", options->WebPasswordFile.c_str());
        return 2;
      }
      if (!CWebAccess::ParseCredentials(std::string(text.begin(), text.end()), webSettings.Credentials, error)) {
        std::fprintf(stderr, "zolhost: web password file %s: %s\n", options->WebPasswordFile.c_str(), error.c_str());
        return 2;
      }
      webSettings.Authentication = true;
    }
    if (!options->WebCertificateFile.empty()) {
      for (const auto& [file, target, what] :
           {std::tuple{options->WebCertificateFile, &webSettings.CertificatePem, "certificate"},
            std::tuple{options->WebKeyFile, &webSettings.KeyPem, "key"}}) {
        std::vector<BYTE> text;
        if (!platform::ReadWholeFile(file, text) || text.empty()) {
          std::fprintf(stderr, "zolhost: cannot read web %s file %s\n", what, file.c_str());
          return 2;
        }
        target->assign(text.begin(), text.end());
      }
    }
    // Each connection holds a file descriptor: the web server's connections stay well
    // below the limit.
    if (files > 256) {
      webSettings.MaxConnections =
          static_cast<unsigned>(std::min<std::uint64_t>(webSettings.MaxConnections, files - 128));
    } else {
      webSettings.MaxConnections = 128;
    }
  }

  CModuleHost host(*options);
  // Declared after the host, so that it is destroyed first: its requests wait on the
  // host's message thread.
  std::unique_ptr<CWebServer> web;
  std::size_t namesLost = 0;
  if (!options->RaceFile.empty()) {
    auto dataManager = std::make_unique<CDataManagerPeer>(platform::LocalIPv4Address(), options->Race);
    // The stand-in writes its text in the code page the module reads it in.
    dataManager->GetStandIn().SetCodePage(options->CodePage);
    if (!dataManager->LoadRace(options->RaceFile, error)) {
      std::fprintf(stderr, "zolhost: %s\n", error.c_str());
      return 2;
    }
    namesLost = dataManager->GetStandIn().NamesLosingCharacters();
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
    if (namesLost > 0) {
      std::fprintf(stderr,
                   "zolhost: %zu name%s of the race file lost characters that code page %s cannot hold (shown as "
                   "\"?\"); --code-page UTF-8 keeps them\n",
                   namesLost, namesLost == 1 ? "" : "s", options->CodePage.c_str());
    }
  }

  // The web server's port is taken before the module starts; the module hears of the web
  // server at its start and registers its pages with it. A port asked for with --web that
  // is taken ends the program; the default one only costs the pages.
  if (options->WebEnabled) {
    web = std::make_unique<CWebServer>(host, webSettings);
    if (!web->Bind(error)) {
      web.reset();
      // A certificate asked for that cannot be used ends the program like a port asked for.
      if (options->WebGiven || !webSettings.CertificatePem.empty()) {
        std::fprintf(stderr, "zolhost: %s\n", error.c_str());
        return 2;
      }
      std::fprintf(stderr, "zolhost: %s; going on without the administration pages (see --web)\n", error.c_str());
    } else {
      host.AddPeer(web->MakePeer(platform::LocalIPv4Address()));
    }
  }

  // The port is taken before the module starts, so that a busy port ends the program
  // before anything runs; a data manager that connects meanwhile waits in the queue.
  std::unique_ptr<CDataManagerLink> link;
  if (options->DataManagerPort != 0) {
    DataManagerLinkSettings settings;
    settings.Address = options->DataManagerAddress;
    settings.Port = options->DataManagerPort;
    link = std::make_unique<CDataManagerLink>(host, settings);
    if (!link->Start(error)) {
      std::fprintf(stderr, "zolhost: %s\n", error.c_str());
      return 2;
    }
    std::fprintf(stderr, "zolhost: data manager link listens on %s:%u\n", options->DataManagerAddress.c_str(),
                 static_cast<unsigned>(link->Port()));
  }
  if (!host.Start()) {
    std::fprintf(stderr, "zolhost: %s\n", host.Error().c_str());
    if (link) link->Stop();
    return 2;
  }
  if (web) {
    web->Start();
    std::uint32_t address = 0;
    if (!web->Secure() && platform::ParseDottedAddress(webSettings.Address, address) &&
        !platform::IsLoopbackAddress(address)) {
      std::fprintf(stderr,
                   "zolhost: the administration pages on %s go over plain HTTP: the password travels in clear text "
                   "(give --web-cert and --web-key for HTTPS)\n",
                   webSettings.Address.c_str());
    }
    std::fprintf(stderr, "zolhost: administration pages at %s://%s:%u/zol/_server/index.html%s\n",
                 web->Secure() ? "https" : "http", webSettings.Address.c_str(), static_cast<unsigned>(web->Port()),
                 webSettings.Authentication ? " (with a password)" : "");
  }
  const int signal = platform::WaitForTerminationSignal();
  std::fprintf(stderr, "zolhost: signal %d, stopping\n", signal);
  if (web) web->Stop();
  if (link) link->Stop();
  host.Stop();
  std::fprintf(stderr, "zolhost: stopped after %llu timer ticks, largest timer lag %.1f ms\n",
               static_cast<unsigned long long>(host.TimerTicks()),
               static_cast<double>(host.LargestTimerLag().count()) / 1000.0);
  return 0;
}
