// The tool's own installation, and what it needs of the system.

#include <array>
#include <ctime>
#include <string_view>

#include "check/clock.h"
#include "check/device.h"
#include "check/elf_file.h"

#include "base/module_loader.h"
#include "helper/latin1_converter.h"
#include "provision/probe.h"

namespace kelt::check {
namespace {

constexpr const char* kInstallAgain =
    "Install the package keltconfig again, as root, with the libraries it depends on.";

/// One loadable part of the tool.
struct Part {
  const char* id;
  const char* name;
  const char* effect;  ///< of its absence
  State whenBroken;
};

constexpr Part kCrypto{"install.crypto", "crypto", "keys cannot be imported", State::kProblem};
constexpr Part kProvision{"install.provision", "provision", "keltconfig -z cannot fetch anything", State::kWarning};

/// A part that cannot be used, and what the tool cannot do without it.
void fail(const Part& part, Error error, Findings& findings) {
  error.message += std::string(", so that ") + part.effect;
  findings.failure(part.whenBroken, part.id, error, kInstallAgain);
}

/// Whether it is there, trusted, and looks like a shared object; else that is told.
bool bSound(const Part& part, std::string& path, Findings& findings) {
  const auto found = base::findModule(part.name);
  if (!found) {
    fail(part, found.error(), findings);
    return false;
  }
  path = found.value().path;
  const char* why = whyNoSharedObject(found.value().file.get());
  if (why != nullptr) fail(part, {ErrorKind::kMalformed, 0, path + " " + why}, findings);
  return why == nullptr;
}

/// The part for keys. Loading it is the only proof that it loads.
void checkCrypto(bool bLoad, Findings& findings) {
  std::string path;
  if (!bSound(kCrypto, path, findings)) return;
  if (!bLoad) return findings.ok(kCrypto.id, path + " is there and trusted");
  const auto inspector = platform::KeyInspector::start(false);
  if (!inspector) return fail(kCrypto, inspector.error(), findings);
  findings.takeFact("openssl", inspector.value().version());
  findings.ok(kCrypto.id, path + " is trusted and loads, with " + inspector.value().version());
}

/// The part for servers, likewise.
void checkProvision(bool bLoad, Findings& findings) {
  std::string path;
  if (!bSound(kProvision, path, findings)) return;
  if (!bLoad) return findings.ok(kProvision.id, path + " is there and trusted");
  std::string version;
  const Status loaded =
      provision::probeLibraries([&](const std::string& /*name*/, const std::string& value) { version = value; });
  if (!loaded) return fail(kProvision, loaded.error(), findings);
  findings.takeFact("libcurl", version);
  findings.ok(kProvision.id, path + " is trusted and loads, with libcurl " + version);
}

/// By what the tool does it with: a device may have been built without this conversion.
void checkConversion(Findings& findings) {
  // A letter beyond ASCII: one within it would come through without any conversion.
  constexpr std::string_view kLatin1 = "\xE9";
  constexpr std::string_view kUtf8 = "\xC3\xA9";
  std::array<char, 8> out{};
  const auto written = helper::Latin1Converter("UTF8").convert(kLatin1, out);
  if (written && std::string_view(out.data(), *written) == kUtf8)
    return findings.ok("install.conversion", "The system converts ISO-8859-1 to UTF-8");
  findings.warning("install.conversion",
                   "The system has no conversion from ISO-8859-1 to UTF-8, so that a site list in it would be refused",
                   "Install the conversion modules of the C library (gconv), or give site lists in UTF-8.");
}

/// A device without a battery comes up in the year 1970 or on the day of its image.
void checkClock(Findings& findings) {
  const std::int64_t now = std::time(nullptr);
  const std::string why = whyAbsurd(now, KELT_BUILT);
  const std::string fact = "The clock of this device shows " + utcText(now);
  if (why.empty()) return findings.ok("install.clock", fact);
  findings.warning("install.clock", fact + ", which " + why, "Set the clock; logs and certificates are judged by it.");
}

}  // namespace

void checkInstallation(bool bLoad, Findings& findings) {
  findings.begin("install.crypto", {});
  checkCrypto(bLoad, findings);
  checkProvision(bLoad, findings);
  checkConversion(findings);
  checkClock(findings);
}

}  // namespace kelt::check
