#include "check/options.h"

#include <array>
#include <getopt.h>

namespace kelt::check {
namespace {

// Numbers that no letter has, as there are no short options.
enum Code : int { kSource = 1, kServer, kJson, kPlain, kVerbose, kHelp, kVersion };

constexpr std::array kLongOptions{
    option{"source", required_argument, nullptr, kSource}, option{"server", required_argument, nullptr, kServer},
    option{"json", no_argument, nullptr, kJson},           option{"plain", no_argument, nullptr, kPlain},
    option{"verbose", no_argument, nullptr, kVerbose},     option{"help", no_argument, nullptr, kHelp},
    option{"version", no_argument, nullptr, kVersion},     option{nullptr, 0, nullptr, 0},
};

/// The end of a sentence that begins "wrong use".
Error wrongUse(const std::string& what) {
  return {ErrorKind::kRefused, 0, what};
}

/// What was given so far, and whether of the formats both.
struct Given {
  Options options;
  bool bJson = false;
  bool bPlain = false;
};

/// Takes one option that getopt has recognised.
void take(int code, Given& given) {
  switch (code) {
    case kSource:
      given.options.source = ::optarg;
      break;
    case kServer:
      given.options.server = ::optarg;
      break;
    case kJson:
      given.bJson = true;
      break;
    case kPlain:
      given.bPlain = true;
      break;
    case kVerbose:
      given.options.bVerbose = true;
      break;
    case kHelp:
      given.options.bHelp = true;
      break;
    default:
      given.options.bVersion = true;
      break;
  }
}

bool bWantsValue(int code) {
  return code == kSource || code == kServer;
}

}  // namespace

Result<Options> optionsIn(int argc, char** argv) {
  Given given;
  ::opterr = 0;
  ::optind = 0;  // begins anew, whoever has called it before
  // getopt steps to the next word only after the last letter of one like "-xy", so the word is noted before. It stops
  // at the first argument ("+") and leaves the order as it is, as no argument belongs here.
  int at = 1;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
  for (int code = 0; (code = ::getopt_long(argc, argv, "+:", kLongOptions.data(), nullptr)) != -1; at = ::optind) {
    const std::string word = argv[at];
    if (code == ':') return wrongUse("the option " + word + " needs a value");
    if (code == '?') return wrongUse("there is no option " + word);
    if (bWantsValue(code) && *::optarg == '\0') return wrongUse("the value of an option is empty");
    take(code, given);
  }
  if (::optind < argc) return wrongUse("the argument " + std::string(argv[::optind]) + " belongs to no option");
  if (given.bJson && given.bPlain) return wrongUse("--json and --plain exclude each other");
  given.options.format = given.bJson ? Format::kJson : given.bPlain ? Format::kPlain : Format::kTerminal;
  return given.options;
}

const char* helpText() {
  return "usage: keltcheck [--source DIR] [--server HOST[:PORT]] [--json | --plain] [--verbose]\n"
         "       keltcheck --help | --version\n"
         "\n"
         "Tells how this device and its agent stand, what is wrong and what to do about it, and changes nothing.\n"
         "\n"
         "  --source DIR          rehearse the switch `keltconfig -m -d DIR`\n"
         "  --server HOST[:PORT]  look at a management server as `keltconfig -z -e` would reach it, without "
         "credentials\n"
         "  --json                one JSON object\n"
         "  --plain               no colours or symbols, as when the output is no terminal\n"
         "  --verbose             tell also what is well\n"
         "\n"
         "Exit status: 0 ok, 1 warning, 2 problem, 3 unknown or wrong use. keltcheck(8) tells more.\n";
}

}  // namespace kelt::check
