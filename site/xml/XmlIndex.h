// The element index of a markup document: records of eight 32-bit words, kept in
// segments of 65536 records, addressed by an index whose upper 16 bits choose the
// segment and whose lower 16 bits the record in it.
#pragma once

#include <memory>
#include <vector>

#include "frame/Types.h"

// One element. Word layout:
//   0 offset of the start tag      1 length from start tag to the end of the end tag
//   2 start tag length (22 bits), end tag length (upper 10 bits, 0 for "/>")
//   3 depth (16 bits), bit 19 set on the first child of its parent
//   4 parent  5 first child  6 next sibling
//   7 previous sibling; the first child's points to the last child
struct XmlElementRecord {
  DWORD Word[8];

  static constexpr DWORD kStartTagMask = 0x3FFFFF;
  static constexpr DWORD kMaxEndTagLength = 0x3FF;
  static constexpr DWORD kFirstChildBit = 1u << 19;

  DWORD Offset() const { return Word[0]; }
  DWORD Length() const { return Word[1]; }
  DWORD StartTagLength() const { return Word[2] & kStartTagMask; }
  DWORD EndTagLength() const { return Word[2] >> 22; }
  DWORD Depth() const { return Word[3] & 0xFFFF; }
  bool IsFirstChild() const { return (Word[3] & kFirstChildBit) != 0; }
  DWORD Parent() const { return Word[4]; }
  DWORD FirstChild() const { return Word[5]; }
  DWORD NextSibling() const { return Word[6]; }
  DWORD PreviousSibling() const { return Word[7]; }

  void SetTagLengths(DWORD startTag, DWORD endTag) {
    Word[2] = (startTag & kStartTagMask) | (endTag << 22);
  }
};

static_assert(sizeof(XmlElementRecord) == 32, "an element record is eight words");

class CXmlIndex {
 public:
  static constexpr DWORD kSegmentRecords = 65536;

  CXmlIndex() = default;
  CXmlIndex(const CXmlIndex&) = delete;
  CXmlIndex& operator=(const CXmlIndex&) = delete;
  virtual ~CXmlIndex() = default;

  // Frees every segment, then makes room for at least `capacity` records.
  void Reset(DWORD capacity);

  // Grows by half of the capacity. Full segments stay where they are; only the last
  // segment, when it is incomplete, is moved into a larger block.
  void Grow();

  XmlElementRecord& operator[](DWORD index) {
    return m_segments[index >> 16][index & 0xFFFF];
  }
  const XmlElementRecord& operator[](DWORD index) const {
    return m_segments[index >> 16][index & 0xFFFF];
  }

  DWORD Capacity() const { return m_capacity; }
  DWORD SegmentCount() const { return m_segmentTableSize; }

 private:
  // Capacity of segment `segment` when the index holds `capacity` records.
  static DWORD SegmentSize(DWORD capacity, DWORD segment);
  void Extend(DWORD oldCapacity, DWORD newCapacity);

  std::vector<std::unique_ptr<XmlElementRecord[]>> m_segments;
  DWORD m_capacity = 0;
  DWORD m_segmentTableSize = 0;
};
