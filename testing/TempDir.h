// A fresh directory for one test, removed with everything in it at the end of the scope.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

class CTempDir {
 public:
  CTempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = "zol_";
    if (info != nullptr) name += std::string(info->test_suite_name()) + "_" + info->name() + "_";
    name += std::to_string(std::random_device{}());
    Path = std::filesystem::temp_directory_path() / name;
    std::filesystem::create_directories(Path);
  }
  ~CTempDir() {
    std::error_code error;
    std::filesystem::remove_all(Path, error);
  }
  CTempDir(const CTempDir&) = delete;
  CTempDir& operator=(const CTempDir&) = delete;

  std::string File(const std::string& name) const { return (Path / name).string(); }
  const std::filesystem::path& GetPath() const { return Path; }

 private:
  std::filesystem::path Path;
};
