#include "check/supervisor.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "check/message.h"

#include "base/retry.h"
#include "base/unique_fd.h"

namespace kelt::check {
namespace {

using base::retryInterrupted;
using base::UniqueFd;
using Clock = std::chrono::steady_clock;

constexpr const char* kRun = "run.complete";

/// Nothing that is called by the way may reach the console or a file, whatever it is; a crash leaves no core either.
void renounceWriting() {
  const UniqueFd nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (nowhere) {
    ::dup2(nowhere.get(), STDOUT_FILENO);
    ::dup2(nowhere.get(), STDERR_FILENO);
  }
  // A pipe is no file to the limit, so findings go on.
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_FSIZE, &none);
  ::setrlimit(RLIMIT_CORE, &none);
}

/// Whatever ends the process that reports ends this one, also where that has come first.
void endWith(pid_t reporter) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != reporter) ::_exit(1);
}

[[noreturn]] void lookAndEnd(pid_t reporter, int pipe, const std::function<void(Findings&)>& look) {
  endWith(reporter);
  renounceWriting();
  try {
    PipeFindings findings(pipe);
    look(findings);
    sendEnd(pipe);
    // Without destructors and exit handlers, which belong to the process that reports.
    ::_exit(0);
  } catch (...) {
    // No memory: that the end is missing says it.
    ::_exit(1);
  }
}

/// One supervised process.
class Supervision {
 public:
  Supervision(const Limits& limits, pid_t process, UniqueFd pipe)
      : m_limits(limits), m_process(process), m_pipe(std::move(pipe)), m_deadline(Clock::now() + limits.all) {}

  /// All that is found, until the end or the deadline.
  Report wait() {
    while (bMore()) {
    }
    // Once it has said that it is done, it only ends.
    if (m_receiver.bComplete()) retryInterrupted([&] { return ::waitpid(m_process, nullptr, 0); });
    if (!m_receiver.bComplete()) tellWhyNotComplete();
    return std::move(m_receiver.report());
  }

 private:
  /// Waits for the next bytes and takes them. Returns false at the end of the pipe or of the time.
  bool bMore() {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now()).count();
    pollfd wanted{m_pipe.get(), POLLIN, 0};
    const int ready = left <= 0 ? 0 : retryInterrupted([&] { return ::poll(&wanted, 1, static_cast<int>(left)); });
    if (ready == 0) {
      // Killed and not waited for: in a file system that does not answer it dies only when that does. What is left of
      // it is the system's to collect, once this process has ended.
      m_bOverdue = true;
      ::kill(m_process, SIGKILL);
      return false;
    }
    const ssize_t count = retryInterrupted([&] { return ::read(m_pipe.get(), m_bytes.data(), m_bytes.size()); });
    if (count <= 0) return false;
    if (!m_receiver.take(m_bytes.data(), static_cast<std::size_t>(count))) {
      // Its memory is in disorder; it may never end.
      ::kill(m_process, SIGKILL);
      return false;
    }
    startNetworkTime();
    return true;
  }

  /// Once, with the first thing that waits for others; what comes later has what is left.
  void startNetworkTime() {
    if (m_bNetwork || m_receiver.begun().waitsFor.empty()) return;
    m_bNetwork = true;
    m_deadline = std::min(m_deadline, Clock::now() + m_limits.network);
  }

  /// The last finding, which names what was looked at when it ended.
  void tellWhyNotComplete() {
    const Begun& begun = m_receiver.begun();
    const bool bNetwork = !begun.waitsFor.empty();
    const std::string what =
        "There was no end of " + (bNetwork ? begun.waitsFor : "the checks from " + begun.id + " on");
    Check check{bNetwork ? begun.id : kRun, {}, State::kUnknown, {}, {}};
    if (!m_bOverdue) {
      check.fact = what + howItEnded();
      check.remedy = "Run it again; report it where that does not help.";
    } else if (bNetwork) {
      check.state = State::kProblem;
      check.fact = what + " within the time for the network.";
      check.remedy = "Check the name service, the network and the server; a transfer would wait for them, too.";
    } else {
      check.fact = what + " within the time for all.";
      check.remedy = "Look for a file system that does not answer, or a device that is overloaded.";
    }
    m_receiver.report().checks.push_back(std::move(check));
  }

  /// Of a process that has ended by itself.
  std::string howItEnded() {
    int status = 0;
    m_pipe.reset();  // or it could wait for a reader for ever
    retryInterrupted([&] { return ::waitpid(m_process, &status, 0); });
    if (!WIFSIGNALED(status)) return ", for want of memory.";
    return ": a signal ended the look, " + std::to_string(WTERMSIG(status)) + ".";
  }

  const Limits& m_limits;
  pid_t m_process;
  UniqueFd m_pipe;
  Clock::time_point m_deadline;
  std::array<char, 16384> m_bytes{};  ///< what came last; cleared once, as that takes longer than reading a message
  Receiver m_receiver;
  bool m_bNetwork = false;
  bool m_bOverdue = false;
};

/// A run that did not come to looking.
Report refused(const char* what) {
  return {{{kRun, {}, State::kUnknown, what, "Free memory and processes, and run it again."}}, {}};
}

}  // namespace

Report supervised(const Limits& limits, const std::function<void(Findings&)>& look) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return refused("The system has no pipe for the checks.");
  UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  const pid_t reporter = ::getpid();
  const pid_t process = ::fork();
  if (process < 0) return refused("The system has no process for the checks.");
  if (process == 0) {
    reading.reset();
    lookAndEnd(reporter, writing.get(), look);
  }
  // Or the end of the pipe would never show.
  writing.reset();
  return Supervision(limits, process, std::move(reading)).wait();
}

}  // namespace kelt::check
