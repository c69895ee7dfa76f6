#include "helper/agent_log.h"

#include <exception>

#include "base/utf.h"
#include "platform/logger.h"

namespace kelt::helper {
namespace {

using LogOperation = void (*)(const wchar_t* source, const wchar_t* message);

void put(LogOperation log, std::string_view text) noexcept {
  try {
    log(L"keltcfg", base::toWide(text).c_str());
  } catch (const std::exception&) {
    return;  // the work goes on without the line
  }
}

}  // namespace

void logEvent(std::string_view text) noexcept {
  put(logInfo, text);
}

void logProblem(std::string_view text) noexcept {
  put(logError, text);
}

}  // namespace kelt::helper
