// The recording file: what the writer stores comes back from the reader read by read,
// and a file that is no recording, of another version, or damaged is told in one line.
#include "client/HandBuiltPackets.h"
#include "client/Recording.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "testing/TempDir.h"

namespace {

using zolclient::CRecordingReader;
using zolclient::CRecordingWriter;
using zolclient::RecordedRead;
using zolclient::RecordKind;

std::vector<BYTE> Pattern(std::size_t n, unsigned seed) { return handbuilt::SeededBytes(n, seed); }

std::vector<BYTE> FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<BYTE>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string& path, const std::vector<BYTE>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// A stream recording of three reads around a new connection, built by hand.
struct Sample {
  std::vector<BYTE> File;
  std::vector<std::size_t> RecordStarts;  // byte offset of each record
};

Sample ThreeReads() {
  Sample sample;
  sample.File = zolclient::RecordingHeader(false, 1700000000123u);
  const std::vector<std::vector<BYTE>> reads = {Pattern(100, 1), Pattern(2000, 2), Pattern(7, 3)};
  sample.RecordStarts.push_back(sample.File.size());
  zolclient::AppendRecord(sample.File, 0, RecordKind::NewConnection, nullptr, 0);
  for (std::size_t i = 0; i < reads.size(); ++i) {
    sample.RecordStarts.push_back(sample.File.size());
    zolclient::AppendRecord(sample.File, 1000 * (i + 1), RecordKind::Data, reads[i].data(), reads[i].size());
  }
  return sample;
}

// Reads every record; the count and the damage line are left in the reader.
std::vector<RecordedRead> ReadAll(CRecordingReader& reader) {
  std::vector<RecordedRead> records;
  RecordedRead record;
  while (reader.Next(record)) records.push_back(record);
  return records;
}

TEST(RecordingFile, WriterAndReaderRoundTripEveryReadWithItsTimeAndKind) {
  TempDir temp;
  const std::string path = temp.File("round.zolrec");
  const std::vector<BYTE> first = Pattern(300, 7);
  const std::vector<BYTE> second = Pattern(16384, 8);
  {
    CRecordingWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path, false, error)) << error;
    writer.WriteNewConnection(10);
    writer.WriteData(25, first.data(), first.size());
    writer.WriteData(25, second.data(), second.size());
    writer.WriteNewConnection(5000000);
    writer.WriteData(5000100, first.data(), 1);
    EXPECT_EQ(writer.TakeFailure(), "");
    EXPECT_EQ(writer.RecordsWritten(), 5u);
  }
  const std::vector<BYTE> bytes = FileBytes(path);
  ASSERT_GE(bytes.size(), zolclient::kRecordingHeaderSize);
  EXPECT_EQ(std::memcmp(bytes.data(), "ZOLREC\r\n", 8), 0);
  EXPECT_EQ(bytes.size(), zolclient::kRecordingHeaderSize + 5 * 17 + 300 + 16384 + 1);

  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(path, error)) << error;
  EXPECT_FALSE(reader.IsDatagram());
  EXPECT_GT(reader.WallMilliseconds(), 1600000000000u);
  const std::vector<RecordedRead> records = ReadAll(reader);
  EXPECT_EQ(reader.Damage(), "");
  ASSERT_EQ(records.size(), 5u);
  EXPECT_EQ(records[0].Kind, RecordKind::NewConnection);
  EXPECT_EQ(records[0].Microseconds, 10u);
  EXPECT_TRUE(records[0].Bytes.empty());
  EXPECT_EQ(records[1].Kind, RecordKind::Data);
  EXPECT_EQ(records[1].Microseconds, 25u);
  EXPECT_EQ(records[1].Bytes, first);
  EXPECT_EQ(records[2].Bytes, second);
  EXPECT_EQ(records[3].Kind, RecordKind::NewConnection);
  EXPECT_EQ(records[3].Microseconds, 5000000u);
  EXPECT_EQ(records[4].Bytes, std::vector<BYTE>(first.begin(), first.begin() + 1));
  EXPECT_EQ(reader.RecordsRead(), 5u);
  // The end stays the end.
  RecordedRead more;
  EXPECT_FALSE(reader.Next(more));
}

TEST(RecordingFile, DatagramRecordingsSayTheyAreAndKeepEachDatagramWhole) {
  TempDir temp;
  const std::string path = temp.File("datagrams.zolrec");
  std::vector<std::vector<BYTE>> sent;
  {
    CRecordingWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path, true, error)) << error;
    for (unsigned i = 0; i < 50; ++i) {
      sent.push_back(Pattern(1 + i * 37 % 128, i));
      writer.WriteData(i * 1000u, sent.back().data(), sent.back().size());
    }
  }
  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(path, error)) << error;
  EXPECT_TRUE(reader.IsDatagram());
  const std::vector<RecordedRead> records = ReadAll(reader);
  ASSERT_EQ(records.size(), sent.size());
  for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(records[i].Bytes, sent[i]) << i;
}

