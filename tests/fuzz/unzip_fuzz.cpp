// Whatever an archive holds, what passes the guard stays below the directory it is unpacked into, and within the
// limits. It runs on a sealed private device (device/enter --sealed) only, as an archive that got out would write to the
// machine.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "require.h"
#include "unzip_extract.h"
#include "unzip_guard.h"

namespace fs = std::filesystem;
using kelt::platform::JudgedEntry;
using kelt::platform::StagedTree;
using kelt::platform::ZipArchive;

namespace {

/// A directory in the device's memory for this process alone, gone at its end.
struct Workspace {
  Workspace() { kelt::tests::require(::mkdtemp(path.data()) != nullptr, "there is a directory to work in"); }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;
  ~Workspace() { fs::remove_all(path); }
  std::string path = "/run/kelt_fuzz_unzip_XXXXXX";
};

/// Whether nothing of the machine can be written to.
bool bSealed() {
  struct statvfs root {};
  return ::statvfs("/", &root) == 0 && (root.f_flag & ST_RDONLY) != 0 && fs::is_directory("/opt/.machine");
}

/// An empty directory, alone in the one above it.
std::string emptyTarget() {
  static const Workspace workspace;
  const std::string target = workspace.path + "/target";
  fs::remove_all(target);
  fs::create_directory(target);
  return target;
}

void requireHarmless(const JudgedEntry& judged) {
  using kelt::tests::require;
  require(!judged.parts.empty() && judged.parts.size() <= 16, "levels");
  for (const std::string& part : judged.parts) {
    require(!part.empty() && part != "." && part != ".." && part.size() <= 255, "part of a name");
    require(part.find('/') == std::string::npos && part.find('\\') == std::string::npos, "separator in a name");
  }
}

std::uintmax_t bytesBelow(const std::string& directory) {
  std::uintmax_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    kelt::tests::require(!entry.is_symlink(), "a link");
    kelt::tests::require(entry.is_directory() || entry.is_regular_file(), "neither file nor directory");
    if (entry.is_regular_file()) bytes += entry.file_size();
  }
  return bytes;
}

void unpack(const ZipArchive& archive, const std::vector<JudgedEntry>& entries) {
  const std::string target = emptyTarget();
  std::uintmax_t declared = 0;
  bool committed = false;
  {
    StagedTree tree(kelt::base::UniqueFd(::open(target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    bool added = true;
    for (const JudgedEntry& judged : entries) {
      requireHarmless(judged);
      declared += judged.entry.size;
      added = added && tree.add(archive, judged).ok();
    }
    committed = added && tree.commit().ok();
  }
  kelt::tests::require(committed, "what the guard passed can be written");
  kelt::tests::require(bytesBelow(target) == declared && declared <= (std::uintmax_t{64} << 20), "bytes");
  kelt::tests::require(std::distance(fs::directory_iterator(fs::path(target).parent_path()), {}) == 1, "outside");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  if (bSealed()) return 0;
  std::fputs("Run it as: device/enter --sealed CORPUS -- build/fuzz/kelt_fuzz_unzip CORPUS ...\n", stderr);
  std::exit(1);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto archive = ZipArchive::open({data, size});
  if (!archive) return 0;
  const auto entries = kelt::platform::judgeArchive(archive.value());
  if (entries) unpack(archive.value(), entries.value());
  return 0;
}
