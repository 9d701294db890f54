#include "frame/BaseModule.h"

#include "frame/KVTException.h"
#include "web/WebPage.h"

CBaseModule::~CBaseModule() {
  for (auto& [path, page] : WebPages) delete page;
}

void CBaseModule::SetConnected(WORD connectedClass, DWORD instance, DWORD computer) {
  Guarded("CBaseModule::SetConnected()", [&] {
    ConnectedClass = connectedClass;
    ConnectedInstance = instance;
    ConnectedComputer = computer;
  });
}

void CBaseModule::Send(CModuleMessage* message) {
  Guarded("CBaseModule::Send()", [&] {
    if (SendTarget != nullptr) {
      SendTarget->SendFunction(message);
    } else {
      // Nobody to take it: dropped, and freed here rather than left allocated.
      delete message;
    }
  });
}

void CBaseModule::Send(WORD id) {
  Guarded("CBaseModule::Send()", [&] { Send(new CModuleMessage(id, this)); });
}

void CBaseModule::Send(WORD id, WORD targetClass, DWORD instance, DWORD computer) {
  Guarded("CBaseModule::Send()", [&] { Send(new CModuleMessage(id, targetClass, instance, computer)); });
}

void CBaseModule::GetAllModules() {
  Guarded("CBaseModule::GetAllModules()", [&] {
    Send(kMsgGetAllModules, kHostClass, 0, 0);
    ConnectedClass = kNoClass;
    ConnectedInstance = 0;
    ConnectedComputer = kNoComputer;
    WaitFlags = 0;
  });
}

void CBaseModule::EnableWaiting(int enable) {
  Guarded("CBaseModule::EnableWaiting()", [&] {
    auto* message = new CModuleMessage(kMsgEnableWaiting, kHostClass, 0, 0);
    *message << enable;
    Send(message);
  });
}

void CBaseModule::SetTimerInterval(int milliseconds) {
  Guarded("CBaseModule::SetTimerInterval()", [&] {
    auto* message = new CModuleMessage(kMsgSetTimerInterval, kHostClass, 0, 0);
    *message << milliseconds;
    Send(message);
  });
}

void CBaseModule::WebServerRegisterModule(DWORD instance, DWORD computer) {
  Guarded("CBaseModule::WebServerRegisterModule()", [&] {
    WebServerInstance = instance;
    WebServerComputer = computer;
    auto* message = new CModuleMessage(kMsgWebRegisterModule, kWebServerClass, instance, computer);
    *message << Name << ShortName << HomePage;
    const DWORD countAt = message->GetPosition();
    int count = 0;
    *message << count;
    for (const auto& [path, page] : WebPages) {
      if (page->InMenu == 0) continue;
      *message << path << page->Title;
      ++count;
    }
    const DWORD end = message->SetPosition(countAt);
    *message << count;
    message->SetPosition(end);
    Send(message);
  });
}

void CBaseModule::WebServerAddPage(CWebPage* page) {
  Guarded("CBaseModule::WebServerAddPage()", [&] {
    auto [slot, inserted] = WebPages.try_emplace(page->Path, page);
    if (!inserted && slot->second != page) {
      delete slot->second;
      slot->second = page;
    }
  });
}

void CBaseModule::WebServerRemovePage(const std::string& path) {
  Guarded("CBaseModule::WebServerRemovePage()", [&] {
    auto found = WebPages.find(path);
    if (found == WebPages.end()) return;
    delete found->second;
    WebPages.erase(found);
  });
}

CWebPage* CBaseModule::WebServerFindPage(const std::string& path) const {
  auto found = WebPages.find(path);
  return found == WebPages.end() ? nullptr : found->second;
}
