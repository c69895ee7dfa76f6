#include "platform/refusals.h"

#include <set>
#include <string>

#include "base/utf.h"
#include "platform/logger.h"

namespace kelt::platform {
namespace {

bool bNew(const std::string& message) {
  static std::set<std::string> said;
  return said.insert(message).second;
}

}  // namespace

void logRefusal(const base::Error& error) noexcept {
  if (error.kind == base::ErrorKind::kNotFound) return;
  try {
    if (bNew(error.message)) logError(L"keltcfg", base::toWide(error.message).c_str());
  } catch (...) {
    // The refusal stands; that nobody reads why is the lesser evil.
    return;
  }
}

}  // namespace kelt::platform
