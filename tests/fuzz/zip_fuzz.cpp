// Whatever an archive holds, what passes the guard stays below the directory it is unpacked into, and within the
// limits; of what does not pass, nothing is left.

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>

#include "fuzz/require.h"
#include "support/private_device.h"
#include "unzip/guard.h"

#include "platform/unzip.h"

namespace fs = std::filesystem;
using kelt::platform::JudgedEntry;
using kelt::platform::ZipArchive;
using kelt::tests::require;

namespace {

constexpr const char* kTop = "/tmp/zip";
constexpr const char* kArchive = "/tmp/zip/archive.zip";
constexpr const char* kTarget = "/tmp/zip/target";

std::string joined(const std::vector<std::string>& parts) {
  std::string path;
  for (const std::string& part : parts)
    path += (path.empty() ? "" : "/") + part;
  return path;
}

void requireHarmless(const JudgedEntry& judged) {
  require(!judged.parts.empty() && judged.parts.size() <= 16, "an entry is at most 16 levels deep");
  require(joined(judged.parts).size() <= 512, "a name has at most 512 bytes");
  for (const std::string& part : judged.parts) {
    require(!part.empty() && part != "." && part != ".." && part.size() <= 255, "a part of a name leads nowhere else");
    for (const char c : part)
      require(c != '/' && c != '\\' && c != ':' && c != 0x7F && static_cast<unsigned char>(c) >= 0x20,
              "a name is tame");
  }
}

/// What is to be below the target: a file with its length, a directory with none.
using Tree = std::set<std::pair<std::string, std::uintmax_t>>;
constexpr std::uintmax_t kDirectory = UINTMAX_MAX;

Tree treeOf(const std::vector<JudgedEntry>& entries) {
  Tree tree;
  std::uintmax_t total = 0;
  for (const JudgedEntry& judged : entries) {
    requireHarmless(judged);
    total += judged.entry.size;
    for (std::size_t depth = 1; depth < judged.parts.size(); ++depth) {
      tree.emplace(joined({judged.parts.begin(), judged.parts.begin() + static_cast<std::ptrdiff_t>(depth)}),
                   kDirectory);
    }
    tree.emplace(joined(judged.parts), judged.bDirectory ? kDirectory : judged.entry.size);
  }
  require(total <= std::uintmax_t{64} << 20U, "an archive holds at most 64 MiB");
  return tree;
}

Tree treeBelow(const fs::path& top) {
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(top)) {
    struct stat info {};
    require(::lstat(entry.path().c_str(), &info) == 0, "what is there can be examined");
    const bool bDirectory = S_ISDIR(info.st_mode);
    require(bDirectory || S_ISREG(info.st_mode), "there are files and directories and nothing else");
    require((info.st_mode & 07777U) == (bDirectory ? 0700U : 0600U), "they are their owner's alone");
    tree.emplace(entry.path().lexically_relative(top), bDirectory ? kDirectory : entry.file_size());
  }
  return tree;
}

/// The tree that an archive says it holds, or an empty one where it has to be refused.
bool bJudged(const std::uint8_t* data, std::size_t size, Tree& tree) {
  const auto archive = ZipArchive::open({data, size});
  if (!archive) return false;
  const auto entries = kelt::platform::judgeArchive(archive.value());
  if (!entries) return false;
  require(entries.value().size() <= 1024, "an archive holds at most 1024 entries");
  tree = treeOf(entries.value());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Tree expected;
  const bool bGood = bJudged(data, size, expected);
  if (!bGood && size % 8 != 0) return 0;  // that nothing is left of it is looked at now and then

  fs::remove_all(kTop);
  kelt::tests::putDirectory(kTarget, 0700);
  kelt::tests::putFile(kArchive, std::string(reinterpret_cast<const char*>(data), size));
  require(NsUnzip(kArchive, kTarget) == (bGood ? 0 : -1), "what the guard passes is unpacked, nothing else is");
  require(treeBelow(kTarget) == expected, "what is there is what the archive says, all or nothing");
  require(kelt::tests::namesIn(kTop) == std::vector<std::string>{"archive.zip", "target"},
          "nothing is written elsewhere");
  return 0;
}
