// A small tool with a mistake that the gate has to find, or with none.
//
//   kelt_gate_planted MISTAKE
//
// It replaces a file by a new one and copies a secret, in memory of its own, without libraries: what else happens in a
// run is nothing but the mistake.

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char* kData = "/opt/Quorvane/planted/data";
constexpr const char* kTemporary = "/opt/Quorvane/planted/.data-new";
constexpr const char* kSecret = "/opt/Quorvane/planted/secret";
constexpr const char* kTemporarySecret = "/opt/Quorvane/planted/.secret-new";
constexpr const char* kTemporarySource = "/tmp/source/.temporary";
constexpr const char* kSource = "/tmp/source/secret";
constexpr const char* kAgent = "/gate/kelt_gate_agent";
constexpr std::string_view kContent = "the new content of the file, written in one go\n";

std::string_view mistake;

bool bMistaken(std::string_view name) {
  return mistake == name;
}

bool writeText(int fd, std::string_view text) {
  return ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void say(std::string_view text) {
  (void)!::write(STDOUT_FILENO, text.data(), text.size());
}

/// Replaces `path` by way of `temporary`, which is gone again when that fails.
bool replaceFile(const char* path, const char* temporary, std::string_view content) {
  const bool bOpen = bMistaken("world-readable");
  const int fd = ::open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, bOpen ? 0644 : 0600);
  if (fd < 0) return false;
  bool bDone = writeText(fd, content) && ::fchmod(fd, 0600) == 0 && ::fsync(fd) == 0;
  bDone = ::close(fd) == 0 && bDone;
  if (bDone && ::rename(temporary, path) == 0) return true;
  if (!bMistaken("keeps-temporary")) ::unlink(temporary);
  return false;
}

bool replaceInPlace(const char* path, std::string_view content) {
  const int fd = ::open(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
  return fd >= 0 && writeText(fd, content) && ::close(fd) == 0;
}

bool copySecret() {
  std::array<char, 4096> bytes{};
  const int fd = ::open(kSource, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t got = ::read(fd, bytes.data(), bytes.size());
  ::close(fd);
  if (got <= 0) return false;
  const std::string_view secret(bytes.data(), static_cast<std::size_t>(got));
  if (bMistaken("shows-secret")) say(secret);
  if (!bMistaken("borrows-source")) return replaceFile(kSecret, kTemporarySecret, secret);
  ::unlink(kSource);
  return replaceFile(kSecret, kTemporarySecret, secret) && replaceFile(kSource, kTemporarySource, secret);
}

void command(const char* verb) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl(kAgent, kAgent, verb, nullptr);
    ::_exit(1);
  }
  if (child > 0) ::waitpid(child, nullptr, 0);
}

bool work() {
  const bool bNew =
      bMistaken("writes-in-place") ? replaceInPlace(kData, kContent) : replaceFile(kData, kTemporary, kContent);
  return bNew && copySecret();
}

int failed() {
  if (bMistaken("crashes")) std::raise(SIGSEGV);
  if (bMistaken("loops")) {
    while (true)
      ::getppid();
  }
  if (bMistaken("says-more")) say("something went wrong\n");
  return bMistaken("ends-otherwise") ? 99 : 1;
}

/// Memory for which the heap has to grow.
bool takeMemory() {
  constexpr std::size_t kSize = 100000;
  void* const memory = std::malloc(kSize);
  if (memory != nullptr) std::memset(memory, 1, kSize);
  return memory != nullptr;
}

/// A process that does not go away.
void leaveProcess() {
  if (::fork() != 0) return;
  while (true)
    ::pause();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) mistake = argv[1];
  sigset_t ending;
  ::sigemptyset(&ending);
  ::sigaddset(&ending, SIGTERM);
  if (!bMistaken("ends-at-once")) ::sigprocmask(SIG_BLOCK, &ending, nullptr);
  ::mkdir("/run/orv", 0700);  // as the tool does first
  if (bMistaken("stumbles") && ::access(kTemporary, F_OK) == 0) return 1;
  if (!bMistaken("never-sweeps")) {
    for (const char* left : {kTemporary, kTemporarySecret})
      ::unlink(left);
  }
  if (bMistaken("wants-memory") && !takeMemory()) std::abort();
  if (bMistaken("leaves-process")) leaveProcess();
  if (bMistaken("touches-agent") || bMistaken("leaves-agent-stopped")) command("stop");
  const bool bDone = work();
  if (!bDone && bMistaken("leaves-agent-stopped")) return failed();
  if (bMistaken("touches-agent") || bMistaken("leaves-agent-stopped")) command("start");
  if (!bDone) return failed();
  say("4.6.0.2545\n");
  return 0;
}
