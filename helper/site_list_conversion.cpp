// The conversion of a site list that does not load, which is taken to be ISO-8859-1.

#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "base/console.h"
#include "base/file_replace.h"
#include "base/utf.h"
#include "helper/agent_log.h"
#include "helper/latin1_converter.h"
#include "helper/messages.h"
#include "helper/unix_command_line_helper.h"
#include "platform/afile.h"

namespace kelt::helper {
namespace {

/// Room that is reckoned per character; no character of ISO-8859-1 takes more than two in fact.
constexpr std::size_t kUtf8Room = 6;

const char* asText(const ABuffer& buffer) {
  return reinterpret_cast<const char*>(buffer.data());
}

/// Whoever may write to the directory may put a link there at any moment, which must not lead to another file.
Status replace(const std::string& path, const std::string& utf8) {
  return base::replaceFileNotLink(path, {reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size()});
}

/// Prints the outcome of a conversion and logs it with the path and the problem, null for none.
void tell(const std::string& path, const char* problem) {
  base::printLine(problem == nullptr ? messages::kSiteListConverted : messages::kSiteListNotConverted);
  if (problem == nullptr) {
    logEvent("Converted to UTF-8: " + path);
  } else {
    logProblem(path + ": not converted to UTF-8: " + problem);
  }
}

}  // namespace

bool unixCommandLineHelper::ConvertToUtf8(const char* latin1, std::string& utf8) const {
  if (latin1 == nullptr) return false;
  const std::size_t length = std::strlen(latin1);
  if (length > std::numeric_limits<std::size_t>::max() / kUtf8Room) return false;
  // At once and without throwing: a site list may be large, and want of memory is a failure of the conversion alone.
  const std::size_t room = length * kUtf8Room;
  const std::unique_ptr<char[]> out(new (std::nothrow) char[room + 1]);
  if (out == nullptr) return false;

  Latin1Converter converter("UTF8");
  const std::optional<std::size_t> written = converter.convert({latin1, length}, {out.get(), room});
  if (!written) return false;
  utf8.assign(out.get(), *written);
  return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
bool unixCommandLineHelper::ConvertSiteListToUTF8(std::wstring path) const {
  const std::string file = base::toUtf8(path);
  ABuffer content;
  std::string utf8;
  const char* problem = nullptr;
  if (!AFile::readExisting(path, content)) {
    problem = "it cannot be read";
  } else if (!ConvertToUtf8(asText(content), utf8)) {
    problem = "this system has no such conversion, or no memory for it";
  } else if (const auto done = replace(file, utf8); !done) {
    problem = done.error().kind == ErrorKind::kRefused ? "it is a symbolic link" : "it cannot be written";
  }
  tell(file, problem);
  return problem == nullptr;
}

}  // namespace kelt::helper
