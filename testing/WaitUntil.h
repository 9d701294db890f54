// Polls a condition every 5 ms until it holds or the time is up; tests never sleep blind.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

inline bool WaitUntil(const std::function<bool()>& condition, int seconds = 30) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return condition();
}