TEST(RecordingFile, AStreamReadLongerThanARecordIsSplitAndComesBackWhole) {
  TempDir temp;
  const std::string path = temp.File("long.zolrec");
  const std::vector<BYTE> data = Pattern(zolclient::kMaxRecordLength * 2 + 5, 9);
  {
    CRecordingWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path, false, error)) << error;
    writer.WriteData(1, data.data(), data.size());
    EXPECT_EQ(writer.RecordsWritten(), 3u);
  }
  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(path, error)) << error;
  std::vector<BYTE> joined;
  for (const RecordedRead& record : ReadAll(reader)) joined.insert(joined.end(), record.Bytes.begin(), record.Bytes.end());
  EXPECT_EQ(reader.Damage(), "");
  EXPECT_EQ(joined, data);
}

TEST(RecordingFile, AFileThatIsNoRecordingIsRefusedInOneLine) {
  TempDir temp;
  const std::string path = temp.Write("page.html", "<html><body>not a recording at all</body></html>\n");
  CRecordingReader reader;
  std::string error;
  EXPECT_FALSE(reader.Open(path, error));
  EXPECT_EQ(error, path + " is not a recording made with --record");

  const std::string empty = temp.Write("empty", "");
  EXPECT_FALSE(reader.Open(empty, error));
  EXPECT_EQ(error, empty + " is not a recording made with --record");

  EXPECT_FALSE(reader.Open(temp.File("missing"), error));
  EXPECT_EQ(error, "cannot open the recording " + temp.File("missing") + " (no such file or directory)");
  EXPECT_FALSE(reader.Open(temp.Path(), error));
  EXPECT_EQ(error.find('\n'), std::string::npos);
  EXPECT_NE(error.find("cannot open the recording " + temp.Path()), std::string::npos) << error;
}

TEST(RecordingFile, AnotherFormatVersionIsRefusedInOneLine) {
  CRecordingReader reader;
  std::string error;
  std::vector<BYTE> file = zolclient::RecordingHeader(false, 0, 2);
  const BYTE data[3] = {1, 2, 3};
  zolclient::AppendRecord(file, 0, RecordKind::Data, data, 3);
  EXPECT_FALSE(reader.OpenBytes(file, "old.zolrec", error));
  EXPECT_EQ(error, "old.zolrec is a recording of format version 2; this zolclient reads version 1");

  std::vector<BYTE> cut = zolclient::RecordingHeader(false, 0);
  cut.resize(12);
  EXPECT_FALSE(reader.OpenBytes(cut, "cut.zolrec", error));
  EXPECT_EQ(error, "the recording cut.zolrec is cut short within its header");

  std::vector<BYTE> kind = zolclient::RecordingHeader(false, 0);
  kind[10] = 7;
  EXPECT_FALSE(reader.OpenBytes(kind, "kind.zolrec", error));
  EXPECT_EQ(error, "the recording kind.zolrec has a damaged header (source kind 7, 0)");
}

TEST(RecordingFile, GarbageInTheMiddleIsReadUpToThereAndToldWithItsOffset) {
  const Sample sample = ThreeReads();
  // Over the middle of the 2000-byte read (record 3), within its data only: the checksum
  // is what finds it.
  std::vector<BYTE> damaged = sample.File;
  const std::size_t at = sample.RecordStarts[2] + 13 + 900;
  for (std::size_t i = 0; i < 64; ++i) damaged[at + i] = static_cast<BYTE>(0xA5 ^ i);
  TempDir temp;
  const std::string path = temp.File("damaged.zolrec");
  WriteBytes(path, damaged);

  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(path, error)) << error;
  const std::vector<RecordedRead> records = ReadAll(reader);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].Bytes, Pattern(100, 1));
  EXPECT_EQ(reader.Damage(), "the recording " + path + " is damaged at byte " +
                                 std::to_string(sample.RecordStarts[2]) +
                                 " (record 3): its checksum does not match; played up to there");
  // Told once: the reader stays at the damage.
  RecordedRead more;
  EXPECT_FALSE(reader.Next(more));
  EXPECT_EQ(reader.RecordsRead(), 2u);
}

TEST(RecordingFile, GarbageOverARecordHeadIsToldAsTheKindOrLengthItMakes) {
  const Sample sample = ThreeReads();
  std::vector<BYTE> kind = sample.File;
  kind[sample.RecordStarts[3] + 12] = 9;
  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.OpenBytes(kind, "k", error)) << error;
  EXPECT_EQ(ReadAll(reader).size(), 3u);
  EXPECT_EQ(reader.Damage(), "the recording k is damaged at byte " + std::to_string(sample.RecordStarts[3]) +
                                 " (record 4): unknown record kind 9; played up to there");

  std::vector<BYTE> mark = sample.File;
  mark[sample.RecordStarts[0] + 8] = 4;  // a new-connection record that claims data
  ASSERT_TRUE(reader.OpenBytes(mark, "m", error)) << error;
  EXPECT_EQ(ReadAll(reader).size(), 0u);
  EXPECT_EQ(reader.Damage(), "the recording m is damaged at byte 20 (record 1): a new-connection record with 4 "
                             "bytes; played up to there");
}

