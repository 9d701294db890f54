#include "distribution/OutputStream.h"

#include <algorithm>

#include "distribution/OutputPort.h"
#include "frame/IniFile.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/Paths.h"

void CZOLOutputStream::LoadSettings(CIniFile& ini, const std::string& section) {
  Guarded("CZOLOutputStream::LoadSettings()", [&] {
    SetParameter("name", section);
    const CPackage* package = GetPackage();
    const std::string applicationDirectory = package != nullptr ? package->ApplicationDirectory : std::string();
    ini.Read(section, "root", Root, applicationDirectory);
    Root = MakeRoot(Root);
    int width = 0, height = 0;
    ini.Read(section, "width", width, 1024);
    ini.Read(section, "height", height, 768);
    SetParameter("width", std::to_string(width));
    SetParameter("height", std::to_string(height));
  });
}

std::string CZOLOutputStream::MakeRoot(const std::string& root) {
  const CPackage* package = GetPackage();
  const std::string applicationDirectory = package != nullptr ? package->ApplicationDirectory : std::string();
  std::string made = root;
  if (made.empty() || made.back() != '\\') made += '\\';
  // A relative root is put behind the application directory as it stands.
  if (!platform::IsAbsolutePath(made)) made = applicationDirectory + made;
  return made;
}

void CZOLOutputStream::PortAdd(CZOLOutputPort* port) {
  if (std::find(Ports.begin(), Ports.end(), port) == Ports.end()) Ports.push_back(port);
}

void CZOLOutputStream::PortRemove(CZOLOutputPort* port) {
  Guarded("CZOLOutputStream::PortRemove()", [&] {
    auto found = std::find(Ports.begin(), Ports.end(), port);
    if (found != Ports.end()) Ports.erase(found);
  });
}

int CZOLOutputStream::PortRemove(DWORD id) {
  return Guarded("CZOLOutputStream::PortRemove()", [&] {
    for (auto it = Ports.begin(); it != Ports.end(); ++it) {
      if ((*it)->GetID() == id) {
        Ports.erase(it);
        return 1;
      }
    }
    return 0;
  });
}

void CZOLOutputStream::UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) {
  Guarded("CZOLOutputStream::UpdatePage()", [&] {
    for (CZOLOutputPort* port : Ports) {
      if (port->IsRunning() != 0) port->UpdatePage(key, sequence, packets);
    }
  });
}

void CZOLOutputStream::ClearAllPackets(DWORD siteNumber) {
  Guarded("CZOLOutputStream::ClearAllPackets()", [&] {
    for (CZOLOutputPort* port : Ports) port->ClearAllPackets(siteNumber);
  });
}
