#include "provision/transfer.h"

#include <functional>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "support/child.h"

namespace kelt::provision {
namespace {

std::size_t give(const std::string& text, std::size_t size = 1) {
  std::string data = text;
  return Write_Callback(data.data(), size, data.size() / size, nullptr);
}

/// Runs `holds` in a process of its own, since the reply is never cleared.
bool bHolds(const std::function<bool()>& holds) {
  return tests::Child([&]() -> int { ::_exit(holds() ? 0 : 1); }).exitStatus() == 0;
}

TEST(Transfer, CollectsTheReplyPieceByPiece) {
  sB64data.clear();
  EXPECT_EQ(give("OK:\r\n"), 5U);
  EXPECT_EQ(give(std::string("a\0b", 3)), 3U);
  EXPECT_EQ(give("pairs!", 2), 6U);
  EXPECT_EQ(give(""), 0U);
  EXPECT_EQ(sB64data, std::string("OK:\r\na\0bpairs!", 14));
  EXPECT_FALSE(bReplyCut());
}

TEST(Transfer, RefusesNothingButKeepsNoMoreThanItsBound) {
  EXPECT_TRUE(bHolds([] {
    sB64data.clear();
    const std::string mebibyte(std::size_t{1} << 20, 'A');
    for (std::size_t kept = 0; kept < kMaxReply; kept += mebibyte.size()) {
      if (give(mebibyte) != mebibyte.size() || bReplyCut()) return false;
    }
    if (sB64data.size() != kMaxReply) return false;
    return give("B") == 1 && bReplyCut() && give(mebibyte) == mebibyte.size() && sB64data.size() == kMaxReply;
  }));
}

TEST(Transfer, KeepsNothingBehindAPieceThatWasNotKept) {
  EXPECT_TRUE(bHolds([] {
    sB64data.assign(kMaxReply - 2, 'A');
    return give("BBB") == 3 && give("C") == 1 && sB64data.size() == kMaxReply - 2 && bReplyCut();
  }));
}

}  // namespace
}  // namespace kelt::provision
