#include "check/supervisor.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

#include "collected.h"

#include "base/console.h"
#include "base/signals.h"
#include "base/unique_fd.h"

using namespace std::chrono_literals;
using kelt::check::Findings;
using kelt::check::Limits;
using kelt::check::Report;
using kelt::check::State;
using kelt::check::supervised;

namespace {

/// Far beyond what any test waits for.
constexpr Limits kPatient{300s, 300s};

class Supervised : public kelt::tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    kelt::base::ignoreOutputSignals();
  }
};

TEST_F(Supervised, GivesWhatIsFound) {
  const Report report = supervised(kPatient, [](Findings& findings) {
    findings.takeFact("mode", "managed");
    findings.ok("a.b", "Fine");
  });
  ASSERT_EQ(report.checks.size(), 1U);
  EXPECT_EQ(report.checks[0].fact, "Fine.");
  EXPECT_EQ(report.facts.at("mode").front(), "managed");
}

TEST_F(Supervised, EndsWhatTakesTooLongAndKeepsWhatWasFound) {
  const Report report = supervised({.all = 200ms, .network = 300s}, [](Findings& findings) {
    findings.begin("a.b", {});
    findings.ok("a.b", "Fine");
    while (true)
      ::pause();
  });
  ASSERT_EQ(report.checks.size(), 2U);
  EXPECT_EQ(report.checks[1].id, "run.complete");
  EXPECT_EQ(report.checks[1].state, State::kUnknown);
  EXPECT_EQ(report.checks[1].fact, "There was no end of the checks from a.b on within the time for all.");
}

TEST_F(Supervised, HasALimitOfItsOwnForTheNetwork) {
  const Report report = supervised({.all = 300s, .network = 200ms}, [](Findings& findings) {
    findings.begin("server.name", "the look-up of nowhere");
    while (true)
      ::pause();
  });
  ASSERT_EQ(report.checks.size(), 1U);
  EXPECT_EQ(report.checks[0].id, "server.name");
  EXPECT_EQ(report.checks[0].state, State::kProblem);
  EXPECT_EQ(report.checks[0].fact, "There was no end of the look-up of nowhere within the time for the network.");
}

TEST_F(Supervised, TellsOfALookThatDies) {
  const Report report = supervised(kPatient, [](Findings& findings) {
    findings.begin("a.b", {});
    ::raise(SIGKILL);
  });
  ASSERT_EQ(report.checks.size(), 1U);
  EXPECT_EQ(report.checks[0].fact, "There was no end of the checks from a.b on: a signal ended the look, 9.");
  EXPECT_EQ(report.checks[0].state, State::kUnknown);
}

TEST_F(Supervised, TellsOfALookThatFails) {
  const Report report = supervised(kPatient, [](Findings& /*findings*/) { throw std::bad_alloc(); });
  ASSERT_EQ(report.checks.size(), 1U);
  EXPECT_EQ(report.checks[0].state, State::kUnknown);
  EXPECT_NE(report.checks[0].fact.find("for want of memory"), std::string::npos);
}

TEST_F(Supervised, LetsNothingBeWrittenWhateverIsCalled) {
  kelt::tests::putFile("/tmp/file", "kept");
  const auto printed = kelt::tests::outputOf([] {
    const Report report = supervised(kPatient, [](Findings& findings) {
      kelt::base::printLine(std::string_view("said"));
      kelt::base::printErrorLine(std::string_view("said"));
      const kelt::base::UniqueFd file(::open("/tmp/file", O_WRONLY | O_APPEND | O_CLOEXEC));
      findings.ok("a.b", ::write(file.get(), "x", 1) == -1 ? "Refused" : "Written");
      rlimit core{1, 1};
      findings.ok("a.c", ::getrlimit(RLIMIT_CORE, &core) == 0 && core.rlim_max == 0 ? "None" : "A core");
    });
    EXPECT_EQ(report.checks.at(0).fact, "Refused.");
    EXPECT_EQ(report.checks.at(1).fact, "None.");
  });
  EXPECT_EQ(printed.out + printed.err, "");
  EXPECT_EQ(kelt::tests::contentOf("/tmp/file"), "kept");
}

}  // namespace
