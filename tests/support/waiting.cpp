#include "support/waiting.h"

#include <csignal>
#include <fstream>
#include <thread>

namespace kelt::tests {
namespace {

/// What a line of /proc/<task>/status says; empty when there is no such line or task.
std::string statusOf(const std::string& task, const std::string& name) {
  std::ifstream status(task + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return {};
}

}  // namespace

bool bComesTrue(const std::function<bool()>& bSo) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!bSo()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

bool bSleeps(const std::string& task) {
  return statusOf(task, "State").starts_with("S");
}

bool bWaitsForLock(pid_t process) {
  const std::string task = "/proc/" + std::to_string(process);
  const std::string caught = statusOf(task, "SigCgt");
  return !caught.empty() && (std::stoull(caught, nullptr, 16) & (1ULL << (SIGALRM - 1))) != 0 && bSleeps(task);
}

}  // namespace kelt::tests
