#include "frame/Package.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "testing/TempDir.h"

TEST(Translation, UnknownKeyReturnsTheKeyEvenWithArguments) {
  CPackage package;
  EXPECT_EQ(package.GetTranslation("lgNo_Such_Key"), "lgNo_Such_Key");
  EXPECT_EQ(package.GetTranslation("lgNo_Such %d %s", 5, "x"), "lgNo_Such %d %s");
}

TEST(Translation, KeyWithEmptyTranslationGetsItsDefaultText) {
  CPackage package;
  package.Translations["lgHeader_Laps"] = "";
  EXPECT_EQ(package.GetTranslation("lgHeader_Laps"), "Laps");
}

TEST(Translation, KeyWithEmptyTranslationAndNoDefaultShowsTheKey) {
  CPackage package;
  package.Translations["lgHeader_Marker"] = "";
  EXPECT_EQ(package.GetTranslation("lgHeader_Marker"), "lgHeader_Marker");
}

TEST(Translation, TextOfMoreThan511BytesIsKeptWhole) {
  CPackage package;
  const std::string longText(700, 'a');
  package.Translations["lgLong"] = longText + "%s";
  EXPECT_EQ(package.GetTranslation("lgLong", "!"), longText + "!");
  const std::string longArgument(600, 'b');
  package.DefaultTexts["lgShort"] = "<%s>";
  EXPECT_EQ(package.GetTranslation("lgShort", longArgument.c_str()), "<" + longArgument + ">");
}

TEST(Translation, LapsWithNoPackageLanguageGivesLaps) {
  CPackage package;
  ASSERT_TRUE(package.Translations.empty());
  EXPECT_EQ(package.GetTranslation("lgHeader_Laps"), "Laps");
}

TEST(Translation, SearchOrderIsLanguageThenDefaultThenKey) {
  CPackage package;
  package.Translations["lgHeader_Gap"] = "Abstand";
  EXPECT_EQ(package.GetTranslation("lgHeader_Gap"), "Abstand");
  EXPECT_EQ(package.GetTranslation("lgHeader_Diff"), "Diff");
  EXPECT_EQ(package.GetTranslation("lgHeader_RunID"), "lgHeader_RunID");
}

TEST(Translation, KeysAreCaseSensitive) {
  CPackage package;
  EXPECT_EQ(package.GetTranslation("lglabel_White_Flag"), "White Flag");
  EXPECT_EQ(package.GetTranslation("lgLabel_White_Flag"), "lgLabel_White_Flag");
}

TEST(Translation, TextIsAFormatForTheArguments) {
  CPackage package;
  package.Translations["lgMsg_Count"] = "%d of %s";
  EXPECT_EQ(package.GetTranslation("lgMsg_Count", 3, "ten"), "3 of ten");
}

TEST(Translation, BuiltInTextsHoldEveryKeyTheModuleUses) {
  CPackage package;
  EXPECT_EQ(package.DefaultTexts.size(), 65u);
  EXPECT_EQ(package.GetTranslation("lgLabel_YellowNC_Flag"), "Yellow Flag (not counting)");
  EXPECT_EQ(package.GetTranslation("lgView_MergeResults"), "Merged Results");
  EXPECT_EQ(package.GetTranslation("lgHeader_DateTime"), "Date & Time");
}

TEST(Translation, LanguageFileOfKeyTextLinesFillsTheTranslations) {
  TempDir dir;
  {
    std::ofstream file(dir.File("de.lng"), std::ios::binary);
    file << "lgHeader_Laps=Runden\r\nlgHeader_Lap=Runde\nnot a line\nlgMsg=a=b\n";
  }
  CPackage package;
  ASSERT_TRUE(package.LoadLanguageFile(dir.File("de.lng")));
  EXPECT_EQ(package.GetTranslation("lgHeader_Laps"), "Runden");
  EXPECT_EQ(package.GetTranslation("lgHeader_Lap"), "Runde");
  EXPECT_EQ(package.GetTranslation("lgMsg"), "a=b");
  EXPECT_EQ(package.Translations.size(), 3u);
  EXPECT_FALSE(package.LoadLanguageFile(dir.File("absent.lng")));
}

TEST(Translation, ModuleWideLookupUsesTheHandedOverPackage) {
  CPackage* before = GetPackage();
  CPackage package;
  package.Translations["lgHeader_Pos"] = "Platz";
  SetModulePackage(&package);
  EXPECT_EQ(GetTranslation("lgHeader_Pos"), "Platz");
  SetModulePackage(nullptr);
  EXPECT_EQ(GetTranslation("lgHeader_Pos"), "Pos");
  EXPECT_EQ(GetTranslation("lgNo_Such %d", 1), "lgNo_Such %d");
  SetModulePackage(before);
}

TEST(Package, ComPortWithoutMappingIsTtyS) {
  CPackage package;
  EXPECT_EQ(package.ComPortDevice(1), "/dev/ttyS0");
  package.ComPorts[3] = "/dev/ttyUSB0";
  EXPECT_EQ(package.ComPortDevice(3), "/dev/ttyUSB0");
}
