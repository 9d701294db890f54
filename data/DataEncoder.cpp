#include "data/DataEncoder.h"

#include "frame/KVTException.h"

namespace DataEncoder {

void WriteStringList(CTTBuffer& buffer, const std::vector<std::string>& values) {
  buffer << static_cast<int>(values.size());
  for (const std::string& value : values) buffer << value;
}

void WriteFieldBody(CTTBuffer& buffer, const CBaseField& field) {
  buffer << field.FieldName << field.FieldText << field.FieldSize << field.FieldType << field.FieldByte1
         << field.FieldParam << field.FieldByte2;
  WriteStringList(buffer, field.FieldChoices);
}

void WriteTrackBody(CTTBuffer& buffer, const CBaseTrack& track) {
  buffer << track.Tag << track.Flags << track.Name << track.Name2 << track.Length << track.Value2
         << track.TrackParam1 << track.TrackParam2 << track.TrackParam3 << track.TrackParam4;
  WriteStringList(buffer, track.FieldValues);
}

void WriteTimelineBody(CTTBuffer& buffer, const CBaseTimeline& timeline) {
  buffer << timeline.Flags << timeline.Name << timeline.TimelineParam1 << timeline.TimelineParam2 << timeline.Order
         << timeline.Position;
}

void WriteSectionBody(CTTBuffer& buffer, const CBaseSection& section) {
  buffer << section.Flags << section.Name << section.Name2 << section.Length << section.StartTimeline
         << section.EndTimeline << section.Order;
}

void WriteTrackRecordBody(CTTBuffer& buffer, const CBaseTrackRecord& record) {
  buffer << record.RecordType << record.Title << record.RecordTime << record.Time2 << record.Note;
}

void WriteEventBody(CTTBuffer& buffer, const CBaseEvent& event) {
  buffer << event.Tag << event.Flags << event.TrackID << event.ParentID << event.Name << event.Name2 << event.Name3
         << event.StartDate << event.EndDate << event.EventParam;
  WriteStringList(buffer, event.FieldValues);
}

void WriteRunBody(CTTBuffer& buffer, const CBaseRun& run) {
  buffer << run.Tag << run.Flags << run.EventID << run.Name << run.RunParam1 << run.RunParam2 << run.StartTime
         << run.EndTime << run.RunType << run.Name2 << run.RunParam3 << run.RunParam4;
  WriteStringList(buffer, run.FieldValues);
  run.Parameters.ParametersToBuffer(buffer);
}

void WriteRangeBody(CTTBuffer& buffer, const CBaseRange& range) {
  buffer << range.RangeFirst << range.RangeLast << range.RangeValue;
}

void WriteAnnouncementBody(CTTBuffer& buffer, const CBaseAnnouncement& announcement) {
  buffer << announcement.AnnouncementParam << announcement.AnnouncementType << announcement.Text;
}

void WriteMergeBody(CTTBuffer& buffer, const CBaseMerge& merge) {
  buffer << merge.Tag << merge.Flags << merge.EventID << merge.Name << merge.MergeType;
  buffer << static_cast<DWORD>(merge.IDs.size());
  for (DWORD id : merge.IDs) buffer << id;
  merge.Parameters.ParametersToBuffer(buffer);
}

void WriteCompetitorBody(CTTBuffer& buffer, const CBaseCompetitor& c) {
  buffer << c.Number << c.Text1;
  buffer << static_cast<int>(c.Transponders.size());
  for (DWORD transponder : c.Transponders) {
    auto label = c.TransponderLabels.find(transponder);
    buffer << transponder << (label == c.TransponderLabels.end() ? std::string() : label->second);
  }
  WriteStringList(buffer, c.FieldValues);
  buffer << c.Status << c.Text2 << c.Class << c.Word1 << c.Byte1 << c.Text3 << c.FirstName << c.LastName << c.Value1
         << c.Time1 << c.Count1 << c.Time2 << c.Value2 << c.Count2 << c.Time3 << c.Count3 << c.Time4;
}

void WritePassingBody(CTTBuffer& buffer, const CBasePassing& p) {
  buffer << p.PassingType << p.Transponder << p.TimeOfDay << p.Word1 << p.Word2 << p.Byte1 << p.Byte2 << p.Byte3
         << p.Dword1 << p.Byte4 << p.Dword2 << p.Dword3 << p.RawTime << p.CorrectedTime << p.DayOffset;
}

void WriteTxTranslationBody(CTTBuffer& buffer, const CBaseTxTranslation& record) { buffer << record.Text; }

void WriteChampionshipBody(CTTBuffer& buffer, const CBaseChampionship& record) {
  buffer << record.Name << record.ChampionshipType << record.Text2 << record.Text3;
}

void WriteCompetitorBlock(CTTBuffer& buffer, const CBaseCompetitorContainer& container) {
  buffer << static_cast<int>(container.Competitors.size());
  for (const auto& [id, competitor] : container.Competitors) {
    buffer << id;
    WriteCompetitorBody(buffer, *competitor);
  }
}

CModuleMessage* NewMessage(WORD id) {
  auto* message = new CModuleMessage(id, kZolServerClass, 0, 0);
  message->Class = kDataManagerClass;
  return message;
}

CModuleMessage* Connected() { return NewMessage(0); }
CModuleMessage* Disconnected() { return NewMessage(1); }
CModuleMessage* BackupCreated() { return NewMessage(3); }

namespace {

// Builds a message; frees it if writing fails.
template <class Body>
CModuleMessage* Build(WORD id, Body&& body) {
  auto* message = NewMessage(id);
  try {
    body(*message);
  } catch (...) {
    delete message;
    throw;
  }
  message->Reset();
  return message;
}

void WriteTrackEntries(CTTBuffer& buffer, const CBaseDataComm& store) {
  buffer << static_cast<int>(store.Tracks.size());
  for (const auto& [id, track] : store.Tracks) {
    buffer << id;
    WriteTrackBody(buffer, *track);
    buffer << static_cast<int>(track->Timelines.size());
    for (const auto& [key, timeline] : track->Timelines) {
      buffer << key;
      WriteTimelineBody(buffer, *timeline);
    }
    buffer << static_cast<int>(track->Sections.size());
    for (const auto& [key, section] : track->Sections) {
      buffer << key;
      WriteSectionBody(buffer, *section);
    }
    buffer << static_cast<int>(track->TrackRecords.size());
    for (const auto& [key, record] : track->TrackRecords) {
      buffer << key;
      WriteTrackRecordBody(buffer, *record);
    }
  }
}

void WriteAnnouncements(CTTBuffer& buffer, const CAnnouncementContainer* container, bool entries) {
  if (container == nullptr) {
    buffer << 0;
    return;
  }
  buffer << static_cast<int>(container->Announcements.size());
  if (!entries) return;
  for (const auto& [key, announcement] : container->Announcements) {
    buffer << key;
    WriteAnnouncementBody(buffer, *announcement);
  }
}

void WriteEventEntries(CTTBuffer& buffer, const CBaseDataComm& store, bool snapshot) {
  buffer << static_cast<int>(store.Events.size());
  for (const auto& [id, event] : store.Events) {
    buffer << id;
    WriteEventBody(buffer, *event);
    if (snapshot) WriteCompetitorBlock(buffer, *event->Competitors);
  }
}

void WriteRunEntries(CTTBuffer& buffer, const CBaseDataComm& store, bool snapshot) {
  buffer << static_cast<int>(store.Runs.size());
  for (const auto& [id, run] : store.Runs) {
    buffer << id;
    WriteRunBody(buffer, *run);
    buffer << static_cast<int>(run->Ranges.size());
    for (const CBaseRange* range : run->Ranges) WriteRangeBody(buffer, *range);
    if (snapshot) WriteCompetitorBlock(buffer, *run->Competitors);
    WriteAnnouncements(buffer, run->Announcements, snapshot);
  }
}

void WriteMergeEntries(CTTBuffer& buffer, const CBaseDataComm& store, bool snapshot) {
  buffer << static_cast<int>(store.Merges.size());
  for (const auto& [id, merge] : store.Merges) {
    buffer << id;
    WriteMergeBody(buffer, *merge);
    buffer << static_cast<int>(merge->Rows.size());
    for (const auto& [key, row] : merge->Rows) row->MergeRowToMessage(buffer);
    WriteAnnouncements(buffer, merge->Announcements, snapshot);
  }
}

CModuleMessage* TrackMessage(WORD id, const CBaseTrack& track) {
  return Build(id, [&](CTTBuffer& b) {
    b << track.UniqueID;
    WriteTrackBody(b, track);
  });
}

CModuleMessage* EventMessage(WORD id, const CBaseEvent& event) {
  return Build(id, [&](CTTBuffer& b) {
    b << event.UniqueID;
    WriteEventBody(b, event);
  });
}

CModuleMessage* RunMessage(WORD id, const CBaseRun& run) {
  return Build(id, [&](CTTBuffer& b) {
    b << run.UniqueID;
    WriteRunBody(b, run);
  });
}

CModuleMessage* MergeMessage(WORD id, const CBaseMerge& merge) {
  return Build(id, [&](CTTBuffer& b) {
    b << merge.UniqueID;
    WriteMergeBody(b, merge);
  });
}

CModuleMessage* KeyPair(WORD id, DWORD first, DWORD second) {
  return Build(id, [&](CTTBuffer& b) { b << first << second; });
}

CModuleMessage* OwnerAndKeys(WORD id, DWORD owner, const std::vector<DWORD>& keys) {
  return Build(id, [&](CTTBuffer& b) {
    b << owner << static_cast<int>(keys.size());
    for (DWORD key : keys) b << key;
  });
}

}  // namespace

CModuleMessage* Snapshot(const CBaseDataComm& store) {
  return Build(2, [&](CTTBuffer& b) {
    for (const auto& fields : store.FieldVectors) {
      b << static_cast<int>(fields.size());
      for (const CBaseField* field : fields) WriteFieldBody(b, *field);
    }
    WriteTrackEntries(b, store);
    WriteEventEntries(b, store, true);
    WriteRunEntries(b, store, true);
    WriteMergeEntries(b, store, true);
    b << static_cast<int>(store.TxTranslations.size());
    for (const auto& [key, record] : store.TxTranslations) {
      b << key;
      WriteTxTranslationBody(b, *record);
    }
    b << static_cast<int>(store.Championships.size());
    for (const auto& [key, record] : store.Championships) {
      b << key;
      WriteChampionshipBody(b, *record);
    }
  });
}

CModuleMessage* TrackList(const CBaseDataComm& store) {
  return Build(32, [&](CTTBuffer& b) { WriteTrackEntries(b, store); });
}
CModuleMessage* EventList(const CBaseDataComm& store) {
  return Build(48, [&](CTTBuffer& b) { WriteEventEntries(b, store, false); });
}
CModuleMessage* RunList(const CBaseDataComm& store) {
  return Build(64, [&](CTTBuffer& b) { WriteRunEntries(b, store, false); });
}
CModuleMessage* MergeList(const CBaseDataComm& store) {
  return Build(80, [&](CTTBuffer& b) { WriteMergeEntries(b, store, false); });
}

CModuleMessage* AddField(DWORD kind, const CBaseField& field) {
  return Build(16, [&](CTTBuffer& b) {
    b << kind;
    WriteFieldBody(b, field);
  });
}
CModuleMessage* RemoveField(DWORD kind, DWORD index) { return KeyPair(17, kind, index); }
CModuleMessage* ModifyField(DWORD kind, DWORD index, const CBaseField& field) {
  return Build(18, [&](CTTBuffer& b) {
    b << kind << index;
    WriteFieldBody(b, field);
  });
}

CModuleMessage* AddTrack(const CBaseTrack& track) { return TrackMessage(33, track); }
CModuleMessage* ModifyTrack(const CBaseTrack& track) { return TrackMessage(34, track); }

CModuleMessage* AddTimeline(DWORD track, const CBaseTimeline& timeline) {
  return Build(35, [&](CTTBuffer& b) {
    b << track << timeline.UniqueID;
    WriteTimelineBody(b, timeline);
  });
}
CModuleMessage* ModifyTimeline(DWORD track, const CBaseTimeline& timeline) {
  CModuleMessage* message = AddTimeline(track, timeline);
  message->ID = 36;
  return message;
}
CModuleMessage* RemoveTimeline(DWORD track, BYTE timeline) {
  return Build(37, [&](CTTBuffer& b) { b << track << timeline; });
}

CModuleMessage* AddSection(DWORD track, const CBaseSection& section) {
  return Build(38, [&](CTTBuffer& b) {
    b << track << section.UniqueID;
    WriteSectionBody(b, section);
  });
}
CModuleMessage* ModifySection(DWORD track, const CBaseSection& section) {
  CModuleMessage* message = AddSection(track, section);
  message->ID = 39;
  return message;
}
CModuleMessage* RemoveSection(DWORD track, BYTE section) {
  return Build(40, [&](CTTBuffer& b) { b << track << section; });
}

CModuleMessage* AddTrackRecord(DWORD track, const CBaseTrackRecord& record) {
  return Build(41, [&](CTTBuffer& b) {
    b << track << record.UniqueID;
    WriteTrackRecordBody(b, record);
  });
}
CModuleMessage* ModifyTrackRecord(DWORD track, const CBaseTrackRecord& record) {
  CModuleMessage* message = AddTrackRecord(track, record);
  message->ID = 42;
  return message;
}
CModuleMessage* RemoveTrackRecord(DWORD track, DWORD record) { return KeyPair(43, track, record); }

CModuleMessage* AddEvent(const CBaseEvent& event) { return EventMessage(49, event); }
CModuleMessage* ModifyEvent(const CBaseEvent& event) { return EventMessage(50, event); }

CModuleMessage* AddRun(const CBaseRun& run) { return RunMessage(65, run); }
CModuleMessage* ModifyRun(const CBaseRun& run) { return RunMessage(66, run); }
CModuleMessage* AddRange(DWORD run, const CBaseRange& range) {
  return Build(67, [&](CTTBuffer& b) {
    b << run;
    WriteRangeBody(b, range);
  });
}
CModuleMessage* ModifyRange(DWORD run, DWORD index, const CBaseRange& range) {
  return Build(68, [&](CTTBuffer& b) {
    b << run << index;
    WriteRangeBody(b, range);
  });
}
CModuleMessage* RemoveRange(DWORD run, DWORD index) { return KeyPair(69, run, index); }

CModuleMessage* AddAnnouncement(DWORD owner, const CBaseAnnouncement& announcement) {
  return Build(70, [&](CTTBuffer& b) {
    b << owner << announcement.UniqueID;
    WriteAnnouncementBody(b, announcement);
  });
}
CModuleMessage* ModifyAnnouncement(DWORD owner, const CBaseAnnouncement& announcement) {
  CModuleMessage* message = AddAnnouncement(owner, announcement);
  message->ID = 71;
  return message;
}
CModuleMessage* RemoveAnnouncement(DWORD owner, DWORD announcement) { return KeyPair(72, owner, announcement); }

CModuleMessage* AddMerge(const CBaseMerge& merge) { return MergeMessage(81, merge); }
CModuleMessage* ModifyMerge(const CBaseMerge& merge) { return MergeMessage(82, merge); }

CModuleMessage* AddMergeRows(DWORD merge, const std::vector<const CBaseMergeRow*>& rows) {
  return Build(83, [&](CTTBuffer& b) {
    b << merge << static_cast<int>(rows.size());
    for (const CBaseMergeRow* row : rows) row->MergeRowToMessage(b);
  });
}
CModuleMessage* ModifyMergeRows(DWORD merge, const std::vector<const CBaseMergeRow*>& rows) {
  CModuleMessage* message = AddMergeRows(merge, rows);
  message->ID = 84;
  return message;
}
CModuleMessage* RemoveMergeRows(DWORD merge, const std::vector<DWORD>& rows) { return OwnerAndKeys(85, merge, rows); }

CModuleMessage* AddCompetitors(DWORD owner, const std::vector<const CBaseCompetitor*>& competitors) {
  return Build(96, [&](CTTBuffer& b) {
    b << owner << static_cast<int>(competitors.size());
    for (const CBaseCompetitor* competitor : competitors) {
      b << competitor->UniqueID;
      WriteCompetitorBody(b, *competitor);
    }
  });
}
CModuleMessage* ModifyCompetitors(DWORD owner, const std::vector<const CBaseCompetitor*>& competitors) {
  CModuleMessage* message = AddCompetitors(owner, competitors);
  message->ID = 97;
  return message;
}
CModuleMessage* RemoveCompetitors(DWORD owner, const std::vector<DWORD>& competitors) {
  return OwnerAndKeys(98, owner, competitors);
}

namespace {

CModuleMessage* PassingMessage(WORD id, DWORD run, const std::vector<const CBasePassing*>& passings) {
  return Build(id, [&](CTTBuffer& b) {
    b << run;
    // All and add count with a DWORD, modify with an int: the same four bytes.
    if (id == 114) {
      b << static_cast<int>(passings.size());
    } else {
      b << static_cast<DWORD>(passings.size());
    }
    for (const CBasePassing* passing : passings) {
      b << passing->UniqueID;
      WritePassingBody(b, *passing);
    }
  });
}

}  // namespace

CModuleMessage* AllPassings(DWORD run, const std::vector<const CBasePassing*>& passings) {
  return PassingMessage(112, run, passings);
}
CModuleMessage* AddPassings(DWORD run, const std::vector<const CBasePassing*>& passings) {
  return PassingMessage(113, run, passings);
}
CModuleMessage* ModifyPassings(DWORD run, const std::vector<const CBasePassing*>& passings) {
  return PassingMessage(114, run, passings);
}

CModuleMessage* AddTxTranslation(const CBaseTxTranslation& record) {
  return Build(128, [&](CTTBuffer& b) {
    b << record.UniqueID;
    WriteTxTranslationBody(b, record);
  });
}
CModuleMessage* ModifyTxTranslation(const CBaseTxTranslation& record) {
  CModuleMessage* message = AddTxTranslation(record);
  message->ID = 129;
  return message;
}
CModuleMessage* RemoveTxTranslation(DWORD transponder) {
  return Build(130, [&](CTTBuffer& b) { b << transponder; });
}

CModuleMessage* AddChampionship(const CBaseChampionship& record) {
  return Build(257, [&](CTTBuffer& b) {
    b << record.UniqueID;
    WriteChampionshipBody(b, record);
  });
}
CModuleMessage* ModifyChampionship(const CBaseChampionship& record) {
  CModuleMessage* message = AddChampionship(record);
  message->ID = 258;
  return message;
}
CModuleMessage* RemoveChampionship(DWORD id) {
  return Build(259, [&](CTTBuffer& b) { b << id; });
}

}  // namespace DataEncoder
