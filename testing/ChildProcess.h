// Runs a program of the project as a child process for tests, with its standard output
// and error collected in files.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

class ChildProcess {
 public:
  // Starts `program` with `arguments`; output goes to files in `logFolder`.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments, const std::string& logFolder);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  // Kills the process if it still runs.
  ~ChildProcess();

  bool Running();
  pid_t ProcessId() const { return Pid; }
  void Signal(int number);
  // The exit status once the process ended within `seconds`, or nothing. A process
  // ended by a signal reports 128 + the signal number.
  std::optional<int> WaitForExit(double seconds);
  std::string Stdout() const;
  std::string Stderr() const;
  // Waits until standard error holds `text`; false after `seconds`.
  bool WaitForStderr(const std::string& text, double seconds) const;
  bool WaitForStdout(const std::string& text, double seconds) const;

 private:
  bool WaitForText(const std::string& path, const std::string& text, double seconds) const;

  pid_t Pid = -1;
  std::optional<int> ExitStatus;
  std::string StdoutPath;
  std::string StderrPath;
};

// Runs a program to its end and returns its exit status (or nothing after `seconds`).
std::optional<int> RunToEnd(const std::string& program, const std::vector<std::string>& arguments,
                            const std::string& logFolder, double seconds, std::string* stdoutText = nullptr,
                            std::string* stderrText = nullptr);
