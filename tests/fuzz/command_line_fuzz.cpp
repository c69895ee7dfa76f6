// Command lines: flags, values, texts and wiped arguments are those of a second telling of the grammar. The input is
// the arguments, with a zero byte between two.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "fuzz/standard_output.h"

#include "app/help.h"
#include "app/parser.h"

namespace {

using kelt::app::CommandLineData;
using kelt::tests::require;
using kelt::tests::standardOutputOf;

using Flag = bool CommandLineData::*;
using Arguments = std::vector<std::string>;

constexpr const char* kNoOptions =
    "Invalid command line : No options specified. Use keltconfig -h or ? or --help for help \n";
constexpr const char* kUnsupported = "Unsupported option. Use keltconfig -h or ? or --help for help.\n";
constexpr const char* kMissing = "Missing option argument.\n";

/// What an option without a value sets.
const std::map<std::string, Flag> kSwitches = {{"-start", &CommandLineData::startService},
                                               {"-stop", &CommandLineData::stopService},
                                               {"-m", &CommandLineData::managedMode},
                                               {"-u", &CommandLineData::unmanagedMode},
                                               {"-p", &CommandLineData::pFlag},
                                               {"-f", &CommandLineData::fFlag},
                                               {"-z", &CommandLineData::provision},
                                               {"-k", &CommandLineData::importKeysOnly},
                                               {"-nostart", &CommandLineData::noStart},
                                               {"-version", &CommandLineData::showVersion}};

/// What an option sets when it is seen, or when its value is stored; null for nothing.
struct Valued {
  Flag whenSeen = nullptr;
  Flag whenStored = nullptr;
};
const std::map<std::string, Valued> kValued = {{"-checkHF", {nullptr, &CommandLineData::checkVersionGiven}},
                                               {"-conflictList", {nullptr, &CommandLineData::conflictListGiven}},
                                               {"-d", {&CommandLineData::sourceDirGiven, nullptr}},
                                               {"-e", {}},
                                               {"-U", {}},
                                               {"-P", {}},
                                               {"-l", {&CommandLineData::logFileGiven, nullptr}},
                                               {"-CustomProps1", {nullptr, &CommandLineData::customPropsGiven}},
                                               {"-CustomProps2", {nullptr, &CommandLineData::customPropsGiven}},
                                               {"-CustomProps3", {nullptr, &CommandLineData::customPropsGiven}},
                                               {"-CustomProps4", {nullptr, &CommandLineData::customPropsGiven}}};

std::string helpText() {
  static const std::string text = standardOutputOf([] { kelt::app::DisplayHelp(); });
  return text;
}

/// ISO-8859-1 as UTF-8.
std::string utf8Of(const std::string& latin1) {
  std::string utf8;
  for (const char byte : latin1) {
    const auto code = static_cast<unsigned char>(byte);
    if (code >= 0x80) utf8 += code < 0xC0 ? '\xC2' : '\xC3';
    utf8 += static_cast<char>(code < 0xC0 ? code : code - 0x40);
  }
  return utf8;
}

std::wstring wideOf(const std::string& latin1) {
  std::wstring wide;
  for (const char byte : latin1)
    wide += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  return wide;
}

Arguments argumentsOf(const std::uint8_t* data, std::size_t size) {
  Arguments arguments;
  std::string rest(reinterpret_cast<const char*>(data), size);
  if (rest.empty()) return arguments;
  for (std::size_t end = rest.find('\0'); end != std::string::npos; end = rest.find('\0')) {
    arguments.push_back(rest.substr(0, end));
    rest.erase(0, end + 1);
  }
  arguments.push_back(rest);
  return arguments;
}

/// What a command line means.
struct Meaning {
  bool bUnderstood = true;
  std::string printed;
  std::vector<Flag> flags;
  std::map<std::string, std::string> values;  // by the name of the option
  std::set<std::size_t> wiped;                // arguments

