#include "distribution/ZOLServer.h"

#include <clocale>
#include <cstdlib>

#include "distribution/MulticastServer.h"
#include "distribution/OutputPort.h"
#include "distribution/SerialPort.h"
#include "distribution/TCPIPServer.h"
#include "frame/Clock.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/Paths.h"
#include "site/ZOLServerSite.h"
#include "site/ZOLServerTestSite.h"
#include "web/EditContentPage.h"
#include "web/FeedContentPage.h"
#include "web/ServerHomePage.h"
#include "web/ServerPages.h"
#include "web/SiteSettingsPage.h"

DWORD PacketSize = 128;
DWORD PacketDelay = 1;

CZOLServer::CZOLServer() {
  try {
    Guarded("CZOLServer::CZOLServer()", [&] {
      // Number formats and parsing must not follow the machine's settings.
      std::setlocale(LC_ALL, "C");
      Comm = new CRMComm(this);
      Name = "ZOL Server";
      ShortName = "zol";
      HomePage = "_server/index.html";
      WebServerAddPage(new CServerHomePage(this));
      WebServerAddPage(new CDeletePortPage(this));
      WebServerAddPage(new CFilePage(this));
      LoadSettings();
    });
  } catch (...) {
    // A constructor that throws gets no destructor call: what loading made so far (the
    // link, ports with their threads, sites) is freed here. The web pages belong to
    // the base, whose destructor does run.
    FreeAll();
    throw;
  }
}

CZOLServer::~CZOLServer() { FreeAll(); }

void CZOLServer::FreeAll() {
  // Sites go first: they hold pointers to the ports.
  for (CZOLServerSite* site : Sites) delete site;
  Sites.clear();
  // Each port stops its thread in its destructor.
  for (auto& entry : Ports) delete entry.second;
  Ports.clear();
  for (CZOLOutputPort* port : DisplacedPorts) delete port;
  DisplacedPorts.clear();
  delete Comm;
  Comm = nullptr;
}

void CZOLServer::LoadSettings() {
  Guarded("CZOLServer::LoadSettings()", [&] {
    const CPackage* package = GetPackage();
    const std::string directory = package != nullptr ? package->ApplicationDirectory : std::string();
    CIniFile ini(platform::JoinPath(directory, "\\Config\\ZOLServer.ini"));
    ini.Load();

    // Every load starts from the defaults; a bad number leaves the default in place.
    PacketSize = 128;
    PacketDelay = 1;
    int value = 0;
    ini.Read("communication", "packetsize", value, 128);
    if (value >= 16 && value <= 128) PacketSize = static_cast<DWORD>(value);
    ini.Read("communication", "packetdelay", value, 1);
    if (value > 0) PacketDelay = static_cast<DWORD>(value);
    ini.Read("communication", "testpagesize", TestPageSize, 0);

    int portCount = 0;
    ini.Read("ports", "count", portCount, 0);
    for (int i = 0; i < portCount; ++i) {
      const std::string key = "port" + std::to_string(i);
      int type = 0;
      ini.Read("ports", key, type, 0);
      int id = -1;
      ini.Read(key, "ID", id, -1);
      CZOLOutputPort* port = PortAdd(type, static_cast<DWORD>(id));
      if (port == nullptr) continue;  // a type that names no port
      port->LoadSettings(ini, key);
      port->Start();
    }

    int siteCount = 0;
    ini.Read("sites", "count", siteCount, 0);
    for (int i = 0; i < siteCount; ++i) {
      auto* site = new CZOLServerSite(static_cast<DWORD>(i + 1), Comm);
      Sites.push_back(site);
      std::string section;
      ini.Read("sites", "site" + std::to_string(i), section, "Undefined");
      site->LoadSettings(ini, section);
      AddSitePages(site);
      std::string portList;
      ini.Read(section, "ports", portList, "");
      BOOL done = FALSE;
      for (std::string token = NextToken(portList, ',', done); done == FALSE; token = NextToken(portList, ',', done)) {
        if (token.empty()) continue;
        auto port = Ports.find(static_cast<DWORD>(std::atoi(token.c_str())));
        if (port != Ports.end()) site->PortAdd(port->second);
      }
    }
    BuildSites();

    ModuleLog("Settings " + ini.GetFilename() + ": " + std::to_string(Ports.size()) + " port(s), " +
              std::to_string(Sites.size()) + " site(s)");
  });
}

