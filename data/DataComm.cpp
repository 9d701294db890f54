#include "data/DataComm.h"

#include "data/Data.h"
#include "data/RMData.h"
#include "frame/KVTException.h"

void CDataComm::ProcessMessage(CModuleMessage& message) {
  Guarded("CDataComm::ProcessMessage()", [&] {
    switch (message.ID) {
      case 2: OnGetAllData(message); break;
      case 32: OnGetAllTracks(message); break;
      case 48: OnGetAllEvents(message); break;
      case 64: OnGetAllRuns(message); break;
      case 80: OnGetAllMerges(message); break;
      case 33: Data->OnAddTrack(new CRMCTrack(Module), message); break;
      case 49: Data->OnAddEvent(new CRMCEvent(Module), message); break;
      case 65: Data->OnAddRun(new CRMCRun(Module), message); break;
      case 81: Data->OnAddMerge(new CRMCMerge(Module), message); break;
      default: Data->ProcessDataManagerMessage(message); break;
    }
  });
}

void CDataComm::OnGetAllData(CModuleMessage& message) {
  Guarded("CDataComm::OnGetAllData()", [&] {
    AllDataSeen = TRUE;
    Data->MessageToAllFields(message);
    OnGetAllTracks(message);
    OnGetAllEvents(message);
    OnGetAllRuns(message);
    OnGetAllMerges(message);
    Data->OnAddTxTranslations(message);
    Data->OnAddChampionships(message);
    Data->OnSnapshotApplied();
    Owner->OnAllData();
  });
}

void CDataComm::OnGetAllTracks(CModuleMessage& message) {
  Guarded("CDataComm::OnGetAllTracks()", [&] {
    Data->ForgetTrackPointers();
    Data->DestroyTracks();
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      auto* track = new CRMCTrack(Module);
      Data->OnAddTrack(track, message);
      int timelines = 0;
      message >> timelines;
      for (int t = 0; t < timelines; ++t) track->OnAddTimeline(message);
      int sections = 0;
      message >> sections;
      for (int s = 0; s < sections; ++s) track->OnAddSection(message);
      int records = 0;
      message >> records;
      for (int r = 0; r < records; ++r) track->OnAddTrackRecord(message);
    }
    Data->RefreshTrackEventPointers();
    Owner->OnAllTracks();
  });
}

void CDataComm::OnGetAllEvents(CModuleMessage& message) {
  Guarded("CDataComm::OnGetAllEvents()", [&] {
    Data->DestroyEvents();
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      auto* event = new CRMCEvent(Module);
      Data->OnAddEvent(event, message);
      // The competitor handler takes its block only under the snapshot's own ID.
      event->Competitors->ProcessMessage(message);
    }
    Data->RefreshTrackEventPointers();
    Owner->OnAllEvents();
  });
}

void CDataComm::OnGetAllRuns(CModuleMessage& message) {
  Guarded("CDataComm::OnGetAllRuns()", [&] {
    Data->ForgetRunPointers();
    Data->DestroyRuns();
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      auto* run = new CRMCRun(Module);
      Data->OnAddRun(run, message);
      run->MessageToRanges(message);
      run->Competitors->ProcessMessage(message);
      int announcements = 0;
      message >> announcements;
      if (message.ID == 2) {
        for (int a = 0; a < announcements; ++a) run->Announcements->ProcessMessage(message);
      }
    }
    Owner->OnAllRuns();
  });
}

void CDataComm::OnGetAllMerges(CModuleMessage& message) {
  Guarded("CDataComm::OnGetAllMerges()", [&] {
    Data->DestroyMerges();
    int count = 0;
    message >> count;
    for (int i = 0; i < count; ++i) {
      auto* merge = new CRMCMerge(Module);
      Data->OnAddMerge(merge, message);
      merge->MergeRowsToMessage(message);
      int announcements = 0;
      message >> announcements;
      if (message.ID == 2) {
        for (int a = 0; a < announcements; ++a) merge->Announcements->ProcessMessage(message);
      }
    }
    Owner->OnAllMerges();
  });
}
