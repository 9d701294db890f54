// libFuzzer target over the replica's message handling.
//
// An input is a sequence of messages, each a WORD message ID, a WORD payload length and
// that many payload bytes. Every input starts from a live replica loaded with a small
// race; a message that ends early or names nothing known must leave it by the guards.
//
// Seeds: run the target once with --write-seeds=DIR to write one input per message kind
// of the encoder into DIR, then fuzz with DIR as the corpus.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "frame/KVTException.h"

namespace {

std::unique_ptr<CBaseDataComm> SmallRace() {
  CSampleMaker maker(3);
  return MakeModel(maker, 1, 2, 3, 1, 4);
}

std::vector<std::unique_ptr<CModuleMessage>> SeedMessages(const CBaseDataComm& model) {
  std::vector<std::unique_ptr<CModuleMessage>> seeds;
  auto add = [&](CModuleMessage* message) { seeds.emplace_back(message); };
  const CRun& run = *model.Runs.begin()->second;
  const CTrack& track = *model.Tracks.begin()->second;
  const CMerge& merge = *model.Merges.begin()->second;
  const CBaseCompetitor* competitor = run.Competitors->Competitors.begin()->second;
  CBasePassing passing(1);
  add(DataEncoder::Snapshot(model));
  add(DataEncoder::TrackList(model));
  add(DataEncoder::EventList(model));
  add(DataEncoder::RunList(model));
  add(DataEncoder::MergeList(model));
  add(DataEncoder::AddField(1, *model.FieldVectors[1][0]));
  add(DataEncoder::ModifyField(1, 0, *model.FieldVectors[1][0]));
  add(DataEncoder::RemoveField(1, 0));
  add(DataEncoder::AddTrack(track));
  add(DataEncoder::ModifyTrack(track));
  add(DataEncoder::AddTimeline(track.UniqueID, *track.Timelines.begin()->second));
  add(DataEncoder::AddSection(track.UniqueID, *track.Sections.begin()->second));
  add(DataEncoder::AddTrackRecord(track.UniqueID, *track.TrackRecords.begin()->second));
  add(DataEncoder::RemoveTimeline(track.UniqueID, 0));
  add(DataEncoder::ModifyEvent(*model.Events.begin()->second));
  add(DataEncoder::ModifyRun(run));
  add(DataEncoder::AddRange(run.UniqueID, *run.Ranges[0]));
  add(DataEncoder::RemoveRange(run.UniqueID, 0));
  add(DataEncoder::AddAnnouncement(run.UniqueID, *run.Announcements->Announcements.begin()->second));
  add(DataEncoder::ModifyMerge(merge));
  add(DataEncoder::AddMergeRows(merge.UniqueID, {merge.Rows.begin()->second}));
  add(DataEncoder::RemoveMergeRows(merge.UniqueID, {merge.Rows.begin()->first}));
  add(DataEncoder::AddCompetitors(run.UniqueID, {competitor}));
  add(DataEncoder::ModifyCompetitors(run.UniqueID, {competitor}));
  add(DataEncoder::RemoveCompetitors(run.UniqueID, {competitor->UniqueID}));
  add(DataEncoder::AddPassings(run.UniqueID, {&passing}));
  add(DataEncoder::ModifyPassings(run.UniqueID, {&passing}));
  add(DataEncoder::AddTxTranslation(*model.TxTranslations.begin()->second));
  add(DataEncoder::RemoveChampionship(model.Championships.begin()->first));
  add(DataEncoder::Disconnected());
  return seeds;
}

void AppendFramed(std::string& input, const CModuleMessage& message) {
  const WORD id = message.ID;
  const WORD length = static_cast<WORD>(message.GetFilled() > 0xFFFF ? 0xFFFF : message.GetFilled());
  input.append(reinterpret_cast<const char*>(&id), 2);
  input.append(reinterpret_cast<const char*>(&length), 2);
  input.append(reinterpret_cast<const char*>(message.GetData()), length);
}

std::string SnapshotBytes;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  auto model = SmallRace();
  std::unique_ptr<CModuleMessage> snapshot(DataEncoder::Snapshot(*model));
  SnapshotBytes.assign(reinterpret_cast<const char*>(snapshot->GetData()), snapshot->GetFilled());
  for (int i = 1; i < *argc; ++i) {
    const std::string argument = (*argv)[i];
    if (argument.rfind("--write-seeds=", 0) != 0) continue;
    const std::string directory = argument.substr(std::strlen("--write-seeds="));
    int n = 0;
    for (const auto& message : SeedMessages(*model)) {
      std::string input;
      AppendFramed(input, *message);
      std::ofstream(directory + "/seed" + std::to_string(n++), std::ios::binary) << input;
    }
    std::printf("%d seeds written to %s\n", n, directory.c_str());
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CLiveLink link;
  auto* snapshot = DataEncoder::NewMessage(2);
  snapshot->Assign(SnapshotBytes.data(), SnapshotBytes.size());
  link.Apply(snapshot);
  std::size_t at = 0;
  int messages = 0;
  while (at + 4 <= size && messages++ < 64) {
    WORD id = 0;
    WORD length = 0;
    std::memcpy(&id, data + at, 2);
    std::memcpy(&length, data + at + 2, 2);
    at += 4;
    const std::size_t take = length < size - at ? length : size - at;
    auto* message = DataEncoder::NewMessage(id);
    message->Assign(data + at, take);
    at += take;
    try {
      link.Apply(message);
    } catch (CKVTException* e) {
      delete e;
    }
  }
  return 0;
}
