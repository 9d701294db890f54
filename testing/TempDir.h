// A scratch folder for one test, removed with everything in it when the test ends.
#pragma once

#include <string>

class TempDir {
 public:
  TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();

  const std::string& Path() const { return Root; }
  // The path of `relative` below the folder (nothing is created).
  std::string File(const std::string& relative) const { return Root + "/" + relative; }
  // Writes `contents` to `relative` below the folder, making folders on the way.
  std::string Write(const std::string& relative, const std::string& contents) const;

 private:
  std::string Root;
};
