#include "platform/refusals.h"

#include <set>
#include <string>

#include "base/utf.h"
#include "platform/logger.h"

namespace kelt::platform {
namespace {

constexpr const wchar_t* kSource = L"files";

bool bNew(const std::string& message) {
  static std::set<std::string> said;
  return said.insert(message).second;
}

}  // namespace

void logRefusal(const base::Error& error) noexcept {
  if (error.kind == base::ErrorKind::kNotFound) return;
  try {
    if (bNew(error.message)) logError(kSource, base::toWide(error.message).c_str());
  } catch (...) {
    // The refusal stands; that nobody reads why is the lesser evil.
    return;
  }
}

}  // namespace kelt::platform
