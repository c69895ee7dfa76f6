#include "platform/refusals.h"

#include <set>
#include <string>

#include "base/utf.h"
#include "platform/logger.h"

namespace kelt::platform {
namespace {

constexpr const wchar_t* kSource = L"files";

/// Notes the message. Returns false where it was noted before.
bool note(const std::string& message) {
  // A run asks for the same file many times, and the one line that matters must not be lost among its copies.
  static std::set<std::string> said;
  return said.insert(message).second;
}

void logOnce(const std::string& message) {
  if (note(message)) logError(kSource, base::toWide(message).c_str());
}

}  // namespace

void logRefusal(const Error& error) noexcept {
  logRefusal({}, error);
}

void logRefusal(const std::string& path, const Error& error) noexcept {
  if (error.kind == ErrorKind::kNotFound) return;
  try {
    const bool bNamed = error.message.find(path) != std::string::npos;
    logOnce(bNamed ? error.message : path + ": " + error.message);
  } catch (...) {
    // The refusal stands; that nobody reads why is the lesser evil.
    return;
  }
}

}  // namespace kelt::platform
