#include "distribution/ZOLServer.h"

#include <clocale>

#include "frame/Clock.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/Paths.h"

DWORD PacketSize = 128;
DWORD PacketDelay = 1;

CZOLServer::CZOLServer() {
  Guarded("CZOLServer::CZOLServer()", [&] {
    // Number formats and parsing must not follow the machine's settings.
    std::setlocale(LC_ALL, "C");
    Comm = new CRMComm(this);
    Name = "ZOL Server";
    ShortName = "zol";
    HomePage = "_server/index.html";
    LoadSettings();
  });
}

CZOLServer::~CZOLServer() {
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
  });
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
    ++BeatCount;
  });
}

void CZOLServer::OnAllData() {
  Guarded("CZOLServer::OnAllData()", [&] {});
}

void CZOLServer::OnDisconnect() {
  Guarded("CZOLServer::OnDisconnect()", [&] { DataConnected = 0; });
}

void CZOLServer::SetTestPageSize(DWORD size) {
  Guarded("CZOLServer::SetTestPageSize()", [&] { TestPageSize = size; });
}
