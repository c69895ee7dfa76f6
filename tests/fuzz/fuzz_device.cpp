// Moves a fuzz target into a private device before libFuzzer does anything, so that no input can change the machine.
//
// The device lacks the files that the command line names. They are opened before, and reached below /proc/self/fd from
// then on: by the program, which is started anew there, and by what libFuzzer starts of it for a merge.
//
// One flag is ours: -processor_seconds=N ends the run, as libFuzzer ends it on SIGUSR1, after so much processor time.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <list>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "support/private_device.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSeconds = "-processor_seconds=";

[[noreturn]] void fail(const std::string& what) {
  std::perror(what.c_str());
  ::_exit(99);
}

/// A path to the same file that stays good in the device.
std::string kept(const fs::path& path) {
  const int fd = ::open(path.c_str(), O_PATH);  // for started programs, too
  if (fd < 0) fail(path);
  return "/proc/self/fd/" + std::to_string(fd);
}

/// The same for one that need not be there yet, or that ends in "/".
std::string keptBelow(const fs::path& path) {
  return kept(fs::absolute(path).parent_path()) + "/" + path.filename().string();
}

/// An argument as it is to be in the device.
std::string translated(const std::string& argument) {
  for (const std::string_view flag : {"-artifact_prefix=", "-merge_control_file="}) {
    if (argument.starts_with(flag)) return std::string(flag) + keptBelow(argument.substr(flag.size()));
  }
  constexpr std::string_view kDictionary = "-dict=";
  if (argument.starts_with(kDictionary)) {
    return std::string(kDictionary) + kept(argument.substr(kDictionary.size()));
  }
  return argument.starts_with('-') ? argument : kept(argument);
}

void endAfter(long seconds) {
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGUSR1;
  itimerspec time{};
  time.it_value.tv_sec = seconds;
  timer_t timer{};
  if (seconds <= 0 || ::timer_create(CLOCK_PROCESS_CPUTIME_ID, &event, &timer) != 0 ||
      ::timer_settime(timer, 0, &time, nullptr) != 0) {
    fail(std::string(kSeconds));
  }
}

/// A command line, kept to the end of the program.
class CommandLine {
 public:
  explicit CommandLine(char* program) { m_pointers.push_back(program); }
  void add(std::string argument) { m_pointers.push_back(m_texts.emplace_back(std::move(argument)).data()); }
  void handOver(int& argc, char**& argv) {
    argc = static_cast<int>(m_pointers.size());
    m_pointers.push_back(nullptr);
    argv = m_pointers.data();
  }

 private:
  std::list<std::string> m_texts;
  std::vector<char*> m_pointers;
};

/// The arguments with their paths translated.
void translatePaths(int& argc, char**& argv) {
  static CommandLine line(argv[0]);
  for (int i = 1; i < argc; ++i)
    line.add(translated(argv[i]));
  line.handOver(argc, argv);
}

/// The arguments without ours, which is done.
void takeOurs(int& argc, char**& argv) {
  static CommandLine line(argv[0]);
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with(kSeconds)) {
      endAfter(std::strtol(argv[i] + kSeconds.size(), nullptr, 10));
    } else {
      line.add(argv[i]);
    }
  }
  line.handOver(argc, argv);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerInitialize(int* argc, char*** argv) {
  translatePaths(*argc, *argv);
  kelt::tests::enterPrivateDevice(*argv);  // returns in the device only
  takeOurs(*argc, *argv);
  return 0;
}