TEST(RecordingFile, ACutLastRecordIsToldAndTheOnesBeforeItAreRead) {
  const Sample sample = ThreeReads();
  for (const std::size_t keep : {sample.File.size() - 1, sample.RecordStarts[3] + 5, sample.RecordStarts[3] + 15}) {
    std::vector<BYTE> cut(sample.File.begin(), sample.File.begin() + static_cast<std::ptrdiff_t>(keep));
    CRecordingReader reader;
    std::string error;
    ASSERT_TRUE(reader.OpenBytes(cut, "cut.zolrec", error)) << error;
    EXPECT_EQ(ReadAll(reader).size(), 3u) << keep;
    const std::string where = keep < sample.RecordStarts[3] + 13 ? "the file ends within the record's head"
                                                                  : "the file ends within the record";
    EXPECT_EQ(reader.Damage(), "the recording cut.zolrec is damaged at byte " + std::to_string(sample.RecordStarts[3]) +
                                   " (record 4): " + where + "; played up to there")
        << keep;
  }
  // Cut exactly between records: a clean end.
  std::vector<BYTE> whole(sample.File.begin(), sample.File.begin() + static_cast<std::ptrdiff_t>(sample.RecordStarts[3]));
  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.OpenBytes(whole, "whole.zolrec", error)) << error;
  EXPECT_EQ(ReadAll(reader).size(), 3u);
  EXPECT_EQ(reader.Damage(), "");
}

TEST(RecordingFile, AHugeLengthFieldIsDamageAndIsNotAllocated) {
  const Sample sample = ThreeReads();
  std::vector<BYTE> huge = sample.File;
  for (int i = 0; i < 4; ++i) huge[sample.RecordStarts[2] + 8 + static_cast<std::size_t>(i)] = 0xFF;
  TempDir temp;
  const std::string path = temp.File("huge.zolrec");
  WriteBytes(path, huge);
  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(path, error)) << error;
  EXPECT_EQ(ReadAll(reader).size(), 2u);
  EXPECT_EQ(reader.Damage(), "the recording " + path + " is damaged at byte " + std::to_string(sample.RecordStarts[2]) +
                                 " (record 3): length 4294967295 is above the limit of 1048576; played up to there");
  // The reader held its read-ahead, nothing near the length it was shown.
  EXPECT_LE(reader.HeldBytes(), std::size_t{1} << 17);

  // One byte above the limit is refused too; the limit itself is a length.
  std::vector<BYTE> above = sample.File;
  const std::uint32_t length = zolclient::kMaxRecordLength + 1;
  std::memcpy(&above[sample.RecordStarts[1] + 8], &length, 4);
  ASSERT_TRUE(reader.OpenBytes(above, "above", error)) << error;
  EXPECT_EQ(ReadAll(reader).size(), 1u);
  EXPECT_NE(reader.Damage().find("length 1048577 is above the limit"), std::string::npos) << reader.Damage();
}

TEST(RecordingFile, ATimeThatGoesBackIsDamage) {
  std::vector<BYTE> file = zolclient::RecordingHeader(true, 0);
  const BYTE data[2] = {1, 2};
  zolclient::AppendRecord(file, 500, RecordKind::Data, data, 2);
  const std::size_t second = file.size();
  zolclient::AppendRecord(file, 499, RecordKind::Data, data, 2);
  CRecordingReader reader;
  std::string error;
  ASSERT_TRUE(reader.OpenBytes(file, "t", error)) << error;
  EXPECT_EQ(ReadAll(reader).size(), 1u);
  EXPECT_EQ(reader.Damage(), "the recording t is damaged at byte " + std::to_string(second) +
                                 " (record 2): its time, 499 us, is earlier than that of the record before; played up "
                                 "to there");
}

TEST(RecordingFile, TheWriterReplacesAnOldFileAndTellsWhenItCannotMakeOne) {
  TempDir temp;
  const std::string path = temp.Write("old.zolrec", std::string(100000, 'x'));
  {
    CRecordingWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path, false, error)) << error;
  }
  EXPECT_EQ(std::filesystem::file_size(path), zolclient::kRecordingHeaderSize);

  CRecordingWriter writer;
  std::string error;
  EXPECT_FALSE(writer.Open(temp.File("no/such/folder/rec"), false, error));
  EXPECT_EQ(error, "cannot make the recording " + temp.File("no/such/folder/rec") + " (no such file or directory)");
  EXPECT_FALSE(writer.Open(temp.Path(), false, error));
  EXPECT_EQ(error.find('\n'), std::string::npos);
  EXPECT_EQ(error.rfind("cannot make the recording " + temp.Path() + " (", 0), 0u) << error;
}

}  // namespace
