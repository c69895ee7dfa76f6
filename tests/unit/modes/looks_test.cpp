// What a switch would find, without its being done.

#include <gtest/gtest.h>
#include <string>

#include "installation.h"

#include "modes/config_values.h"
#include "modes/key_file_check.h"
#include "modes/source_search.h"

using namespace kelt::modes;  // NOLINT(google-build-using-namespace)
using kelt::tests::putFile;

namespace {

class Looks : public kelt::tests::Installation {};

TEST_F(Looks, TellTheStateOfEachKeyFileAndMakeNone) {
  putFile("/tmp/keys/req2048seckey.bin", "key");
  putFile("/tmp/keys/agentfipsmode", std::string(65537, '0'));
  kelt::tests::putDirectory("/tmp/keys/srpubkey.bin");
  const auto found = examineKeyFiles("/tmp/keys");
  ASSERT_EQ(found.size(), 5U);
  EXPECT_EQ(found[0].state, KeyFileState::kThere);
  EXPECT_EQ(found[1].path, "/tmp/keys/reqseckey.bin");
  EXPECT_EQ(found[1].state, KeyFileState::kToBeMade);
  EXPECT_EQ(found[2].state, KeyFileState::kTooLarge);
  EXPECT_EQ(found[3].state, KeyFileState::kMissing);
  EXPECT_EQ(found[4].state, KeyFileState::kNotRegular);
  EXPECT_FALSE(kelt::tests::exists("/tmp/keys/reqseckey.bin"));
}

TEST_F(Looks, TellWhereASourceIsLookedFor) {
  EXPECT_EQ(sourceCandidates(L"keys", L"/here"), (std::array<std::wstring, 3>{L"keys", L"/here/keys", L"/here"}));
}

TEST_F(Looks, TellWhatATextBecomesWithAValueInIt) {
  EXPECT_EQ(withValue("<a>old</a>", "a", "new"), "<a>new</a>");
  EXPECT_EQ(withValue("<a/>", "a", "new"), std::nullopt);
  EXPECT_EQ(withValue("</a><a>", "a", "new"), "</a><a>new</a><a>");
}

}  // namespace
