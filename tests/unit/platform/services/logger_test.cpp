#include "platform/logger.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "base/file_read.h"
#include "base/unique_fd.h"
#include "platform/iconfiguration.h"

namespace kelt::tests {
namespace {

const std::string kData = "/opt/Quorvane/orv/scratch";
const std::string kLogs = kData + "/logs";
const std::string kLog = kLogs + "/keltcfg.log";
constexpr std::size_t kLimit = std::size_t{1024} * 1024;

using Names = std::vector<std::string>;

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(contentOf(path));
  for (std::string line; std::getline(text, line);)
    lines.push_back(line);
  return lines;
}

/// What follows time, mark and process id, that is: source, tab, text.
std::string messageOf(const std::string& line) {
  std::size_t at = 0;
  for (int field = 0; field < 3; ++field) {
    at = line.find('\t', at);
    if (at++ == std::string::npos) return "no line of a log: " + line;
  }
  return line.substr(at);
}

class Logger : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kData);
    quorvane_com::orv::configuration::IConfiguration::GetConfiguration().SetConfigurationDirectory(L"/etc/orv.d");
  }

  /// Logging has no effect that a caller could notice.
  static void expectUnnoticed() {
    errno = 4711;
    const auto output = outputOf([] { logError(L"keltcfg", L"lost"); });
    EXPECT_EQ(errno, 4711);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
  }
};

TEST_F(Logger, WritesTimeMarkProcessSourceAndTextSeparatedByTabs) {
  ::setenv("TZ", "America/New_York", 1);
  ::tzset();
  const time_t before = ::time(nullptr);
  logInfo(L"keltcfg", L"Successfully imported the keys.");
  logError(L"keltcfg", L"Unable to locate server keys ");
  const time_t after = ::time(nullptr);
  ::unsetenv("TZ");
  ::tzset();
  const auto lines = linesOf(kLog);
  ASSERT_EQ(lines.size(), 2U);
  const std::string pid = std::to_string(::getpid());
  EXPECT_EQ(lines[0].substr(20), "\tI\t" + pid + "\tkeltcfg\tSuccessfully imported the keys.");
  EXPECT_EQ(lines[1].substr(20), "\tE\t" + pid + "\tkeltcfg\tUnable to locate server keys ");
  struct tm utc {};
  ASSERT_NE(::strptime(lines[0].substr(0, 20).c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc), nullptr) << lines[0];
  EXPECT_GE(::timegm(&utc), before);
  EXPECT_LE(::timegm(&utc), after);
}

TEST_F(Logger, MakesItsDirectoryAndItsFileForItsOwnerOnly) {
  const mode_t before = ::umask(0);
  logInfo(L"keltcfg", L"text");
  ::umask(before);
  EXPECT_EQ(modeOf(kLogs), 0700U);
  EXPECT_EQ(modeOf(kLog), 0600U);
}

TEST_F(Logger, AddsToWhatIsThere) {
  putFile(kLog, "an older line\n", 0600);
  logInfo(L"keltcfg", L"text");
  const auto lines = linesOf(kLog);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "an older line");
}

TEST_F(Logger, WritesToTheAgentsDataDirectory) {
  putDirectory("/tmp/data");
  putFile("/etc/orv.d/ZENTORAGENT1000/config.xml",
          "<Configuration><FrameworkDataDirectory>/tmp/data</FrameworkDataDirectory></Configuration>");
  logInfo(L"keltcfg", L"text");
  EXPECT_EQ(linesOf("/tmp/data/logs/keltcfg.log").size(), 1U);
  EXPECT_EQ(namesIn(kData), Names{});
}

TEST_F(Logger, KeepsALineOneLineWhateverTheText) {
  logInfo(L"a\tb", L"one\ntwo\r\tthree \x1B[31m \x7F \u0085 end");
  const auto lines = linesOf(kLog);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(messageOf(lines[0]), "a\\tb\tone\\ntwo\\r\\tthree \\u001b[31m \\u007f \\u0085 end");
}

TEST_F(Logger, ShowsBytesThatAreNoText) {
  const std::wstring text{L'/', static_cast<wchar_t>(0xDCE9), static_cast<wchar_t>(0xD800), L'\u00E9'};
  logInfo(L"keltcfg", text.c_str());
  EXPECT_EQ(messageOf(linesOf(kLog).at(0)), "keltcfg\t/\\udce9\\ud800\xC3\xA9");
}

