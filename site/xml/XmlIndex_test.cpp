#include "site/xml/XmlIndex.h"

#include <gtest/gtest.h>

#include <string>

#include "site/xml/XmlDocument.h"

TEST(XmlIndex, GrowsByHalfOfItsCapacity) {
  CXmlIndex index;
  index.Reset(8);
  EXPECT_EQ(index.Capacity(), 8u);
  index.Grow();
  EXPECT_EQ(index.Capacity(), 12u);
  index.Grow();
  EXPECT_EQ(index.Capacity(), 18u);
  EXPECT_EQ(index.SegmentCount(), 1u);
}

TEST(XmlIndex, RecordsSurviveGrowthAcrossSegments) {
  CXmlIndex index;
  index.Reset(1000);
  DWORD filled = 0;
  while (index.Capacity() < 3 * CXmlIndex::kSegmentRecords) {
    for (; filled < index.Capacity(); ++filled) {
      index[filled].Word[0] = filled;
      index[filled].Word[7] = ~filled;
    }
    index.Grow();
  }
  EXPECT_GE(index.SegmentCount(), 3u);
  for (DWORD i = 0; i < filled; ++i) {
    ASSERT_EQ(index[i].Word[0], i);
    ASSERT_EQ(index[i].Word[7], ~i);
  }
}

TEST(XmlIndex, FullSegmentsAreNeverMoved) {
  CXmlIndex index;
  index.Reset(CXmlIndex::kSegmentRecords + 100);
  ASSERT_EQ(index.SegmentCount(), 2u);
  const XmlElementRecord* first = &index[0];
  const XmlElementRecord* lastOfFirst = &index[CXmlIndex::kSegmentRecords - 1];
  index.Grow();
  index.Grow();
  EXPECT_EQ(&index[0], first);
  EXPECT_EQ(&index[CXmlIndex::kSegmentRecords - 1], lastOfFirst);
  EXPECT_EQ(index.SegmentCount(), 3u);
}

TEST(XmlIndex, IndexChoosesSegmentByUpperBitsAndRecordByLower) {
  CXmlIndex index;
  index.Reset(2 * CXmlIndex::kSegmentRecords + 1);
  EXPECT_EQ(index.SegmentCount(), 3u);
  index[0x20000].Word[0] = 42;
  index[0x1FFFF].Word[0] = 41;
  EXPECT_EQ(index[0x20000].Word[0], 42u);
  EXPECT_EQ(index[0x1FFFF].Word[0], 41u);
  EXPECT_NE(&index[0x20000], &index[0x1FFFF] + 1) << "another segment";
}

TEST(XmlIndex, RecordFieldsPackLengthsDepthAndFirstChildBit) {
  XmlElementRecord record{};
  record.SetTagLengths(0x3FFFFF, 0x3FF);
  EXPECT_EQ(record.StartTagLength(), 0x3FFFFFu);
  EXPECT_EQ(record.EndTagLength(), 0x3FFu);
  record.SetTagLengths(17, 6);
  EXPECT_EQ(record.Word[2], 17u | (6u << 22));
  record.Word[3] = 5 | XmlElementRecord::kFirstChildBit;
  EXPECT_EQ(record.Depth(), 5u);
  EXPECT_TRUE(record.IsFirstChild());
}

TEST(XmlIndex, ParseSizesTheIndexForTheDocument) {
  CXmlDocument doc;
  const std::string text = "<r>" + std::string(6400, ' ') + "</r>";
  ASSERT_TRUE(doc.Parse(text));
  EXPECT_GE(doc.GetIndexCapacity(), text.size() / 64 + 8);
  EXPECT_EQ(doc.GetElementCount(), 1u);
}

namespace {

// A root with `count` elements <e i="k">, each holding <v>k</v>.
std::string BigDocument(int count) {
  std::string text = "<root>";
  for (int k = 0; k < count; ++k) {
    const std::string n = std::to_string(k);
    text += "<e i=\"" + n + "\"><v>" + n + "</v></e>";
  }
  return text + "</root>";
}

constexpr int kEntries = 100000;  // 200,001 elements with the root

}  // namespace

TEST(XmlLargeDocument, TwoHundredThousandElementsSpanSeveralSegments) {
  CXmlDocument doc;
  ASSERT_TRUE(doc.Parse(BigDocument(kEntries))) << doc.GetError();
  EXPECT_EQ(doc.GetElementCount(), 2u * kEntries + 1);
  EXPECT_GE(doc.GetSegmentCount(), 4u);
}

