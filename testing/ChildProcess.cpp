#include "testing/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace {

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

std::string UniqueName(const std::string& folder, const char* stream) {
  static std::atomic<int> counter{0};
  std::ostringstream name;
  name << folder << "/child-" << getpid() << "-" << counter++ << "." << stream;
  return name.str();
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& logFolder)
    : StdoutPath(UniqueName(logFolder, "out")), StderrPath(UniqueName(logFolder, "err")) {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  Pid = fork();
  if (Pid == 0) {
    const int out = open(StdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(StderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int in = open("/dev/null", O_RDONLY);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    // The test runner may have blocked signals; the child starts with none blocked.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
}

ChildProcess::~ChildProcess() {
  if (Running()) {
    Signal(SIGKILL);
    WaitForExit(5);
  }
}

bool ChildProcess::Running() {
  if (Pid <= 0 || ExitStatus) return false;
  int status = 0;
  const pid_t done = waitpid(Pid, &status, WNOHANG);
  if (done == 0) return true;
  ExitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return false;
}

void ChildProcess::Signal(int number) {
  if (Running()) kill(Pid, number);
}

std::optional<int> ChildProcess::WaitForExit(double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (Running()) {
    if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return ExitStatus;
}

std::string ChildProcess::Stdout() const { return ReadWhole(StdoutPath); }

std::string ChildProcess::Stderr() const { return ReadWhole(StderrPath); }

bool ChildProcess::WaitForStderr(const std::string& text, double seconds) const {
  return WaitForText(StderrPath, text, seconds);
}

bool ChildProcess::WaitForStdout(const std::string& text, double seconds) const {
  return WaitForText(StdoutPath, text, seconds);
}

bool ChildProcess::WaitForText(const std::string& path, const std::string& text, double seconds) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (ReadWhole(path).find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return ReadWhole(path).find(text) != std::string::npos;
}

std::optional<int> RunToEnd(const std::string& program, const std::vector<std::string>& arguments,
                            const std::string& logFolder, double seconds, std::string* stdoutText,
                            std::string* stderrText) {
  ChildProcess child(program, arguments, logFolder);
  const auto status = child.WaitForExit(seconds);
  if (stdoutText != nullptr) *stdoutText = child.Stdout();
  if (stderrText != nullptr) *stderrText = child.Stderr();
  return status;
}
