#include "app/parser.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "app/help.h"
#include "app/messages.h"
#include "base/console.h"
#include "base/secret.h"
#include "helper/encoding.h"
#include "platform/astring.h"

namespace kelt::app {
namespace {

using Flag = bool CommandLineData::*;

/// One option: what seeing it does, and what its value does.
struct Option {
  std::wstring_view name;                                    // as typed after the first "-"
  Flag flagWhenSeen = nullptr;                               // null: none
  void (*store)(CommandLineData&, std::wstring&) = nullptr;  // null: takes no value
  bool bSecret = false;                                      // its value must not stay in the argument list
};

// Seeing an option without its value is not yet asking for the check.
void storeCheckVersion(CommandLineData& data, std::wstring& value) {
  data.checkVersionGiven = data.SetCheckVersion(value);
}

void storeConflictList(CommandLineData& data, std::wstring& value) {
  data.conflictListGiven = data.SetConflictList(value);
}

template <void (CommandLineData::*set)(const std::wstring&)>
void storeText(CommandLineData& data, std::wstring& value) {
  (data.*set)(value);
}

template <void (CommandLineData::*set)(std::wstring&)>
void storePath(CommandLineData& data, std::wstring& value) {
  (data.*set)(value);
}

template <void (CommandLineData::*set)(const std::wstring&)>
void storeCustomProperty(CommandLineData& data, std::wstring& value) {
  (data.*set)(value);
  data.customPropsGiven = true;
}

using Data = CommandLineData;
constexpr Option kOptions[] = {
    {L"start", &Data::startService},
    {L"stop", &Data::stopService},
    {L"checkHF", nullptr, storeCheckVersion},
    {L"conflictList", nullptr, storeConflictList},
    {L"m", &Data::managedMode},
    {L"u", &Data::unmanagedMode},
    {L"p", &Data::pFlag},
    {L"f", &Data::fFlag},
    {L"d", &Data::sourceDirGiven, storePath<&Data::SetSiteListPath>},
    {L"z", &Data::provision},
    {L"e", nullptr, storeText<&Data::SetZentorServer>},
    {L"U", nullptr, storeText<&Data::SetZentorUser>},
    {L"P", nullptr, storeText<&Data::SetZentorPassword>, true},
    {L"l", &Data::logFileGiven, storePath<&Data::SetLogFile>},
    {L"k", &Data::importKeysOnly},
    {L"nostart", &Data::noStart},
    {L"version", &Data::showVersion},
    {L"CustomProps1", nullptr, storeCustomProperty<&Data::SetCustomProp1>},
    {L"CustomProps2", nullptr, storeCustomProperty<&Data::SetCustomProp2>},
    {L"CustomProps3", nullptr, storeCustomProperty<&Data::SetCustomProp3>},
    {L"CustomProps4", nullptr, storeCustomProperty<&Data::SetCustomProp4>},
};

const Option* findOption(std::wstring_view name) {
  // As it is spelled: -u and -U are two options.
  const auto* const found =
      std::find_if(std::begin(kOptions), std::end(kOptions), [&](const Option& option) { return option.name == name; });
  return found == std::end(kOptions) ? nullptr : found;
}

/// The names of the help that begin with a "-", typed as "--help" and "-h".
bool bHelpName(std::wstring_view name) {
  return name == L"-help" || name == L"h";
}

/// Wipes the values of secret options among arguments that are not parsed any more: the list of processes shows those,
/// too.
void wipeSecrets(char** args) {
  for (; *args != nullptr && args[1] != nullptr; ++args) {
    if (std::strcmp(*args, "-P") == 0) base::wipe(args[1], std::strlen(args[1]));
  }
}

/// Goes through the arguments one by one.
class Parser {
 public:
  explicit Parser(CommandLineData& data) : m_data(data) {}

  /// Takes one argument, which is wiped if it is a secret. Returns false when the rest must not be looked at.
  bool take(char* argument);

  /// Returns whether all was understood.
  bool finish();

 private:
  bool takeOption(std::wstring_view name);
  void takeValue(std::wstring& value);
  bool showHelp();
  void fail(const char* message);

  CommandLineData& m_data;
  const Option* m_waiting = nullptr;  // the option whose value comes next
  bool m_failed = false;
};

bool Parser::take(char* argument) {
  // Both forms are wiped: the argument may be the password.
  std::string narrow(argument);
  const base::WipeAtEnd wipeNarrow(narrow);
  std::wstring wide = helper::latin1_to_unicode(narrow);
  const base::WipeAtEnd wipeWide(wide);

  // Before a value is looked for: the help is shown also where a value was expected.
  if (wide == L"?") return showHelp();
  if (m_waiting != nullptr) {
    // Where it stands, the list of processes shows it to every user.
    if (m_waiting->bSecret) base::wipe(argument, narrow.size());
    takeValue(wide);
    return true;
  }
  if (wide.starts_with(L'-')) return takeOption(std::wstring_view(wide).substr(1));
  base::printLine(messages::argumentWithoutOption(wide));
  m_failed = true;
  return true;  // the rest is parsed all the same, for every mistake in it to be told
}

bool Parser::takeOption(std::wstring_view name) {
  const Option* const option = findOption(name);
  if (option != nullptr) {
    // Without waiting for its value: where that is missing, the whole command line is refused.
    if (option->flagWhenSeen != nullptr) m_data.*(option->flagWhenSeen) = true;
    if (option->store != nullptr) m_waiting = option;
    return true;
  }
  if (bHelpName(name)) return showHelp();
  fail(messages::kUnsupportedOption);
  return false;
}

void Parser::takeValue(std::wstring& value) {
  if (value.starts_with(L'-')) {
    // An option in its place is taken for its absence, and is itself not looked at any more.
    fail(messages::kMissingArgument);
  } else {
    m_waiting->store(m_data, value);
  }
  m_waiting = nullptr;
}

/// Shows the help and refuses the command line: a script must not take it for the work that it has asked for.
bool Parser::showHelp() {
  DisplayHelp();
  m_failed = true;
  return false;
}

bool Parser::finish() {
  if (m_waiting != nullptr) fail(messages::kMissingArgument);
  return !m_failed;
}

void Parser::fail(const char* message) {
  base::printLine(message);
  m_failed = true;
}

}  // namespace

bool ParseCommandLineArg(char** args, CommandLineData& data) {
  if (*args == nullptr) {
    base::printLine(messages::kNoOptions);
    return false;
  }
  Parser parser(data);
  // An empty argument, as a script makes it of an unset variable, ends the command line.
  while (*args != nullptr && **args != '\0' && parser.take(*args))
    ++args;
  wipeSecrets(args);
  return parser.finish();
}

std::wstring utf8_to_unicode(const std::string& utf8) {
  return quorvane_com::orv::tellcomn_ansi_to_wide(utf8);
}

}  // namespace kelt::app
