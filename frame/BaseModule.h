// The base class of the module object: messages to peers, the timer request and the
// page map through which the web server reaches the module's administration pages.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CWebPage;

// The host's side of the send path: every outgoing message ends here, and the receiver
// takes ownership of it.
class CSendTarget {
 public:
  virtual ~CSendTarget() = default;
  virtual void SendFunction(CModuleMessage* message) = 0;
};

class CBaseModule {
 public:
  CBaseModule() = default;
  CBaseModule(const CBaseModule&) = delete;
  CBaseModule& operator=(const CBaseModule&) = delete;

  // The virtual operations, in the order the host knows them.
  virtual ~CBaseModule();
  virtual int ProcessMessage(CModuleMessage* message) = 0;
  virtual void Initialize() {}
  virtual void OnModifyModule(WORD moduleClass, DWORD instance, DWORD computer, int present) {
    (void)moduleClass, (void)instance, (void)computer, (void)present;
  }
  virtual void ReservedOperation() {}
  virtual void OnTimer() {}
  virtual void ReservedOperation3(DWORD a, DWORD b, DWORD c) { (void)a, (void)b, (void)c; }

  void SetConnected(WORD connectedClass, DWORD instance, DWORD computer);
  void Send(CModuleMessage* message);
  void Send(WORD id);
  void Send(WORD id, WORD targetClass, DWORD instance, DWORD computer);
  void GetAllModules();
  void EnableWaiting(int enable);
  void SetTimerInterval(int milliseconds);

  // Page registration with the web server module.
  void WebServerRegisterModule(DWORD instance, DWORD computer);
  void WebServerAddPage(CWebPage* page);
  void WebServerRemovePage(const std::string& path);
  // The page registered under `path`, or null.
  CWebPage* WebServerFindPage(const std::string& path) const;
  const std::map<std::string, CWebPage*>& GetWebPages() const { return WebPages; }

  int Handle = -1;
  std::string Name;
  std::string ShortName;
  std::string HomePage;
  WORD Class = 65535;
  std::string Description = "No description";
  std::vector<std::string> Properties;
  WORD ConnectedClass = kNoClass;
  DWORD ConnectedInstance = 0;
  DWORD ConnectedComputer = kNoComputer;
  // Set by the host after it created the module; no module code writes it.
  CSendTarget* SendTarget = nullptr;
  DWORD WaitFlags = 0;
  DWORD WebServerInstance = 0;
  DWORD WebServerComputer = 0;

 private:
  std::map<std::string, CWebPage*> WebPages;
};
