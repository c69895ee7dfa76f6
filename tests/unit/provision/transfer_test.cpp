#include "provision/transfer.h"

#include <gtest/gtest.h>

namespace kelt::provision {
namespace {

std::size_t give(const std::string& text, std::size_t size = 1) {
  std::string data = text;
  return Write_Callback(data.data(), size, data.size() / size, nullptr);
}

TEST(Transfer, CollectsTheReplyPieceByPiece) {
  serverReply.clear();
  EXPECT_EQ(give("OK:\r\n"), 5U);
  EXPECT_EQ(give(std::string("a\0b", 3)), 3U);
  EXPECT_EQ(give("pairs!", 2), 6U);
  EXPECT_EQ(give(""), 0U);
  EXPECT_EQ(sB64data, std::string("OK:\r\na\0bpairs!", 14));
  EXPECT_FALSE(serverReply.bCut());
}

TEST(Transfer, RefusesNothingThatItDoesNotKeep) {
  serverReply.clear();
  sB64data.assign(kMaxReply, 'A');
  EXPECT_EQ(give("B"), 1U);
  EXPECT_EQ(give("pairs!", 2), 6U);
  EXPECT_EQ(sB64data.size(), kMaxReply);
  EXPECT_TRUE(serverReply.bCut());
  serverReply.clear();
}

}  // namespace
}  // namespace kelt::provision
