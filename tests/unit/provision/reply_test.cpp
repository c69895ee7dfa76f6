#include "provision/reply.h"

#include <gtest/gtest.h>

namespace kelt::provision {
namespace {

TEST(ReplyOfAServer, KeepsUpToItsBoundAndIsWhole) {
  std::string text;
  Reply reply(text);
  const std::string mebibyte(std::size_t{1} << 20, 'A');
  for (std::size_t kept = 0; kept < kMaxReply; kept += mebibyte.size())
    reply.add(mebibyte);
  EXPECT_EQ(reply.text().size(), kMaxReply);
  EXPECT_FALSE(reply.bCut());
  reply.add("");
  EXPECT_FALSE(reply.bCut());
  reply.add("B");
  EXPECT_TRUE(reply.bCut());
  EXPECT_EQ(reply.text().size(), kMaxReply);
}

TEST(ReplyOfAServer, KeepsNothingThatFollowsAPieceThatWasNotKept) {
  std::string text(kMaxReply - 2, 'A');
  Reply reply(text);
  reply.add("BBB");
  reply.add("C");
  EXPECT_EQ(reply.text().size(), kMaxReply - 2);
  EXPECT_TRUE(reply.bCut());
}

TEST(ReplyOfAServer, CollectsInTheStringThatItWasGiven) {
  std::string text = "OK";
  Reply reply(text);
  reply.reserve();
  EXPECT_EQ(reply.text(), "OK");
  reply.add(":\r\n");
  EXPECT_EQ(text, "OK:\r\n");
}

TEST(ReplyOfAServer, IsWholeAgainOnceItIsCleared) {
  std::string text(kMaxReply, 'A');
  Reply reply(text);
  reply.add("B");
  ASSERT_TRUE(reply.bCut());
  reply.clear();
  EXPECT_FALSE(reply.bCut());
  EXPECT_EQ(reply.text(), "");
  reply.add("C");
  EXPECT_EQ(reply.text(), "C");
}

}  // namespace
}  // namespace kelt::provision
