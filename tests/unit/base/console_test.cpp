#include "base/console.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"
#include "support/waiting.h"

#include "base/signals.h"
#include "base/unique_fd.h"

namespace kelt::base {
namespace {

using tests::outputOf;

struct Pipe {
  explicit Pipe(int flags = 0) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | flags), 0);
    reader.reset(ends[0]);
    writer.reset(ends[1]);
  }
  UniqueFd reader;
  UniqueFd writer;
};

/// Puts another descriptor in the place of standard output while it lives; -1 closes it.
class OutputTo {
 public:
  explicit OutputTo(int fd) : m_kept(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100)) {
    if (fd < 0) {
      ::close(STDOUT_FILENO);
    } else {
      EXPECT_EQ(::dup2(fd, STDOUT_FILENO), STDOUT_FILENO);
    }
  }
  ~OutputTo() { ::dup2(m_kept.get(), STDOUT_FILENO); }

 private:
  UniqueFd m_kept;
};

std::string readToEnd(int fd) {
  std::string text;
  std::array<char, 4096> buffer{};
  while (true) {
    const ssize_t got = ::read(fd, buffer.data(), buffer.size());
    if (got < 0 && errno == EAGAIN) {
      pollfd waited{fd, POLLIN, 0};
      ::poll(&waited, 1, tests::kPatienceMilliseconds);
    } else if (got <= 0) {
      return text;
    } else {
      text.append(buffer.data(), static_cast<std::size_t>(got));
    }
  }
}

TEST(Console, WritesTextAsItIs) {
  const auto output = outputOf([] { print("no line end"); });
  EXPECT_EQ(output.out, "no line end");
  EXPECT_EQ(output.err, "");
}

TEST(Console, WritesLinesOfAnyLengthWhole) {
  for (const std::size_t length : {4095U, 4096U, 4097U, 20000U}) {
    const std::string text(length, 'x');
    const auto output = outputOf([&] {
      printLine(text);
      printLine(std::wstring(length, L'\u20AC'));
      printErrorLine(text);
    });
    EXPECT_EQ(output.err, text + "\n");
    EXPECT_EQ(output.out.substr(0, length + 1), text + "\n");
    ASSERT_EQ(output.out.size(), length + 1 + 3 * length + 1);
    EXPECT_EQ(output.out.substr(length + 1, 6), "\xE2\x82\xAC\xE2\x82\xAC");
    EXPECT_EQ(output.out.substr(output.out.size() - 4), "\xE2\x82\xAC\n");
  }
}

TEST(Console, WritesNarrowAndWideLinesInProgramOrder) {
  const auto output = outputOf([] {
    printLine("narrow");
    printLine(L"wide \u20AC");
    print("narrow again\n");
  });
  EXPECT_EQ(output.out, "narrow\nwide \xE2\x82\xAC\nnarrow again\n");
}

TEST(Console, WritesErrorsToStandardErrorOnly) {
  const auto output = outputOf([] { printErrorLine(L"Fehler \u00FC"); });
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "Fehler \xC3\xBC\n");
}

TEST(Console, WritesBytesThatWereNoTextAsTheyWere) {
  const auto output = outputOf([] { printLine(std::wstring_view(L"caf\xDCE9")); });
  EXPECT_EQ(output.out, "caf\xE9\n");
}

TEST(Console, WritesTheSameWhateverTheLocale) {
  const auto output = outputOf([] {
    std::setlocale(LC_ALL, "C");
    printLine(L"\u00E9");
  });
  EXPECT_EQ(output.out, "\xC3\xA9\n");
}

TEST(Console, WritesALineInOneCall) {
  Pipe pipe(O_DIRECT);  // keeps the writes apart
  {
    const OutputTo output(pipe.writer.get());
    printLine("one");
    printLine(L"two");
  }
  std::array<char, 64> packet{};
  EXPECT_EQ(::read(pipe.reader.get(), packet.data(), packet.size()), 4);
  EXPECT_EQ(::read(pipe.reader.get(), packet.data(), packet.size()), 4);
}

TEST(Console, WritesNothingForNothing) {
  const auto output = outputOf([] { print(""); });
  EXPECT_EQ(output.out, "");
}

TEST(Console, AClosedOutputChangesNothing) {
  const OutputTo closed(-1);
  errno = 0;
  printLine("lost");
  EXPECT_EQ(errno, 0);
}

TEST(Console, AFullOutputChangesNothing) {
  const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(full.bValid());
  const OutputTo output(full.get());
  errno = 0;
  printLine(L"lost");
  EXPECT_EQ(errno, 0);
}

TEST(Console, AnOutputThatNobodyReadsDoesNotEndTheRun) {
  tests::Child child([] {
    Pipe pipe;
    pipe.reader.reset();
    ::dup2(pipe.writer.get(), STDOUT_FILENO);
    ignoreOutputSignals();
    printLine("lost");
    printLine("lost too");
    return 42;
  });
  EXPECT_EQ(child.exitStatus(), 42);
}

TEST(Console, WaitsForASlowReaderOfANonBlockingOutput) {
  Pipe pipe(O_NONBLOCK);
  const std::string text(300'000, 'x');  // more than a pipe holds
  std::string seen;
  std::thread reader([&] { seen = readToEnd(pipe.reader.get()); });
  {
    const OutputTo output(pipe.writer.get());
    pipe.writer.reset();
    print(text);
  }
  reader.join();
  EXPECT_EQ(seen.size(), text.size());
}

TEST(Console, GivesUpOnANonBlockingOutputThatNobodyEmpties) {
  Pipe pipe(O_NONBLOCK);
  const auto begin = std::chrono::steady_clock::now();
  {
    const OutputTo output(pipe.writer.get());
    print(std::string(300'000, 'x'));
  }
  const auto spent = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(spent, std::chrono::seconds(1));
  EXPECT_LE(spent, tests::kPatience);
}

TEST(Console, GoesOnAfterASignalInTheMiddleOfAWrite) {
  struct sigaction before {};
  struct sigaction interrupting {};
  interrupting.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &interrupting, &before), 0);
  Pipe pipe;
  const pthread_t writing = ::pthread_self();
  std::string seen;
  std::thread reader([&] {
    for (int i = 0; i < 20; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      ::pthread_kill(writing, SIGUSR1);
    }
    seen = readToEnd(pipe.reader.get());
  });
  {
    const OutputTo output(pipe.writer.get());
    pipe.writer.reset();
    print(std::string(300'000, 'x'));
  }
  reader.join();
  EXPECT_EQ(seen.size(), 300'000U);
  ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace kelt::base