  void fail(const std::string& text) {
    bUnderstood = false;
    printed += text;
  }
  void set(Flag flag) {
    if (flag != nullptr) flags.push_back(flag);
  }
};

bool bHelp(const std::string& argument) {
  return argument == "?" || argument == "-h" || argument == "--help";
}

/// Takes the value of the option at `at`. Returns whether anything after it is looked at.
bool takeValue(const Arguments& arguments, std::size_t at, Meaning& meaning) {
  const Valued& option = kValued.at(arguments[at]);
  meaning.set(option.whenSeen);
  const bool bThere = at + 1 < arguments.size();
  if (!bThere || arguments[at + 1] == "?") {
    meaning.fail((bThere ? helpText() : "") + kMissing);
    return false;
  }
  if (arguments[at] == "-P") meaning.wiped.insert(at + 1);
  if (arguments[at + 1].starts_with('-')) {
    meaning.fail(kMissing);
  } else {
    meaning.set(option.whenStored);
    meaning.values[arguments[at]] = arguments[at + 1];
  }
  return true;
}

/// The meaning of arguments of which none is empty.
Meaning meaningOf(const Arguments& arguments) {
  Meaning meaning;
  for (std::size_t at = 0; at < arguments.size(); ++at) {
    const std::string& argument = arguments[at];
    if (bHelp(argument)) {
      meaning.fail(helpText());
      return meaning;
    }
    if (const auto found = kSwitches.find(argument); found != kSwitches.end()) {
      meaning.set(found->second);
    } else if (kValued.contains(argument)) {
      if (!takeValue(arguments, at++, meaning)) return meaning;
    } else if (argument.starts_with('-')) {
      meaning.fail(kUnsupported);
      return meaning;
    } else {
      meaning.fail("Argument " + utf8Of(argument) + " passed without a valid option\n");
    }
  }
  return meaning;
}

Meaning expected(const Arguments& arguments) {
  Meaning meaning;
  if (arguments.empty()) {
    meaning.fail(kNoOptions);
    return meaning;
  }
  return meaningOf({arguments.begin(), std::find(arguments.begin(), arguments.end(), "")});
}

void checkFlags(const CommandLineData& data, const Meaning& meaning) {
  std::vector<Flag> all;
  for (const auto& [name, flag] : kSwitches)
    all.push_back(flag);
  for (const auto& [name, option] : kValued) {
    if (option.whenSeen != nullptr) all.push_back(option.whenSeen);
    if (option.whenStored != nullptr) all.push_back(option.whenStored);
  }
  for (const Flag flag : all) {
    const bool bSet = std::find(meaning.flags.begin(), meaning.flags.end(), flag) != meaning.flags.end();
    require(data.*flag == bSet, "flags are those of the options given");
  }
}

void checkValues(CommandLineData& data, const Meaning& meaning) {
  const std::map<std::string, std::wstring> stored = {{"-checkHF", data.GetCheckVersion()},
                                                      {"-conflictList", data.GetConflictList()},
                                                      {"-d", data.GetSiteListPath()},
                                                      {"-e", data.GetZentorServer()},
                                                      {"-U", data.GetZentorUser()},
                                                      {"-P", data.GetZentorPassword()},
                                                      {"-l", data.GetLogFile()},
                                                      {"-CustomProps1", data.GetCustomProp1()},
                                                      {"-CustomProps2", data.GetCustomProp2()},
                                                      {"-CustomProps3", data.GetCustomProp3()},
                                                      {"-CustomProps4", data.GetCustomProp4()}};
  for (const auto& [name, value] : stored) {
    const auto given = meaning.values.find(name);
    require(value == (given == meaning.values.end() ? L"" : wideOf(given->second)), "values are those last given");
  }
}

void checkArguments(const Arguments& before, const Arguments& after, const Meaning& meaning) {
  for (std::size_t at = 0; at < before.size(); ++at) {
    const bool bWiped = after[at] == std::string(before[at].size(), '\0');
    require(bWiped || !meaning.wiped.contains(at), "what follows -P is wiped");
    // After the end of what is parsed, too, if somebody cares.
    const bool bFollows = at != 0 && before[at - 1] == "-P";
    require(after[at] == before[at] || (bWiped && bFollows), "nothing else is changed");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Arguments before = argumentsOf(data, size);
  const Meaning meaning = expected(before);

  Arguments after = before;
  std::vector<char*> pointers;
  for (std::string& argument : after)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  CommandLineData record;
  bool bUnderstood = false;
  const std::string printed =
      standardOutputOf([&] { bUnderstood = kelt::app::ParseCommandLineArg(pointers.data(), record); });

  require(bUnderstood == meaning.bUnderstood, "it is understood, or not");
  require(printed == meaning.printed, "it prints what there is to say");
  checkFlags(record, meaning);
  checkValues(record, meaning);
  checkArguments(before, after, meaning);
  return 0;
}
