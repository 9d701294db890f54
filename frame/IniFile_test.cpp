#include "frame/IniFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "testing/TempDir.h"

namespace {

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

std::string ReadString(CIniFile& ini, const std::string& section, const std::string& key) {
  std::string value;
  ini.Read(section, key, value, "<none>");
  return value;
}

}  // namespace

TEST(IniFile, ReadsSectionsAndItems) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "top=1\n[General]\nname=ZOL\nport=51000\n[Other]\nname=x\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "", "top"), "1");
  EXPECT_EQ(ReadString(ini, "General", "name"), "ZOL");
  EXPECT_EQ(ReadString(ini, "Other", "name"), "x");
  DWORD port = 0;
  ini.Read("General", "port", port, 7);
  EXPECT_EQ(port, 51000u);
}

TEST(IniFile, LineWithSpacesRoundItsEqualsSignKeepsThem) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\nkey = value \n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", "key "), " value ");
  EXPECT_EQ(ReadString(ini, "s", "key"), "<none>");
}

TEST(IniFile, LineWithTwoEqualsSignsSplitsAtTheFirst) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\na=b=c\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", "a"), "b=c");
}

TEST(IniFile, DuplicateKeyFindsTheFirstAndSavesBoth) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\nk=first\nk=second\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", "k"), "first");
  ini.Write("s", "other", "x");
  ini.Save();
  EXPECT_EQ(ReadFile(dir.File("a.ini")), "[s]\r\nk=first\r\nk=second\r\nother=x\r\n");
}

TEST(IniFile, WritingToAKeyChangesTheFirstDuplicate) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\nk=first\nk=second\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  ini.Write("s", "k", "changed");
  EXPECT_EQ(ReadString(ini, "s", "k"), "changed");
  ini.Save();
  EXPECT_EQ(ReadFile(dir.File("a.ini")), "[s]\r\nk=changed\r\nk=second\r\n");
}

TEST(IniFile, ValueOfLettersReadAsNumberGivesZeroNotTheDefault) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\nn=abc\nm=12abc\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  int n = 99;
  ini.Read("s", "n", n, 99);
  EXPECT_EQ(n, 0);
  DWORD d = 99;
  ini.Read("s", "n", d, 99);
  EXPECT_EQ(d, 0u);
  ini.Read("s", "m", n, 99);
  EXPECT_EQ(n, 12);
  ini.Read("s", "missing", n, 99);
  EXPECT_EQ(n, 99);
}

TEST(IniFile, FileThatEndsWithoutLineFeedLosesItsLastLine) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\na=1\nb=2");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", "a"), "1");
  EXPECT_EQ(ReadString(ini, "s", "b"), "<none>");
}

TEST(IniFile, ReadLeavesModifiedAloneSoNothingIsRewritten) {
  TempDir dir;
  const std::string original = "; comment\n[s]\na=1\n";
  WriteFile(dir.File("a.ini"), original);
  {
    CIniFile ini(dir.File("a.ini"));
    ini.Load();
    std::string value;
    ini.Read("s", "a", value, "");
    int number = 0;
    ini.Read("s", "a", number, 0);
    EXPECT_EQ(ini.IsModified(), 0);
  }  // the destructor saves only when modified
  EXPECT_EQ(ReadFile(dir.File("a.ini")), original);
}

TEST(IniFile, CarriageReturnsAreDroppedWherever) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[se\rc]\r\nke\ry=va\rl\r\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "sec", "key"), "val");
}

TEST(IniFile, HeaderDropsFirstAndLastCharacterWithoutLookingForTheBracket) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[abc\nx=1\n[\ny=2\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "ab", "x"), "1");
  EXPECT_EQ(ReadString(ini, "", "y"), "2");
}

TEST(IniFile, ItemsBeforeTheFirstHeaderBelongToTheEmptySection) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "a=1\n[s]\nb=2\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "", "a"), "1");
  EXPECT_EQ(ReadString(ini, "s", "a"), "<none>");
}

TEST(IniFile, CommentHoldingEqualsCountsAsItem) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\n; note\n;x=y\n\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", ";x"), "y");
  EXPECT_EQ(ini.FindItem("s", "; note"), nullptr);
}

TEST(IniFile, KeysAreCaseSensitive) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[S]\nKey=1\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  EXPECT_NE(ini.FindItem("S", "Key"), nullptr);
  EXPECT_EQ(ini.FindItem("S", "key"), nullptr);
  EXPECT_EQ(ini.FindItem("s", "Key"), nullptr);
}

