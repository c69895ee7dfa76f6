#include "check/message.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "base/unique_fd.h"

using kelt::base::UniqueFd;
using kelt::check::PipeFindings;
using kelt::check::Receiver;
using kelt::check::State;

namespace {

/// What goes through a pipe.
std::string bytesOf(const std::function<void(PipeFindings&, int)>& send) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  const UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  EXPECT_GE(::fcntl(writing.get(), F_SETPIPE_SZ, 1 << 19), 1 << 19);  // nobody reads meanwhile
  PipeFindings findings(writing.get());
  send(findings, writing.get());
  writing.reset();
  std::string bytes;
  std::array<char, 4096> piece{};
  for (ssize_t got = 0; (got = ::read(reading.get(), piece.data(), piece.size())) > 0;)
    bytes.append(piece.data(), static_cast<std::size_t>(got));
  return bytes;
}

std::string example() {
  return bytesOf([](PipeFindings& findings, int fd) {
    findings.begin("a.b", {});
    findings.takeFact("servers", "one");
    findings.takeFact("servers", "two");
    findings.warning("a.b", "Odd", "Mend it", "X");
    findings.begin("c.d", "the server");
    kelt::check::sendEnd(fd);
  });
}

void expectExample(Receiver& receiver) {
  ASSERT_EQ(receiver.report().checks.size(), 1U);
  const auto& check = receiver.report().checks[0];
  EXPECT_EQ(check.id, "a.b");
  EXPECT_EQ(check.subject, "X");
  EXPECT_EQ(check.state, State::kWarning);
  EXPECT_EQ(check.fact, "Odd.");
  EXPECT_EQ(check.remedy, "Mend it.");
  EXPECT_EQ(receiver.report().facts.at("servers"), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(receiver.begun().id, "c.d");
  EXPECT_EQ(receiver.begun().waitsFor, "the server");
  EXPECT_TRUE(receiver.bComplete());
}

TEST(Messages, ArriveAsTheyWereSent) {
  const std::string bytes = example();
  Receiver receiver;
  ASSERT_TRUE(receiver.take(bytes.data(), bytes.size()));
  expectExample(receiver);
}

TEST(Messages, ArriveInPiecesOfAnySize) {
  const std::string bytes = example();
  for (std::size_t piece = 1; piece < 9; ++piece) {
    Receiver receiver;
    for (std::size_t at = 0; at < bytes.size(); at += piece)
      ASSERT_TRUE(receiver.take(bytes.data() + at, std::min(piece, bytes.size() - at)));
    expectExample(receiver);
  }
}

TEST(Messages, AreNotCompleteWithoutTheirEnd) {
  const std::string bytes = example();
  Receiver receiver;
  ASSERT_TRUE(receiver.take(bytes.data(), bytes.size() - 1));
  EXPECT_FALSE(receiver.bComplete());
}

TEST(Messages, EndTheWaitWithTheirFinding) {
  const std::string bytes = bytesOf([](PipeFindings& findings, int /*fd*/) {
    findings.begin("a.b", "somebody");
    findings.ok("a.b", "There");
  });
  Receiver receiver;
  ASSERT_TRUE(receiver.take(bytes.data(), bytes.size()));
  EXPECT_EQ(receiver.begun().waitsFor, "");
  EXPECT_EQ(receiver.begun().id, "a.b");
}

TEST(Messages, ThatAreNoneAreRefused) {
  Receiver tooLong;
  EXPECT_FALSE(tooLong.take("\xFF\xFF\xFF\xFF", 4));
  std::string other = bytesOf([](PipeFindings& findings, int /*fd*/) { findings.takeFact("a", "b"); });
  other[4] = 'x';
  Receiver receiver;
  EXPECT_FALSE(receiver.take(other.data(), other.size()));
}

TEST(Messages, AreCutWhereTheDeviceHoldsWhatIsTooLong) {
  const std::string longest(std::size_t{3} << 20U, 'x');
  const std::string bytes = bytesOf([&](PipeFindings& findings, int fd) {
    findings.takeFact("servers", longest);
    findings.warning("a.b", longest, longest, longest);
    kelt::check::sendEnd(fd);
  });
  Receiver receiver;
  EXPECT_TRUE(receiver.take(bytes.data(), bytes.size()));
  EXPECT_TRUE(receiver.bComplete());
  ASSERT_EQ(receiver.report().checks.size(), 1U);
  EXPECT_EQ(receiver.report().facts["servers"].at(0), longest.substr(0, std::size_t{64} << 10U));
}

}  // namespace
