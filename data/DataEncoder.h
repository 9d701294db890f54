// The data manager's side of the race data messages: every record body and every
// message of the protocol, written field for field as the replica's decoders read them.
// Used by the data manager stand-in, the tests and the benchmarks.
#pragma once

#include <vector>

#include "data/BaseDataComm.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

namespace DataEncoder {

// Bodies (no key).
void WriteStringList(CTTBuffer& buffer, const std::vector<std::string>& values);
void WriteFieldBody(CTTBuffer& buffer, const CBaseField& field);
void WriteTrackBody(CTTBuffer& buffer, const CBaseTrack& track);
void WriteTimelineBody(CTTBuffer& buffer, const CBaseTimeline& timeline);
void WriteSectionBody(CTTBuffer& buffer, const CBaseSection& section);
void WriteTrackRecordBody(CTTBuffer& buffer, const CBaseTrackRecord& record);
void WriteEventBody(CTTBuffer& buffer, const CBaseEvent& event);
void WriteRunBody(CTTBuffer& buffer, const CBaseRun& run);
void WriteRangeBody(CTTBuffer& buffer, const CBaseRange& range);
void WriteAnnouncementBody(CTTBuffer& buffer, const CBaseAnnouncement& announcement);
void WriteMergeBody(CTTBuffer& buffer, const CBaseMerge& merge);
void WriteCompetitorBody(CTTBuffer& buffer, const CBaseCompetitor& competitor);
void WritePassingBody(CTTBuffer& buffer, const CBasePassing& passing);
void WriteTxTranslationBody(CTTBuffer& buffer, const CBaseTxTranslation& record);
void WriteChampionshipBody(CTTBuffer& buffer, const CBaseChampionship& record);
// int n; n times (DWORD competitor ID; competitor body).
void WriteCompetitorBlock(CTTBuffer& buffer, const CBaseCompetitorContainer& container);

// A message of class 5 as the data manager sends it, addressed to the server module.
CModuleMessage* NewMessage(WORD id);

// Messages without payload: 0 connected, 1 disconnected, 3 backup created.
CModuleMessage* Connected();
CModuleMessage* Disconnected();
CModuleMessage* BackupCreated();

// The snapshot (message 2) of a whole store.
CModuleMessage* Snapshot(const CBaseDataComm& store);
// The list messages by themselves. Under these IDs the replica reads no competitor
// blocks and only the count of announcements, so that is what they carry.
CModuleMessage* TrackList(const CBaseDataComm& store);
CModuleMessage* EventList(const CBaseDataComm& store);
CModuleMessage* RunList(const CBaseDataComm& store);
CModuleMessage* MergeList(const CBaseDataComm& store);

CModuleMessage* AddField(DWORD kind, const CBaseField& field);
CModuleMessage* RemoveField(DWORD kind, DWORD index);
CModuleMessage* ModifyField(DWORD kind, DWORD index, const CBaseField& field);

CModuleMessage* AddTrack(const CBaseTrack& track);
CModuleMessage* ModifyTrack(const CBaseTrack& track);
CModuleMessage* AddTimeline(DWORD track, const CBaseTimeline& timeline);
CModuleMessage* ModifyTimeline(DWORD track, const CBaseTimeline& timeline);
CModuleMessage* RemoveTimeline(DWORD track, BYTE timeline);
CModuleMessage* AddSection(DWORD track, const CBaseSection& section);
CModuleMessage* ModifySection(DWORD track, const CBaseSection& section);
CModuleMessage* RemoveSection(DWORD track, BYTE section);
CModuleMessage* AddTrackRecord(DWORD track, const CBaseTrackRecord& record);
CModuleMessage* ModifyTrackRecord(DWORD track, const CBaseTrackRecord& record);
CModuleMessage* RemoveTrackRecord(DWORD track, DWORD record);

CModuleMessage* AddEvent(const CBaseEvent& event);
CModuleMessage* ModifyEvent(const CBaseEvent& event);

CModuleMessage* AddRun(const CBaseRun& run);
CModuleMessage* ModifyRun(const CBaseRun& run);
CModuleMessage* AddRange(DWORD run, const CBaseRange& range);
CModuleMessage* ModifyRange(DWORD run, DWORD index, const CBaseRange& range);
CModuleMessage* RemoveRange(DWORD run, DWORD index);

CModuleMessage* AddAnnouncement(DWORD owner, const CBaseAnnouncement& announcement);
CModuleMessage* ModifyAnnouncement(DWORD owner, const CBaseAnnouncement& announcement);
CModuleMessage* RemoveAnnouncement(DWORD owner, DWORD announcement);

CModuleMessage* AddMerge(const CBaseMerge& merge);
CModuleMessage* ModifyMerge(const CBaseMerge& merge);
CModuleMessage* AddMergeRows(DWORD merge, const std::vector<const CBaseMergeRow*>& rows);
CModuleMessage* ModifyMergeRows(DWORD merge, const std::vector<const CBaseMergeRow*>& rows);
CModuleMessage* RemoveMergeRows(DWORD merge, const std::vector<DWORD>& rows);

CModuleMessage* AddCompetitors(DWORD owner, const std::vector<const CBaseCompetitor*>& competitors);
CModuleMessage* ModifyCompetitors(DWORD owner, const std::vector<const CBaseCompetitor*>& competitors);
CModuleMessage* RemoveCompetitors(DWORD owner, const std::vector<DWORD>& competitors);

CModuleMessage* AllPassings(DWORD run, const std::vector<const CBasePassing*>& passings);
CModuleMessage* AddPassings(DWORD run, const std::vector<const CBasePassing*>& passings);
CModuleMessage* ModifyPassings(DWORD run, const std::vector<const CBasePassing*>& passings);

CModuleMessage* AddTxTranslation(const CBaseTxTranslation& record);
CModuleMessage* ModifyTxTranslation(const CBaseTxTranslation& record);
CModuleMessage* RemoveTxTranslation(DWORD transponder);

CModuleMessage* AddChampionship(const CBaseChampionship& record);
CModuleMessage* ModifyChampionship(const CBaseChampionship& record);
CModuleMessage* RemoveChampionship(DWORD id);

}  // namespace DataEncoder
