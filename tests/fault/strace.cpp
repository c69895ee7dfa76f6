#include "strace.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sys/wait.h>

#include "support/private_device.h"

namespace kelt::tests {

Ending runUnder(const std::string& name, const std::string& arguments, const std::vector<std::string>& faults,
                const std::string& traced) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
  std::string command = "exec strace -qq -o /tmp/trace -e trace=" + traced;
  for (const std::string& fault : faults)
    command += " -e " + fault;
  command += " " + program + " " + arguments + " 2>/tmp/errors";
  // A sanitizer cannot look for leaks in a traced program.
  const int status = std::system(("ASAN_OPTIONS=detect_leaks=0 LSAN_OPTIONS=detect_leaks=0; "
                                  "export ASAN_OPTIONS LSAN_OPTIONS; " +
                                  command)
                                     .c_str());
  Ending ending;
  ending.trace = contentOf("/tmp/trace");
  ending.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  ending.bInjected = ending.trace.find("(INJECTED)") != std::string::npos ||
                     ending.trace.find("killed by SIGKILL") != std::string::npos;
  return ending;
}

std::vector<std::string> callsOf(const std::vector<Fault>& faults) {
  std::vector<std::string> calls;
  for (const Fault& fault : faults) {
    if (std::find(calls.begin(), calls.end(), fault.call) == calls.end()) calls.push_back(fault.call);
  }
  return calls;
}

}  // namespace kelt::tests
