#include "client/PageReceiver.h"

#include <gtest/gtest.h>

#include "client/HandBuiltPackets.h"

namespace {

TEST(PageReceiver, BlocksGiveThePagesInTheOrderTheyComplete) {
  const auto a = handbuilt::PagePackets(1, 1, 0, 1, "", "a", handbuilt::TextBytes("alpha"));
  const auto b = handbuilt::PagePackets(1, 2, 0, 1, "d/", "b", handbuilt::TextBytes("beta"));
  zolclient::CPageReceiver receiver;
  receiver.FeedBlocks(b);
  receiver.FeedBlocks(a);
  const auto pages = receiver.TakePages();
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_EQ(pages[0].Record.Name, "b");
  EXPECT_EQ(pages[0].Record.Path, "d/");
  EXPECT_EQ(pages[1].Record.Data, handbuilt::TextBytes("alpha"));
  EXPECT_TRUE(receiver.TakePages().empty());
  EXPECT_EQ(receiver.Scanner().Counters().Good, a.size() + b.size());
}

TEST(PageReceiver, DatagramsWorkLikeBlocks) {
  const auto a = handbuilt::PagePackets(2, 3, 0, 9, "", "a", handbuilt::TextBytes("gamma"), 40);
  zolclient::CPageReceiver receiver(40);
  for (const auto& p : a) receiver.FeedDatagram(p.data(), p.size());
  const auto pages = receiver.TakePages();
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].SequenceLow, 9);
  EXPECT_EQ(receiver.Assembler().Counters().PagesComplete, 1u);
}

}  // namespace
