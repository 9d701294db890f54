// The small records that hang on the replica: announcements of runs and merges, Tx
// translations, championships and the descriptions of user-defined fields.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;

class CBaseAnnouncement {
 public:
  virtual ~CBaseAnnouncement() = default;
  void MessageToAnnouncement(CTTBuffer& message);

  DWORD UniqueID = 0;
  DWORD AnnouncementParam = 0;
  BYTE AnnouncementType = 1;
  std::string Text;
};

// What a run or a merge offers its announcement container.
class CAnnouncementOwner {
 public:
  virtual ~CAnnouncementOwner() = default;
  virtual void AddAnnouncement() = 0;
  virtual void ModifyAnnouncement() = 0;
  virtual void RemoveAnnouncement() = 0;
};

class CAnnouncementContainer {
 public:
  CAnnouncementContainer(CBaseModule* module, CAnnouncementOwner* owner) : Module(module), Owner(owner) {}
  CAnnouncementContainer(const CAnnouncementContainer&) = delete;
  CAnnouncementContainer& operator=(const CAnnouncementContainer&) = delete;
  virtual ~CAnnouncementContainer();

  void ProcessMessage(CModuleMessage& message);
  void OnAddAnnouncement(CModuleMessage& message);
  void OnModifyAnnouncement(CModuleMessage& message);
  void OnRemoveAnnouncement(CModuleMessage& message);

  std::map<DWORD, CBaseAnnouncement*> Announcements;
  std::vector<CBaseAnnouncement*> Updated;
  std::vector<CBaseAnnouncement*> Removed;
  CBaseModule* Module;
  CAnnouncementOwner* Owner;
  // Records overwritten by an add under a known key: alive, as others may hold them,
  // and freed with the container.
  std::vector<CBaseAnnouncement*> Overwritten;
};

class CBaseTxTranslation {
 public:
  virtual ~CBaseTxTranslation() = default;
  void MessageToTxTranslation(CTTBuffer& message);

  DWORD UniqueID = 0xFFFFFFFF;
  std::string Text;
};

class CBaseChampionship {
 public:
  virtual ~CBaseChampionship() = default;
  void MessageToChampionship(CTTBuffer& message);

  DWORD UniqueID = 0xFFFFFFFF;
  std::string Name;
  BYTE ChampionshipType = 0;
  std::string Text2;
  std::string Text3;
};

class CBaseField {
 public:
  virtual ~CBaseField() = default;
  void MessageToField(CTTBuffer& message);

  std::string FieldName;
  std::string FieldText;
  int FieldSize = 50;
  BYTE FieldType = 30;
  BYTE FieldByte1 = 0;
  int FieldParam = 0;
  BYTE FieldByte2 = 0;
  std::vector<std::string> FieldChoices;
};

// Reads an int count and that many strings into `values`, emptied first.
void ReadStringList(CTTBuffer& message, std::vector<std::string>& values);
