#include <gtest/gtest.h>

#include "platform/afile.h"

namespace kelt::tests {
namespace {

TEST(Path, IsJoinedWithExactlyOneSlash) {
  for (const wchar_t* directory : {L"/a/b", L"/a/b/", L"/a/b//"}) {
    for (const wchar_t* name : {L"c", L"/c", L"//c"})
      EXPECT_EQ(APath(directory, name).str(), L"/a/b/c");
  }
}

TEST(Path, KeepsWhatIsInsideItsParts) {
  EXPECT_EQ(APath(L"/a//b", L"c//d/").str(), L"/a//b/c//d/");
}

TEST(Path, TakesTheRootAndARelativeDirectory) {
  EXPECT_EQ(APath(L"/", L"c").str(), L"/c");
  EXPECT_EQ(APath(L"a", L"c").str(), L"a/c");
}

TEST(Path, HasItsSlashEvenBesideNothing) {
  EXPECT_EQ(APath(L"/a", L"").str(), L"/a/");
  EXPECT_EQ(APath(L"", L"c").str(), L"/c");
}

TEST(Path, CanBeHandedOnAsTextOfEitherKind) {
  const APath path(L"/a", L"c");
  EXPECT_STREQ(static_cast<const wchar_t*>(path), L"/a/c");
  EXPECT_EQ(static_cast<const AString&>(path).str(), L"/a/c");
}

}  // namespace
}  // namespace kelt::tests
