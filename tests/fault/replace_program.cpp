// kelt_replace_program [without-proc] OPERATION PATH: writes the file PATH.
//   replace   with base::replaceFile, by 100000 bytes "n"
//   copy      with base::copyFile, from /tmp/source
//   fresh     with base::FreshFile, by 100000 bytes "n" in two pieces
// With "without-proc", /proc is missing meanwhile. Status 0 when that is done, 1 when it failed.

#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mount.h>

#include "base/file_replace.h"
#include "base/fresh_file.h"

namespace {

std::span<const unsigned char> bytesOf(std::string_view text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

bool hideProc() {
  return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
}

kelt::base::Status writeFresh(const std::string& path, std::string_view content) {
  auto file = kelt::base::FreshFile::create(path);
  if (!file) return file.error();
  for (const std::string_view piece : {content.substr(0, 1000), content.substr(1000)}) {
    if (auto done = file.value().write(bytesOf(piece)); !done) return done;
  }
  return file.value().publish();
}

kelt::base::Status perform(std::string_view operation, const std::string& path) {
  const std::string content(100'000, 'n');
  if (operation == "copy") return kelt::base::copyFile("/tmp/source", path);
  if (operation == "fresh") return writeFresh(path, content);
  return kelt::base::replaceFile(path, content);
}

}  // namespace

int main(int argc, char** argv) {
  const bool bWithoutProc = argc == 4 && std::string_view(argv[1]) == "without-proc";
  if (argc != 3 && !bWithoutProc) return 2;
  if (bWithoutProc && !hideProc()) return 3;
  return perform(argv[argc - 2], argv[argc - 1]).ok() ? 0 : 1;
}
