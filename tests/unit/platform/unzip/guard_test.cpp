#include "unzip/guard.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "unzip/unpacking.h"

#include "base/file_read.h"

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

/// Why the first pass refuses an archive.
std::string verdictOn(const std::string& path) {
  const auto content = base::readFile(path);
  if (!content) return content.error().message;
  const auto archive = ZipArchive::open(content.value());
  if (!archive) return archive.error().message.substr(0, 9);
  const auto entries = judgeArchive(archive.value());
  return entries ? "passed" : entries.error().message;
}

TEST(UnzipGuard, RefusesEachHostileArchiveForItsOwnReason) {
  const std::map<std::string, std::vector<std::string>> expected = {
      {"a name that leads elsewhere",
       {"absolute", "dot", "dot_only", "double_slash", "levels_17", "no_name", "parent", "parent_directory",
        "parent_inside", "parent_only", "part_of_300", "slash_only"}},
      {"a name with forbidden characters",
       {"backslash", "delete_in_name", "drive", "escape_in_name", "latin1_name", "line_end_in_name", "name_of_513",
        "overlong_utf8_name", "surrogate_name"}},
      {"too much content", {"bomb", "two_halves_too_much"}},
      {"an entry longer than declared", {"bomb_that_lies", "understated"}},
      {"an entry that is encrypted or packed in an unknown way", {"bzip2", "encrypted", "lzma"}},
      {"not a zip", {"cut_by_one", "cut_in_content", "cut_in_directory", "text"}},
      {"an entry that is damaged", {"damaged_content", "wrong_checksum"}},
      {"an entry that is no file and no directory",
       {"device", "directory_with_content", "directory_without_slash", "fifo", "file_through_link", "link",
        "link_named_as_directory"}},
      {"a name that stands for two things",
       {"directory_then_file", "duplicate", "duplicate_directory", "duplicate_in_other_case",
        "file_and_directory_entry", "file_then_directory"}},
      {"too many entries", {"entries_1025", "entries_2000"}},
      {"too short", {"no_bytes", "short"}},
      {"an entry shorter than declared", {"overstated"}},
  };
  std::size_t told = 0;
  for (const auto& [reason, names] : expected) {
    for (const std::string& name : names)
      EXPECT_EQ(verdictOn(tests::archives() + "/hostile/" + name + ".zip"), reason) << name;
    told += names.size();
  }
  EXPECT_EQ(told, tests::archivesIn("hostile").size());
}

}  // namespace
}  // namespace kelt::platform