TEST(IniFile, MissingFileKeepsTheContents) {
  TempDir dir;
  CIniFile ini(dir.File("absent.ini"));
  ini.Write("s", "k", "v");
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", "k"), "v");
}

TEST(IniFile, LoadReplacesTheContents) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "[s]\nnew=1\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Write("s", "old", "v");
  ini.Load();
  EXPECT_EQ(ini.FindItem("s", "old"), nullptr);
  EXPECT_NE(ini.FindItem("s", "new"), nullptr);
}

TEST(IniFile, EmptyFileGivesEmptyTable) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "");
  CIniFile ini(dir.File("a.ini"));
  ini.Write("s", "old", "v");
  ini.Load();
  EXPECT_EQ(ini.FindItem("s", "old"), nullptr);
}

TEST(IniFile, SaveWritesSortedSectionsWithCrLfAndBlankLineBetweenNamedSections) {
  TempDir dir;
  CIniFile ini(dir.File("out.ini"));
  ini.Write("zeta", "k", "v");
  ini.Write("", "top", "1");
  ini.Write("alpha", "x", "y");
  ini.Write("alpha", "n", static_cast<DWORD>(4000000000u));
  ini.Write("zeta", "i", -3);
  EXPECT_EQ(ini.IsModified(), 1);
  ini.Save();
  EXPECT_EQ(ini.IsModified(), 0);
  EXPECT_EQ(ReadFile(dir.File("out.ini")),
            "top=1\r\n"
            "[alpha]\r\nx=y\r\nn=4000000000\r\n"
            "\r\n[zeta]\r\nk=v\r\ni=-3\r\n");
}

TEST(IniFile, FirstNamedSectionHasNoBlankLineBeforeIt) {
  TempDir dir;
  CIniFile ini(dir.File("out.ini"));
  ini.Write("b", "k", "2");
  ini.Write("a", "k", "1");
  ini.Save();
  EXPECT_EQ(ReadFile(dir.File("out.ini")), "[a]\r\nk=1\r\n\r\n[b]\r\nk=2\r\n");
}

TEST(IniFile, SaveDropsCommentsAndStrayLinesAndTruncates) {
  TempDir dir;
  WriteFile(dir.File("a.ini"), "; a long comment that must go away\n[s]\nstray\na=1\n");
  CIniFile ini(dir.File("a.ini"));
  ini.Load();
  ini.Write("s", "a", "2");
  ini.Save();
  EXPECT_EQ(ReadFile(dir.File("a.ini")), "[s]\r\na=2\r\n");
}

TEST(IniFile, SaveWithoutChangesWritesNothing) {
  TempDir dir;
  CIniFile ini(dir.File("never.ini"));
  ini.Save();
  EXPECT_FALSE(std::filesystem::exists(dir.File("never.ini")));
}

TEST(IniFile, DestructorSavesAChangedFile) {
  TempDir dir;
  {
    CIniFile ini(dir.File("d.ini"));
    ini.Write("s", "k", "v");
  }
  EXPECT_EQ(ReadFile(dir.File("d.ini")), "[s]\r\nk=v\r\n");
}

TEST(IniFile, SavedFileLoadsBackTheSame) {
  TempDir dir;
  {
    CIniFile ini(dir.File("r.ini"));
    ini.Write("", "a", " spaced ");
    ini.Write("port1", "type", "tcp");
    ini.Write("port1", "port", static_cast<DWORD>(51000));
  }
  CIniFile ini(dir.File("r.ini"));
  ini.Load();
  EXPECT_EQ(ReadString(ini, "", "a"), " spaced ");
  EXPECT_EQ(ReadString(ini, "port1", "type"), "tcp");
  int port = 0;
  ini.Read("port1", "port", port, 0);
  EXPECT_EQ(port, 51000);
}

TEST(IniFile, BackslashPathsReachTheFile) {
  TempDir dir;
  std::filesystem::create_directories(std::filesystem::path(dir.Path()) / "Config");
  WriteFile(dir.File("Config/ZOLServer.ini"), "[s]\nk=v\n");
  CIniFile ini(dir.Path() + "\\Config\\ZOLServer.ini");
  ini.Load();
  EXPECT_EQ(ReadString(ini, "s", "k"), "v");
}