TEST_F(Logger, TakesNoTextAsEmpty) {
  logInfo(nullptr, nullptr);
  EXPECT_EQ(messageOf(linesOf(kLog).at(0)), "\t");
}

TEST_F(Logger, WritesALongLineWhole) {
  logInfo(L"keltcfg", std::wstring(200'000, L'x').c_str());
  EXPECT_EQ(messageOf(linesOf(kLog).at(0)), "keltcfg\t" + std::string(200'000, 'x'));
}

TEST_F(Logger, IsNeverASecondConsole) {
  expectUnnoticed();
  EXPECT_EQ(linesOf(kLog).size(), 1U);
}

TEST_F(Logger, MakesNoDirectoriesAboveItsOwn) {
  ASSERT_EQ(::rmdir(kData.c_str()), 0);
  expectUnnoticed();
  EXPECT_FALSE(exists(kData));
}

TEST_F(Logger, WritesToNothingButARegularFile) {
  putDirectory(kLogs, 0700);
  putFile("/tmp/target", "kept");
  ASSERT_EQ(::symlink("/tmp/target", kLog.c_str()), 0);
  expectUnnoticed();
  EXPECT_EQ(contentOf("/tmp/target"), "kept");
  ASSERT_EQ(::unlink(kLog.c_str()), 0);
  ASSERT_EQ(::mkfifo(kLog.c_str(), 0600), 0);
  expectUnnoticed();
  const base::UniqueFd reader(::open(kLog.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  expectUnnoticed();
  char byte = 0;
  EXPECT_EQ(::read(reader.get(), &byte, 1), 0);
  ASSERT_EQ(::unlink(kLog.c_str()), 0);
  putDirectory(kLog);
  expectUnnoticed();
}

TEST_F(Logger, ThatCannotBeWrittenChangesNothingElse) {
  putFile(kLogs, "a file in place of the directory");
  expectUnnoticed();
  EXPECT_EQ(contentOf(kLogs), "a file in place of the directory");
  ASSERT_EQ(::unlink(kLogs.c_str()), 0);
  mountReadOnly(kData);
  expectUnnoticed();
  EXPECT_EQ(namesIn(kData), Names{});
}

TEST_F(Logger, OnAFullDiskChangesNothingElse) {
  mountSmall(kData, 16 * 1024);
  putFile(kData + "/ballast", "");
  const base::UniqueFd ballast(::open((kData + "/ballast").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  const std::string block(1024, 'x');
  while (::write(ballast.get(), block.data(), block.size()) > 0) {
  }
  expectUnnoticed();
  EXPECT_EQ(contentOf(kData + "/ballast").find_first_not_of('x'), std::string::npos);
}

TEST_F(Logger, IsRotatedPastItsLimit) {
  putFile(kLog, std::string(kLimit - 1, 'o') + "\n", 0600);
  logInfo(L"keltcfg", L"one");
  EXPECT_EQ(namesIn(kLogs), Names{"keltcfg.log"}) << "just full is not past it";
  logInfo(L"keltcfg", L"two");
  EXPECT_EQ(namesIn(kLogs), (Names{"keltcfg.log", "keltcfg.log.1"}));
  ASSERT_EQ(linesOf(kLog).size(), 1U);
  EXPECT_EQ(messageOf(linesOf(kLog)[0]), "keltcfg\ttwo");
  EXPECT_EQ(messageOf(linesOf(kLog + ".1").at(1)), "keltcfg\tone");
  EXPECT_EQ(modeOf(kLog), 0600U);
}

TEST_F(Logger, KeepsOneOlderFile) {
  putFile(kLog, std::string(kLimit, 'o') + "\n", 0600);
  putFile(kLog + ".1", "older\n", 0600);
  logInfo(L"keltcfg", L"text");
  EXPECT_EQ(namesIn(kLogs), (Names{"keltcfg.log", "keltcfg.log.1"}));
  EXPECT_EQ(contentOf(kLog + ".1").substr(0, 3), "ooo");
}

TEST_F(Logger, GoesOnInTheSameFileWhereItCannotBeRotated) {
  putFile(kLog, std::string(kLimit, 'o') + "\n", 0600);
  putDirectory(kLog + ".1");
  logInfo(L"keltcfg", L"text");
  EXPECT_EQ(messageOf(linesOf(kLog).at(1)), "keltcfg\ttext");
}

/// Takes a lock on the log, as another process does while it writes (shared) or rotates (exclusive).
base::UniqueFd lockLog(short type) {
  base::UniqueFd held(::open(kLog.c_str(), O_RDWR | O_CLOEXEC));
  struct flock whole {};
  whole.l_type = type;
  whole.l_whence = SEEK_SET;
  EXPECT_EQ(::fcntl(held.get(), F_OFD_SETLK, &whole), 0);
  return held;
}

TEST_F(Logger, DoesNotWaitForAProcessThatStandsStill) {
  putFile(kLog, "", 0600);
  const base::UniqueFd held = lockLog(F_WRLCK);
  logInfo(L"keltcfg", L"text");
  EXPECT_EQ(linesOf(kLog).size(), 1U);
}

TEST_F(Logger, IsNotRotatedWhileAnotherProcessWrites) {
  putFile(kLog, std::string(kLimit, 'o') + "\n", 0600);
  base::UniqueFd held = lockLog(F_RDLCK);
  logInfo(L"keltcfg", L"one");
  EXPECT_EQ(namesIn(kLogs), Names{"keltcfg.log"});
  held.reset();
  logInfo(L"keltcfg", L"two");
  EXPECT_EQ(messageOf(linesOf(kLog + ".1").at(1)), "keltcfg\tone");
  EXPECT_EQ(messageOf(linesOf(kLog).at(0)), "keltcfg\ttwo");
}

TEST_F(Logger, IsRotatedAtMostOnceWhenSeveralProcessesFindItTooLong) {
  constexpr int kWriters = 4;
  for (int round = 0; round < 30; ++round) {
    putFile(kLog, "", 0600);
    ASSERT_EQ(::truncate(kLog.c_str(), kLimit + 1), 0);
    std::filesystem::remove(kLog + ".1");
    std::array<int, 2> gate{};
    ASSERT_EQ(::pipe2(gate.data(), O_CLOEXEC), 0);
    std::array<std::optional<Child>, kWriters> writers;
    for (auto& writer : writers) {
      writer.emplace([&gate] {
        ::close(gate[1]);
        char byte = 0;
        static_cast<void>(::read(gate[0], &byte, 1));  // until the gate opens
        logInfo(L"keltcfg", L"text");
        return 0;
      });
    }
    ::close(gate[0]);
    ::close(gate[1]);
    for (auto& writer : writers)
      ASSERT_EQ(writer->exitStatus(), 0);
    // Where each of them holds it open at the same moment, none can rotate it.
    const std::string older = exists(kLog + ".1") ? base::readText(kLog + ".1").value() : "";
    const std::string all = older + base::readText(kLog).value();
    ASSERT_GT(all.size(), kLimit) << "rotated twice, and the older log is lost";
    ASSERT_EQ(std::count(all.begin(), all.end(), '\n'), kWriters);
  }
}

TEST_F(Logger, LosesAndTearsNoLineOfManyWritersWhileItIsRotated) {
  constexpr int kWriters = 4;
  constexpr int kLines = 400;
  const std::string filler(99, 'o');
  std::string old;
  while (old.size() + 40'000 < kLimit)
    old += filler + "\n";
  putFile(kLog, old, 0600);
  std::array<std::optional<Child>, kWriters> writers;
  for (std::size_t writer = 0; writer < kWriters; ++writer) {
    writers[writer].emplace([writer] {
      for (int line = 0; line < kLines; ++line) {
        logInfo(L"keltcfg", (std::to_wstring(writer) + L" " + std::to_wstring(line) + std::wstring(60, L'x')).c_str());
      }
      return 0;
    });
  }
  for (auto& writer : writers)
    ASSERT_EQ(writer->exitStatus(), 0);
  ASSERT_EQ(namesIn(kLogs), (Names{"keltcfg.log", "keltcfg.log.1"}));
  static const std::regex kMessage("keltcfg\t[0-9]+ [0-9]+x{60}");
  std::set<std::string> messages;
  for (const std::string& path : {kLog, kLog + ".1"}) {
    for (const std::string& line : linesOf(path)) {
      if (line == filler) continue;
      const std::string message = messageOf(line);
      EXPECT_TRUE(std::regex_match(message, kMessage)) << line;
      EXPECT_TRUE(messages.insert(message).second) << "twice: " << line;
    }
  }
  EXPECT_EQ(messages.size(), static_cast<std::size_t>(kWriters * kLines));
}

}  // namespace
}  // namespace kelt::tests
