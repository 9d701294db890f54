#include "testing/ExampleInstallation.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

bool CopyExamples(const TempDir& appdir, std::uint16_t port) {
  fs::copy(fs::path(kExampleFolder) / "site", fs::path(appdir.Path()) / "site", fs::copy_options::recursive);
  // The plain files of the administration site, served by the file page.
  if (fs::exists(fs::path(kExampleFolder) / "HTML")) {
    fs::copy(fs::path(kExampleFolder) / "HTML", fs::path(appdir.Path()) / "HTML", fs::copy_options::recursive);
  }
  std::string settings = ReadWholeFile(kExampleFolder + "/Config/ZOLServer.ini");
  const std::string line = "port=51000";
  const auto at = settings.find(line);
  if (at == std::string::npos) return false;
  settings.replace(at, line.size(), "port=" + std::to_string(port));
  appdir.Write("Config/ZOLServer.ini", settings);
  return true;
}

std::vector<std::string> RaceCompetitorNames(const std::string& raceFile) {
  const auto race = nlohmann::json::parse(ReadWholeFile(raceFile));
  std::vector<std::string> names;
  for (const auto& competitor : race.at("competitors")) {
    const std::string first = competitor.value("first", "");
    const std::string last = competitor.value("last", "");
    names.push_back(first.empty() ? last : first + " " + last);
  }
  return names;
}
