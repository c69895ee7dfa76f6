#include "base/result.h"

#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>

#include "support/child.h"

namespace kelt::base {
namespace {

TEST(Result, HoldsAValueOrAnError) {
  const Result<int> value = 7;
  EXPECT_TRUE(value.ok());
  EXPECT_EQ(value.value(), 7);
  const Result<int> error = Error{ErrorKind::kRefused, 0, "no"};
  EXPECT_FALSE(error.ok());
  EXPECT_EQ(error.error().message, "no");
}

TEST(Result, HandsOverWhatCannotBeCopied) {
  Result<std::unique_ptr<int>> made = std::make_unique<int>(3);
  const std::unique_ptr<int> taken = std::move(made).value();
  EXPECT_EQ(*taken, 3);
}

TEST(Result, WithoutAValueIsGoodUntilItHoldsAnError) {
  Status status;
  EXPECT_TRUE(status.ok());
  status = Error{ErrorKind::kTooLarge, 0, "too large"};
  EXPECT_FALSE(status.ok());
  EXPECT_EQ(status.error().kind, ErrorKind::kTooLarge);
}

/// Whether doing this ends the program, although exceptions are caught.
bool bEndsTheProgram(const std::function<void()>& action) {
  const int status = tests::Child([&] {
                       ::signal(SIGABRT, SIG_DFL);
                       action();
                       return 0;
                     }).wait();
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

TEST(Result, EndsTheProgramThatAsksForWhatIsNotThere) {
  const Result<int> value = 7;
  Result<int> error = Error{ErrorKind::kRefused, 0, "no"};
  const Status done;
  EXPECT_TRUE(bEndsTheProgram([&] { static_cast<void>(value.error()); }));
  EXPECT_TRUE(bEndsTheProgram([&] { static_cast<void>(error.value()); }));
  EXPECT_TRUE(bEndsTheProgram([&] { static_cast<void>(std::as_const(error).value()); }));
  EXPECT_TRUE(bEndsTheProgram([&] { static_cast<void>(std::move(error).value()); }));
  EXPECT_TRUE(bEndsTheProgram([&] { static_cast<void>(done.error()); }));
  EXPECT_FALSE(bEndsTheProgram([&] { static_cast<void>(value.value()); }));
}

TEST(SystemError, SaysWhatFailedAndWhy) {
  const Error error = systemError("open /etc/orv.d", EACCES);
  EXPECT_EQ(error.kind, ErrorKind::kSystem);
  EXPECT_EQ(error.sysErrno, EACCES);
  EXPECT_EQ(error.message, "open /etc/orv.d: Permission denied");
}

TEST(SystemError, ReadsErrnoUnlessItIsGivenOne) {
  errno = EIO;
  EXPECT_EQ(systemError("read").sysErrno, EIO);
}

TEST(SystemError, TellsWhatIsMissingFromOtherFailures) {
  EXPECT_EQ(systemError("x", ENOENT).kind, ErrorKind::kNotFound);
  EXPECT_EQ(systemError("x", ENOTDIR).kind, ErrorKind::kNotFound);
  EXPECT_EQ(systemError("x", ELOOP).kind, ErrorKind::kSystem);
}

TEST(SystemError, HasASentenceForANumberThatTheSystemDoesNotKnow) {
  EXPECT_EQ(systemError("x", 9999).message, "x: Unknown error 9999");
}

}  // namespace
}  // namespace kelt::base
