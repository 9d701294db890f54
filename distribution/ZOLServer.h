// The module object: owns the ports and the sites, reads the configuration file, and
// drives everything from the host's timer once per whole second.
#pragma once

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "frame/BaseModule.h"
#include "views/RMComm.h"

class CIniFile;
class CKVTHttpRequest;
class CZOLOutputPort;
class CZOLServerSite;
class CZOLServerTestSite;

// Values that hold for every site and port; set only while loading the settings.
extern DWORD PacketSize;
extern DWORD PacketDelay;

class CZOLServer : public CBaseModule, public CRMCommObserver {
 public:
  CZOLServer();
  ~CZOLServer() override;

  int ProcessMessage(CModuleMessage* message) override;
  void Initialize() override;
  void OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present) override;
  void OnTimer() override;

  void OnConnect() override;
  void OnDisconnect() override;
  void OnAllData() override;

  void LoadSettings();
  void SetTestPageSize(DWORD size);

  // A new port of type 1 (serial), 2 (TCP) or 3 (multicast) under `id`, or under the
  // next free number for 0xFFFFFFFF. An unknown type makes nothing and returns null.
  CZOLOutputPort* PortAdd(int type, DWORD id);
  // Stops and deletes the port; 1 when it existed.
  int PortDelete(DWORD id);
  const std::map<DWORD, CZOLOutputPort*>& GetPorts() const { return Ports; }
  CZOLOutputPort* GetPort(DWORD id) const;

  const std::vector<CZOLServerSite*>& GetSites() const { return Sites; }

  // The four tables of the main administration page; the port forms carry the request's
  // anti-forgery token.
  std::string GetSitesAsHTML();
  std::string GetPortsAsHTML(const CKVTHttpRequest& request);
  std::string GetStatisticsAsHTML();
  std::string GetDebugInfoAsHTML();
  // The race day box above the tables: the data manager link, the active run, its flag
  // and race time.
  std::string GetRaceDayAsHTML();

  CRMComm* GetComm() const { return Comm; }
  DWORD GetNextPortID() const { return NextPortID; }
  DWORD GetTestPageSize() const { return TestPageSize; }
  void SetTestSite(CZOLServerTestSite* site) { TestSite = site; }
  BOOL IsDataConnected() const { return DataConnected; }
  // When the link to the data manager last came up or went down; 0 before either.
  std::time_t GetDataLinkChangedAt() const { return DataLinkChangedAt; }

 private:
  // Builds every site on its own root and event.
  void BuildSites();
  // The administration pages of a site, under its name.
  void AddSitePages(CZOLServerSite* site);
  // Deletes the sites, the ports and the link; the destructor's work, and what a
  // constructor that fails half-way undoes.
  void FreeAll();

  CRMComm* Comm = nullptr;
  BOOL DataConnected = 0;
  std::time_t DataLinkChangedAt = 0;
  DWORD NextPortID = 0;
  KVTTIME LastWholeSecond = 0;
  DWORD TestPageSize = 0;
  // A site carrying a test page; nothing in the module creates one.
  CZOLServerTestSite* TestSite = nullptr;
  // Owned; site numbers 1, 2, 3 follow this order.
  std::vector<CZOLServerSite*> Sites;
  // Owned; ordered by ID.
  std::map<DWORD, CZOLOutputPort*> Ports;
  // Ports whose ID was given again: out of the map, still alive, freed at teardown.
  std::vector<CZOLOutputPort*> DisplacedPorts;
};