void CZOLServer::AddSitePages(CZOLServerSite* site) {
  // The site's pages stay under the name it had here, whatever it is called later.
  site->SetWebName(site->GetParameter("name"));
  WebServerAddPage(new CFeedContentPage(this, site));
  WebServerAddPage(new CSiteSettingsPage(site, Comm));
  WebServerAddPage(new CEditContentPage(site, Comm));
  WebServerAddPage(new CRemovePortPage(site));
}

void CZOLServer::BuildSites() {
  for (CZOLServerSite* site : Sites) site->Build(site->GetRoot(), site->GetEvent(), 1);
}

void CZOLServer::Initialize() {
  Guarded("CZOLServer::Initialize()", [&] {
    Comm->Initialize(0);
    CRMCommObserver::Attach(Comm);
    SetTimerInterval(200);
  });
}

int CZOLServer::ProcessMessage(CModuleMessage* message) {
  return Guarded("CZOLServer::ProcessMessage()", [&] {
    if (message->Class == kDataManagerClass) Comm->ProcessMessage(message);
    return 0;
  });
}

void CZOLServer::OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present) {
  Guarded("CZOLServer::OnModifyModule()", [&] {
    Comm->OnModifyModule(moduleClass, instance, computer, present);
    if (moduleClass == kWebServerClass && present != 0) WebServerRegisterModule(instance, computer);
  });
}

void CZOLServer::OnTimer() {
  Guarded("CZOLServer::OnTimer()", [&] {
    const KVTTIME second = GetKVTTimeOfDay() / 1000000 * 1000000;
    if (second == LastWholeSecond) return;
    LastWholeSecond = second;
    for (CZOLServerSite* site : Sites) site->OnTimerEvent();
    for (auto& entry : Ports) entry.second->DetermineDataRate();
  });
}

void CZOLServer::OnAllData() {
  Guarded("CZOLServer::OnAllData()", [&] { BuildSites(); });
}

void CZOLServer::OnConnect() {
  Guarded("CZOLServer::OnConnect()", [&] {
    DataConnected = 1;
    DataLinkChangedAt = std::time(nullptr);
  });
}

void CZOLServer::OnDisconnect() {
  Guarded("CZOLServer::OnDisconnect()", [&] {
    DataConnected = 0;
    DataLinkChangedAt = std::time(nullptr);
  });
}

void CZOLServer::SetTestPageSize(DWORD size) {
  Guarded("CZOLServer::SetTestPageSize()", [&] {
    TestPageSize = size;
    if (TestSite != nullptr) TestSite->SetTestPageSize(size);
  });
}

CZOLOutputPort* CZOLServer::PortAdd(int type, DWORD id) {
  return Guarded("CZOLServer::PortAdd()", [&]() -> CZOLOutputPort* {
    if (id == 0xFFFFFFFF) id = NextPortID;
    CZOLOutputPort* port = nullptr;
    switch (type) {
      case 1: port = new CZOLSerialPort(id); break;
      case 2: port = new CZOLTCPIPServer(id); break;
      case 3: port = new CZOLMulticastServer(id); break;
      default: return nullptr;
    }
    CZOLOutputPort*& slot = Ports[id];
    if (slot != nullptr) DisplacedPorts.push_back(slot);
    slot = port;
    if (NextPortID <= id) NextPortID = id + 1;
    return port;
  });
}

int CZOLServer::PortDelete(DWORD id) {
  return Guarded("CZOLServer::PortDelete()", [&] {
    auto found = Ports.find(id);
    if (found == Ports.end() || found->second == nullptr) return 0;
    for (CZOLServerSite* site : Sites) site->PortRemove(found->second);
    delete found->second;
    Ports.erase(found);
    return 1;
  });
}

CZOLOutputPort* CZOLServer::GetPort(DWORD id) const {
  auto found = Ports.find(id);
  return found == Ports.end() ? nullptr : found->second;
}
