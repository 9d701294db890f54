#include "frame/Parameters.h"

#include <gtest/gtest.h>

#include <vector>

#include "frame/TTBuffer.h"
#include "testing/KVTCatch.h"

TEST(Parameters, TableWithEntriesBAndAWritesAFirst) {
  CParameters table;
  table.Add("b", "2");
  table.Add("a", "1");
  CTTBuffer buffer(64);
  table.ParametersToBuffer(buffer);
  const std::vector<BYTE> expected = {2, 0, 0, 0,                //
                                      1, 0, 0, 0, 'a', 1, 0, 0, 0, '1',  //
                                      1, 0, 0, 0, 'b', 1, 0, 0, 0, '2'};
  EXPECT_EQ(std::vector<BYTE>(buffer.GetData(), buffer.GetData() + buffer.GetFilled()), expected);
}

TEST(Parameters, OrderIsByteWiseAndCaseSensitive) {
  CParameters table;
  table.Add("b", "x");
  table.Add("B", "y");
  table.Add("a", "z");
  std::vector<std::string> names;
  for (const auto& entry : table.GetEntries()) names.push_back(entry.first);
  EXPECT_EQ(names, (std::vector<std::string>{"B", "a", "b"}));
}

TEST(Parameters, WireFormRoundTrips) {
  CParameters table;
  table.Add("name", "value");
  table.Add("empty", "");
  table.Add("spaced key", " spaced value ");
  CTTBuffer buffer(8);
  table.ParametersToBuffer(buffer);
  buffer.Reset();
  CParameters copy;
  copy.BufferToParameters(buffer);
  EXPECT_TRUE(copy == table);
  EXPECT_EQ(copy.GetString("spaced key"), " spaced value ");
}

TEST(Parameters, BufferToParametersMergesIntoExistingEntries) {
  CParameters incoming;
  incoming.Add("a", "new");
  incoming.Add("c", "3");
  CTTBuffer buffer(64);
  incoming.ParametersToBuffer(buffer);
  buffer.Reset();

  CParameters table;
  table.Add("a", "old");
  table.Add("b", "2");
  table.BufferToParameters(buffer);
  EXPECT_EQ(table.GetCount(), 3u);
  EXPECT_EQ(table.GetString("a"), "new");
  EXPECT_EQ(table.GetString("b"), "2");
  EXPECT_EQ(table.GetString("c"), "3");
}

TEST(Parameters, AddOverwritesAnExistingName) {
  CParameters table;
  table.Add("k", "1");
  table.Add("k", "2");
  EXPECT_EQ(table.GetCount(), 1u);
  EXPECT_EQ(table.GetString("k"), "2");
}

TEST(Parameters, GetStringOfAbsentNameYieldsEmptyString) {
  CParameters table;
  table.Add("present", "x");
  std::string value = "unchanged";
  EXPECT_EQ(CatchKVT([&] { value = table.GetString("absent"); }), nullptr);
  EXPECT_EQ(value, "");
  EXPECT_EQ(table.GetCount(), 1u);
}

TEST(Parameters, AddIntMinusOneStoresMinusOne) {
  CParameters table;
  table.Add("x", -1);
  EXPECT_EQ(table.GetString("x"), "-1");
}

TEST(Parameters, DwordIsZeroExtendedAndIntSignExtended) {
  CParameters table;
  table.Add("dword", static_cast<DWORD>(0xFFFFFFFF));
  table.Add("int", static_cast<int>(0xFFFFFFFF));
  table.Add("int64", static_cast<INT64>(-9223372036854775807LL - 1));
  table.Add("big", static_cast<INT64>(1234567890123LL));
  EXPECT_EQ(table.GetString("dword"), "4294967295");
  EXPECT_EQ(table.GetString("int"), "-1");
  EXPECT_EQ(table.GetString("int64"), "-9223372036854775808");
  EXPECT_EQ(table.GetString("big"), "1234567890123");
}

TEST(Parameters, EqualityOfTablesOfDifferentSizeIsFalse) {
  CParameters small;
  small.Add("x", "1");
  CParameters large;
  large.Add("x", "1");
  large.Add("y", "2");
  // Every entry of the smaller table is in the larger one: only the size tells them apart.
  EXPECT_FALSE(small == large);
  EXPECT_FALSE(large == small);
}

TEST(Parameters, EqualityComparesNamesAndValues) {
  CParameters a;
  a.Add("x", "1");
  a.Add("y", "2");
  CParameters b;
  b.Add("y", "2");
  b.Add("x", "1");
  EXPECT_TRUE(a == b);
  b.Add("x", "other");
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(CParameters() == CParameters());
}

TEST(Parameters, FindParameterNeedsExactNameAndValue) {
  CParameters table;
  table.Add("Name", "Value");
  EXPECT_EQ(table.FindParameter("Name", "Value"), TRUE);
  EXPECT_EQ(table.FindParameter("name", "Value"), FALSE);
  EXPECT_EQ(table.FindParameter("Name", "value"), FALSE);
  EXPECT_EQ(table.FindParameter("Name", "Value "), FALSE);
}

TEST(Parameters, ShortWireFormThrowsThroughTheGuard) {
  CTTBuffer buffer(16);
  buffer << 2 << std::string("only") << std::string("one");
  buffer.Reset();
  CParameters table;
  auto e = CatchKVT([&] { table.BufferToParameters(buffer); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail().back(), "CParameters::BufferToParameters()");
  // The entry read before the failure is kept.
  EXPECT_EQ(table.GetString("only"), "one");
}

TEST(Parameters, WriteIntoAFullFixedBufferThrowsThroughTheGuard) {
  CParameters table;
  table.Add("name", "value");
  CTTBuffer buffer(6);
  buffer.SetAutoGrow(0);
  auto e = CatchKVT([&] { table.ParametersToBuffer(buffer); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail().back(), "CParameters::ParametersToBuffer()");
}
