// Running the commands that the agent's configuration names.

#include <new>
#include <string_view>
#include <utility>

#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

/// White space as the C locale has it, whatever locale is set and whether `char` is signed or not.
bool bBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
void unixCommandLineHelper::splitStringToParameters(std::wstring commandLine,
                                                    std::vector<std::string>& parameters) const {
  const ACharString narrow(commandLine.c_str());
  std::string word;
  bool bQuoted = false;
  for (const char c : std::string_view(static_cast<const char*>(narrow))) {
    // They hold blanks together and stay in the word: there is no shell that would take them away.
    if (c == '"') bQuoted = !bQuoted;
    if (bQuoted || !bBlank(c)) {
      word += c;
    } else if (!word.empty()) {
      parameters.push_back(std::exchange(word, {}));
    }
  }
  if (!word.empty()) parameters.push_back(std::move(word));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
bool unixCommandLineHelper::ExecCmd(AString commandLine) const {
  try {
    // All memory is taken before the fork: where there is none, no second copy of the tool runs on.
    prepared(commandLine.str()).run(nullptr);
    return true;
  } catch (const std::bad_alloc&) {
    return false;  // no child was started
  }
}

PreparedCommand unixCommandLineHelper::prepared(const std::wstring& commandLine) const {
  std::vector<std::string> words;
  splitStringToParameters(commandLine, words);
  return PreparedCommand(std::move(words));
}

}  // namespace kelt::helper
