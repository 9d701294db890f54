#include "data/SideRecords.h"

#include <algorithm>

#include "frame/KVTException.h"

void ReadStringList(CTTBuffer& message, std::vector<std::string>& values) {
  values.clear();
  int count = 0;
  message >> count;
  for (int i = 0; i < count; ++i) {
    std::string value;
    message >> value;
    values.push_back(std::move(value));
  }
}

void CBaseAnnouncement::MessageToAnnouncement(CTTBuffer& message) {
  Guarded("CBaseAnnouncement::MessageToAnnouncement()",
          [&] { message >> AnnouncementParam >> AnnouncementType >> Text; });
}

CAnnouncementContainer::~CAnnouncementContainer() {
  for (auto& [key, record] : Announcements) delete record;
  for (CBaseAnnouncement* record : Overwritten) delete record;
}

void CAnnouncementContainer::ProcessMessage(CModuleMessage& message) {
  Guarded("CAnnouncementContainer::ProcessMessage()", [&] {
    switch (message.ID) {
      case 2:
      case 70: OnAddAnnouncement(message); break;
      case 71: OnModifyAnnouncement(message); break;
      case 72: OnRemoveAnnouncement(message); break;
      default: break;
    }
  });
}

void CAnnouncementContainer::OnAddAnnouncement(CModuleMessage& message) {
  Guarded("CAnnouncementContainer::OnAddAnnouncement()", [&] {
    DWORD key = 0;
    message >> key;
    auto* record = new CBaseAnnouncement;
    auto& slot = Announcements[key];
    if (slot != nullptr) Overwritten.push_back(slot);
    slot = record;
    record->MessageToAnnouncement(message);
    record->UniqueID = key;
    if (message.ID != 2) {
      Updated.push_back(record);
      Owner->AddAnnouncement();
      Updated.clear();
    }
  });
}

void CAnnouncementContainer::OnModifyAnnouncement(CModuleMessage& message) {
  Guarded("CAnnouncementContainer::OnModifyAnnouncement()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = Announcements.find(key);
    if (found == Announcements.end()) return;
    found->second->MessageToAnnouncement(message);
    Updated.push_back(found->second);
    Owner->ModifyAnnouncement();
    Updated.clear();
  });
}

void CAnnouncementContainer::OnRemoveAnnouncement(CModuleMessage& message) {
  Guarded("CAnnouncementContainer::OnRemoveAnnouncement()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = Announcements.find(key);
    if (found == Announcements.end()) return;
    Removed.push_back(found->second);
    try {
      Owner->RemoveAnnouncement();
    } catch (...) {
      // The removal did not happen: the record stays, and the list must not carry it into
      // the next removal, which would free it a second time.
      Removed.clear();
      throw;
    }
    for (CBaseAnnouncement* record : Removed) {
      Announcements.erase(record->UniqueID);
      delete record;
    }
    Removed.clear();
  });
}

void CBaseTxTranslation::MessageToTxTranslation(CTTBuffer& message) {
  Guarded("CBaseTxTranslation::MessageToTxTranslation()", [&] { message >> Text; });
}

void CBaseChampionship::MessageToChampionship(CTTBuffer& message) {
  Guarded("CBaseChampionship::MessageToChampionship()",
          [&] { message >> Name >> ChampionshipType >> Text2 >> Text3; });
}

void CBaseField::MessageToField(CTTBuffer& message) {
  Guarded("CBaseField::MessageToField()", [&] {
    message >> FieldName >> FieldText >> FieldSize >> FieldType >> FieldByte1 >> FieldParam >> FieldByte2;
    ReadStringList(message, FieldChoices);
  });
}
