#include "check/program.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "check/elf_file.h"
#include "check/findings.h"

#include "base/file_read.h"
#include "base/retry.h"

namespace kelt::check {
namespace {

/// What execvp takes where there is no PATH.
constexpr const char* kDefaultPath = "/bin:/usr/bin";

/// Whether execvp would take the file, by its kind and rights.
Status judge(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return base::systemError("examine " + path);
  if (!S_ISREG(info.st_mode)) return Error{ErrorKind::kRefused, 0, path + " is not a regular file"};
  if (::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0) return {};
  if (errno == EACCES && bNotSeen(EACCES)) return base::systemError("execute " + path);
  return Error{ErrorKind::kRefused, 0, path + " cannot be executed"};
}

/// The interpreter that a script names in its first line; nothing where it is no script.
std::optional<std::string> interpreterOf(int file) {
  // As much of a script as Linux looks at for it.
  std::array<char, 256> start{};
  const ssize_t got = base::retryInterrupted([&] { return ::pread(file, start.data(), start.size(), 0); });
  if (got < 3 || start[0] != '#' || start[1] != '!') return std::nullopt;
  std::string_view line(start.data() + 2, static_cast<std::size_t>(got) - 2);
  line = line.substr(0, line.find('\n'));
  const std::size_t first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos) return std::nullopt;
  line.remove_prefix(first);
  return std::string(line.substr(0, line.find_first_of(" \t")));
}

/// The path again, where the system would run what stands there. Whether it would is not asked of a file that may be
/// executed and not read.
Result<std::string> unlessUseless(const std::string& path) {
  const auto file = base::openRegular(path);
  if (!file) return path;
  if (const char* why = whyNoProgram(file.value().get())) return Error{ErrorKind::kRefused, 0, path + " " + why};
  const auto interpreter = interpreterOf(file.value().get());
  if (!interpreter) return path;
  if (const Status judged = judge(*interpreter); !judged && !bNotSeen(judged.error()))
    return Error{ErrorKind::kNotFound, 0, "the interpreter of " + path + ": " + judged.error().message};
  return path;
}

/// The tool searches its own PATH, which is this one where both are started in the same way.
std::string searchPath() {
  const char* path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): there is one thread
  return path == nullptr ? kDefaultPath : path;
}

}  // namespace

Result<std::string> findProgram(const std::string& word) {
  if (word.find('/') != std::string::npos) {
    const Status judged = judge(word);
    return judged ? unlessUseless(word) : judged.error();
  }
  Error worst{ErrorKind::kNotFound, 0, word + " is in none of the directories of PATH"};
  // An empty piece, at the end too, is the working directory. Of several failures, that a file is there and cannot be
  // executed tells more than that others are missing.
  std::string path = searchPath() + ":";
  while (!path.empty()) {
    const std::size_t end = path.find(':');
    const std::string directory = path.substr(0, end);
    path.erase(0, end + 1);
    std::string candidate = directory;
    candidate.append(directory.empty() ? "" : "/").append(word);
    const Status judged = judge(candidate);
    if (judged) return unlessUseless(candidate);
    if (judged.error().kind != ErrorKind::kNotFound) worst = judged.error();
  }
  return worst;
}

}  // namespace kelt::check
