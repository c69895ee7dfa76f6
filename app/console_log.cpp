#include "app/console_log.h"

#include <string>

#include "app/messages.h"
#include "base/console.h"

namespace kelt::app {
namespace {

/// The interface hands over bare pointers; to append a null one would be undefined, so it counts as empty.
std::wstring lineOf(const wchar_t* prefix, const wchar_t* message) {
  return std::wstring(prefix) + (message == nullptr ? L"" : message);
}

}  // namespace

void log_single_funci(const wchar_t* /*source*/, const wchar_t* message) {
  base::printLine(lineOf(messages::kInfoPrefix, message));
}

void log_single_funce(const wchar_t* /*source*/, const wchar_t* message) {
  base::printErrorLine(lineOf(messages::kErrorPrefix, message));
}

void log_single_func(int /*level*/, const wchar_t* message) {
  base::printLine(lineOf(messages::kLogPrefix, message));
}

}  // namespace kelt::app
