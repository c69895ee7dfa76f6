#include "unzip/guard.h"

#include <gtest/gtest.h>

namespace kelt::platform {
namespace {

std::string joined(const base::Result<std::vector<std::string>>& parts) {
  if (!parts) return "refused";
  std::string text;
  for (const std::string& part : parts.value())
    text += "<" + part + ">";
  return text;
}

TEST(UnzipGuard, SplitsHarmlessNames) {
  EXPECT_EQ(joined(partsOfName("sitelist.xml")), "<sitelist.xml>");
  EXPECT_EQ(joined(partsOfName("keys/deep/k.bin")), "<keys><deep><k.bin>");
  EXPECT_EQ(joined(partsOfName("...")), "<...>");
  EXPECT_EQ(joined(partsOfName("..a/b..")), "<..a><b..>");
  EXPECT_EQ(joined(partsOfName("~/$HOME")), "<~><$HOME>");
  EXPECT_EQ(joined(partsOfName("\xc3\xa9\xf0\x9f\x94\x91")), "<\xc3\xa9\xf0\x9f\x94\x91>");
}

TEST(UnzipGuard, RefusesNamesThatLeadElsewhere) {
  for (const char* name : {"", "/", "/a", "a/", "a//b", "..", "../a", "a/..", "a/../b", ".", "./a", "a/./b"}) {
    EXPECT_EQ(joined(partsOfName(name)), "refused") << name;
  }
}

TEST(UnzipGuard, RefusesForbiddenCharacters) {
  for (const char* name : {"a\\b", "c:", "a\nb", "a\tb", "\x1b[m", "a\x7f", "a\xc2\x85", "a\xff", "\xc0\xaf",
                           "\xed\xa0\x80", "\xf4\x90\x80\x80", "cut\xe2\x82"}) {
    EXPECT_EQ(joined(partsOfName(name)), "refused") << name;
  }
  EXPECT_EQ(joined(partsOfName(std::string_view("a\0b", 3))), "refused");
}

TEST(UnzipGuard, TakesNamesUpToTheirLimits) {
  const std::string part(255, 'n');
  EXPECT_NE(joined(partsOfName(part)), "refused");
  EXPECT_EQ(joined(partsOfName(part + "n")), "refused");
  EXPECT_NE(joined(partsOfName(part + "/" + std::string(254, 'm') + "/m")), "refused");  // 512 bytes
  EXPECT_EQ(joined(partsOfName(part + "/" + part + "/m")), "refused");
  EXPECT_NE(joined(partsOfName("1/2/3/4/5/6/7/8/9/a/b/c/d/e/f/g")), "refused");
  EXPECT_EQ(joined(partsOfName("1/2/3/4/5/6/7/8/9/a/b/c/d/e/f/g/h")), "refused");
}

}  // namespace
}  // namespace kelt::platform
