#include "frame/platform/ProgramFiles.h"

#include <gtest/gtest.h>

#include "frame/platform/Paths.h"
#include "frame/platform/SharedLibrary.h"

namespace {

// The test program itself is a file that lies beside the test program.
const char* const kThisProgram = "zol_tests";

}  // namespace

TEST(ProgramFiles, TakesTheFirstCandidateThatExists) {
  const std::string beside = platform::JoinPath(platform::ProgramDirectory(), kThisProgram);
  ASSERT_TRUE(platform::FileExists(beside));
  EXPECT_EQ(platform::FindProgramFile({"no-such-file", kThisProgram}), beside);
  EXPECT_EQ(platform::FindProgramFile({kThisProgram, "no-such-file"}), beside);
}

TEST(ProgramFiles, ResolvesParentFoldersOfRelativeCandidates) {
  const std::string folder = platform::ProgramDirectory();
  const std::string up = std::string("../") + folder.substr(folder.rfind('/') + 1) + "/" + kThisProgram;
  EXPECT_EQ(platform::FindProgramFile({up}), platform::JoinPath(folder, kThisProgram));
}

TEST(ProgramFiles, FallsBackToTheFirstCandidateWhenNoneExists) {
  const std::string folder = platform::ProgramDirectory();
  const std::string parent = folder.substr(0, folder.rfind('/'));
  EXPECT_EQ(platform::FindProgramFile({"../lib/absent/libabsent.so", "absent.so"}),
            platform::JoinPath(parent, "lib/absent/libabsent.so"));
}
