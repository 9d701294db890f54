#include "frame/KVTException.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "testing/KVTCatch.h"

TEST(Guard, ReturnsTheBodysValue) {
  EXPECT_EQ(Guarded("A()", [] { return 42; }), 42);
}

TEST(Guard, ForeignExceptionBecomesKVTExceptionWithTheName) {
  auto e = CatchKVT([] { Guarded("CThing::Do()", []() -> int { throw std::runtime_error("boom"); }); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail(), (std::vector<std::string>{"CThing::Do()"}));
}

TEST(Guard, TrailGrowsInnermostFirst) {
  auto e = CatchKVT([] {
    Guarded("Outer()", [] { Guarded("Middle()", [] { Guarded("Inner()", [] { throw 5; }); }); });
  });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail(), (std::vector<std::string>{"Inner()", "Middle()", "Outer()"}));
  EXPECT_EQ(e->Describe(), "Inner() <- Middle() <- Outer()");
}

TEST(Guard, KVTExceptionKeepsItsIdentityAndGetsTheNameAppended) {
  CKVTException* thrown = nullptr;
  auto e = CatchKVT([&] {
    Guarded("Outer()", [&] {
      thrown = new CKVTException("Origin");
      throw thrown;
    });
  });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e.get(), thrown);
  EXPECT_EQ(e->GetTrail(), (std::vector<std::string>{"Origin", "Outer()"}));
}

TEST(Guard, ThrowKVTStartsATrail) {
  auto e = CatchKVT([] { Guarded("Caller()", [] { ThrowKVT("Cause"); }); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail(), (std::vector<std::string>{"Cause", "Caller()"}));
}

TEST(Guard, NothingThrownGivesNoException) {
  EXPECT_EQ(CatchKVT([] { Guarded("Quiet()", [] {}); }), nullptr);
}

TEST(Guard, AStandardExceptionKeepsItsTextAsTheReason) {
  auto e = CatchKVT([] {
    Guarded("Outer()", [] { Guarded("Inner()", []() -> int { throw std::out_of_range("vector index 7 of 3"); }); });
  });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail(), (std::vector<std::string>{"Inner()", "Outer()"}));
  EXPECT_EQ(e->GetReason(), "vector index 7 of 3");
  EXPECT_EQ(e->DescribeWithReason(), "Inner() <- Outer(): vector index 7 of 3");
}

TEST(Guard, AnExceptionWithoutTextHasNoReason) {
  auto e = CatchKVT([] { Guarded("Quiet()", [] { throw 5; }); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetReason(), "");
  EXPECT_EQ(e->DescribeWithReason(), "Quiet()");
}
