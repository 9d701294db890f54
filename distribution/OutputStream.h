// The part of a site that fans pages out: its root directory, its parameters and the
// ports (owned by the server) that feed on it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "distribution/OutputPage.h"
#include "frame/Parameters.h"
#include "frame/Types.h"

class CIniFile;
class CKVTHttpRequest;
class CZOLOutputPort;

class CZOLOutputStream {
 public:
  CZOLOutputStream() = default;
  CZOLOutputStream(const CZOLOutputStream&) = delete;
  CZOLOutputStream& operator=(const CZOLOutputStream&) = delete;
  virtual ~CZOLOutputStream() = default;

  // Reads root, width and height from the site's section; the section name is `name`.
  void LoadSettings(CIniFile& ini, const std::string& section);
  void PortAdd(CZOLOutputPort* port);
  void PortRemove(CZOLOutputPort* port);
  // Removes the first port with that ID; 1 when one was found.
  int PortRemove(DWORD id);
  // Hands a page's packets to every running port.
  void UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets);
  // Drops a site's queued packets on every port, running or not.
  void ClearAllPackets(DWORD siteNumber);
  // One row per port of the stream, with its remove link, for the site's content page.
  // The rows of the stream's ports; their remove forms carry the request's token.
  std::string GetPortsAsHTML(const CKVTHttpRequest& request);
  // A root directory as the settings give it: ending in a separator, and a relative one
  // put behind the application directory.
  static std::string MakeRoot(const std::string& root);

  // The parameter of that name, empty when absent.
  std::string GetParameter(const std::string& name) const { return Parameters.GetString(name); }
  void SetParameter(const std::string& name, const std::string& value) { Parameters.Add(name, value); }

  const std::string& GetRoot() const { return Root; }
  int GetEvent() const { return Event; }
  const CParameters& GetParameters() const { return Parameters; }
  const std::vector<CZOLOutputPort*>& GetPorts() const { return Ports; }

 protected:
  std::string Root;
  int Event = -1;
  // name, width and height; a site adds pagecount.
  CParameters Parameters;
  std::vector<CZOLOutputPort*> Ports;
};