TEST(XmlLargeDocument, SiblingWalkReadsEveryAttributeAndChild) {
  CXmlDocument doc;
  ASSERT_TRUE(doc.Parse(BigDocument(kEntries)));
  ASSERT_TRUE(doc.FindElement("root"));
  ASSERT_TRUE(doc.IntoElement());
  int seen = 0;
  DWORD highestSegment = 0;
  while (doc.FindElement("e")) {
    ASSERT_EQ(doc.GetAttribute("i"), std::to_string(seen));
    ASSERT_TRUE(doc.FindChildElement("v"));
    highestSegment = std::max(highestSegment, doc.GetChildIndex() >> 16);
    ASSERT_TRUE(doc.IntoElement());
    ASSERT_EQ(doc.GetData(), std::to_string(seen));
    ASSERT_TRUE(doc.OutOfElement());
    ASSERT_EQ(doc.GetTagName(), "e");
    ++seen;
  }
  EXPECT_EQ(seen, kEntries);
  EXPECT_GE(highestSegment, 3u) << "the walk reached the last segment";
}

TEST(XmlLargeDocument, LastElementAndItsParentFromALaterSegment) {
  CXmlDocument doc;
  ASSERT_TRUE(doc.Parse(BigDocument(kEntries)));
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.IntoElement());
  // Skip to the last entry with a search that only the last one satisfies in order.
  while (doc.FindElement("e")) {
  }
  EXPECT_FALSE(doc.FindElement("e"));
  EXPECT_EQ(doc.GetAttribute("i"), std::to_string(kEntries - 1));
  EXPECT_GE(doc.GetElementIndex() >> 16, 3u);
  ASSERT_TRUE(doc.FindChildElement());
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetTagName(), "v");
  EXPECT_EQ(doc.GetData(), std::to_string(kEntries - 1));
  ASSERT_TRUE(doc.OutOfElement());
  ASSERT_TRUE(doc.OutOfElement());
  EXPECT_EQ(doc.GetTagName(), "root");
  EXPECT_FALSE(doc.OutOfElement());
  // First element again, from the root.
  ASSERT_TRUE(doc.FindElement("/root"));
  ASSERT_TRUE(doc.FindChildElement("e"));
  ASSERT_TRUE(doc.IntoElement());
  EXPECT_EQ(doc.GetAttribute("i"), "0");
  EXPECT_EQ(doc.GetElementIndex() >> 16, 0u);
}

TEST(XmlLargeDocument, EditInTheFirstSegmentMovesElementsOfLaterSegments) {
  CXmlDocument doc;
  ASSERT_TRUE(doc.Parse(BigDocument(kEntries)));
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.FindChildElement("e"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.FindChildElement("v"));
  ASSERT_TRUE(doc.IntoElement());
  ASSERT_TRUE(doc.SetData("first <of> many", false));
  ASSERT_TRUE(doc.OutOfElement());
  ASSERT_TRUE(doc.OutOfElement());
  ASSERT_TRUE(doc.FindElement("/root"));
  ASSERT_TRUE(doc.IntoElement());
  int seen = 0;
  while (doc.FindElement()) {
    ASSERT_EQ(doc.GetAttribute("i"), std::to_string(seen));
    ASSERT_TRUE(doc.FindChildElement());
    ASSERT_TRUE(doc.IntoElement());
    ASSERT_EQ(doc.GetData(), seen == 0 ? "first <of> many" : std::to_string(seen));
    ASSERT_TRUE(doc.OutOfElement());
    ++seen;
  }
  EXPECT_EQ(seen, kEntries);
}

TEST(XmlLargeDocument, ManyEmptyElementsGrowTheIndexPastItsFirstSize) {
  std::string text = "<r>";
  for (int k = 0; k < 200000; ++k) text += "<e/>";
  text += "</r>";
  CXmlDocument doc;
  ASSERT_TRUE(doc.Parse(text)) << doc.GetError();
  EXPECT_EQ(doc.GetElementCount(), 200001u);
  EXPECT_GT(doc.GetIndexCapacity(), text.size() / 64 + 8);
  ASSERT_TRUE(doc.FindElement());
  ASSERT_TRUE(doc.IntoElement());
  int seen = 0;
  while (doc.FindElement("e")) ++seen;
  EXPECT_EQ(seen, 200000);
  ASSERT_TRUE(doc.SetData("last", false));
  const std::string& edited = doc.GetDocument();
  EXPECT_EQ(edited.size(), text.size() + 7);
  EXPECT_EQ(edited.substr(edited.size() - 19), "<e/><e>last</e></r>");
}
