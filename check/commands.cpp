// The commands that the configuration files name.

#include <optional>
#include <vector>

#include "check/device.h"
#include "check/program.h"

#include "base/utf.h"
#include "helper/unix_command_line_helper.h"
#include "platform/config_directory.h"

namespace kelt::check {
namespace {

/// One element that names a command.
struct Command {
  const char* id;
  const wchar_t* element;
  State whenBroken;
  const char* effect;  ///< of its failure
};

constexpr Command kStart{"command.start", L"StartCommand", State::kProblem, "the agent would not be started"};
constexpr Command kStop{"command.stop", L"StopCommand", State::kProblem, "the agent would not be stopped"};
constexpr Command kLoad{"command.load", L"LoadOrvPluginCommand", State::kWarning, "the plug-in would not be loaded"};
constexpr Command kUnload{"command.unload", L"UnloadOrvPluginCommand", State::kWarning,
                          "the plug-in would not be unloaded"};

/// Split as the tool splits it, which is not as a shell does.
std::vector<std::string> wordsOf(const std::wstring& line) {
  std::vector<std::string> words;
  helper::unixCommandLineHelper().splitStringToParameters(line, words);
  return words;
}

/// In brackets, so that it shows where a word ends.
std::string shown(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text.append(text.empty() ? "[" : " [").append(word).append("]");
  return text;
}

/// The failure of a command as a sentence.
std::string effectOf(const Command& command, const std::string& why) {
  return base::toUtf8(command.element) + ": " + why + ", so that " + command.effect;
}

/// Quotes keep white space together and stay in the word, which is not what a shell has taught people.
bool bQuotedProgram(const std::string& word) {
  return word.find('"') != std::string::npos;
}

/// Whether the command could be run; that its program then does its work, only running it could tell.
void checkWords(const Command& command, const std::vector<std::string>& words, const std::string& subject,
                Findings& findings) {
  if (words.empty()) {
    return findings.put(command.whenBroken, command.id, effectOf(command, "there is no command"),
                        "Name the command in the configuration file.", subject);
  }
  const auto program = findProgram(words.front());
  if (program) {
    const std::string text = program.value() + ", started with the words " + shown(words);
    return findings.ok(command.id, base::toUtf8(command.element) + " runs " + text, subject);
  }
  Error error = program.error();
  // Where only another user can tell, nothing follows from it.
  error.message =
      bNotSeen(error) ? base::toUtf8(command.element) + ": " + error.message : effectOf(command, error.message);
  const char* remedy =
      bQuotedProgram(words.front())
          ? "Write the program's path without quotes, which are taken for a part of it."
          : "Install the program, make it executable, or correct the line; it is split at white space.";
  findings.failure(command.whenBroken, command.id, error, remedy, subject);
}

/// A command of a product, where it has one.
void checkPlugIn(const Command& command, const platform::ConfigFile& file, const std::string& subject,
                 Findings& findings) {
  // A product need not have a plug-in.
  if (const auto line = file.firstText(command.element)) checkWords(command, wordsOf(*line), subject, findings);
}

}  // namespace

void checkCommands(const Device& device, Findings& findings) {
  findings.begin("command.start", {});
  // Files that are refused name no command, and were told of already.
  if (device.agentConfig) {
    checkWords(kStart, wordsOf(device.agentConfig->firstTextOrEmpty(kStart.element)), {}, findings);
    checkWords(kStop, wordsOf(device.agentConfig->firstTextOrEmpty(kStop.element)), {}, findings);
  }
  for (const Product& product : device.products) {
    checkPlugIn(kLoad, product.config, product.name, findings);
    checkPlugIn(kUnload, product.config, product.name, findings);
  }
}

}  // namespace kelt::check
