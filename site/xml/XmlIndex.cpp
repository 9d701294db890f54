#include "site/xml/XmlIndex.h"

#include <algorithm>
#include <cstring>

#include "frame/KVTException.h"

DWORD CXmlIndex::SegmentSize(DWORD capacity, DWORD segment) {
  const unsigned long long first = static_cast<unsigned long long>(segment) * kSegmentRecords;
  if (capacity <= first) return 0;
  return static_cast<DWORD>(std::min<unsigned long long>(kSegmentRecords, capacity - first));
}

void CXmlIndex::Reset(DWORD capacity) {
  Guarded("CXmlIndex::Reset()", [&] {
    m_segments.clear();
    m_capacity = 0;
    m_segmentTableSize = 0;
    Extend(0, std::max<DWORD>(capacity, 1));
  });
}

void CXmlIndex::Grow() {
  Guarded("CXmlIndex::Grow()", [&] {
    const DWORD step = std::max<DWORD>(m_capacity / 2, 1);
    if (m_capacity > 0xFFFFFFFFu - step) ThrowKVT("CXmlIndex::Grow()");
    Extend(m_capacity, m_capacity + step);
  });
}

void CXmlIndex::Extend(DWORD oldCapacity, DWORD newCapacity) {
  const DWORD oldSegments = m_segmentTableSize;
  const DWORD newSegments =
      static_cast<DWORD>((static_cast<unsigned long long>(newCapacity) + kSegmentRecords - 1) /
                         kSegmentRecords);
  m_segments.resize(newSegments);

  // The last old segment moves only when it was incomplete and now holds more.
  if (oldSegments > 0) {
    const DWORD last = oldSegments - 1;
    const DWORD before = SegmentSize(oldCapacity, last);
    const DWORD after = SegmentSize(newCapacity, last);
    if (after > before) {
      auto larger = std::make_unique<XmlElementRecord[]>(after);
      std::memcpy(larger.get(), m_segments[last].get(), before * sizeof(XmlElementRecord));
      m_segments[last] = std::move(larger);
    }
  }
  for (DWORD segment = oldSegments; segment < newSegments; ++segment)
    m_segments[segment] = std::make_unique<XmlElementRecord[]>(SegmentSize(newCapacity, segment));

  m_capacity = newCapacity;
  m_segmentTableSize = newSegments;
}
