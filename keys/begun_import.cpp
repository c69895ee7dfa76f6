#include "keys/begun_import.h"

#include <algorithm>
#include <string_view>

#include "base/retry.h"
#include "helper/files.h"
#include "keys/hex_hash.h"

namespace kelt::keys {
namespace {

constexpr const char* kAbsent = "-";
constexpr const char* kUnknown = "?";

/// The numbers by which platform/crypto.h has them.
template <typename Enum>
std::string numberOf(Enum value) {
  return std::to_string(static_cast<int>(value));
}

/// Reads lines "name=value", each by its name.
class PlanReader {
 public:
  explicit PlanReader(std::string_view text) : m_text(text) {}

  /// The value of the next line, which must be of that name; "" where it is not, and from then on.
  std::string_view next(std::string_view name) {
    const std::size_t end = m_text.find('\n');
    const std::string_view line = m_text.substr(0, end);
    m_bGood =
        m_bGood && end != std::string_view::npos && line.starts_with(name) && line.substr(name.size()).starts_with('=');
    // After one that is wrong, none is right: each would be taken for another.
    if (!m_bGood) return {};
    m_text.remove_prefix(end + 1);
    return line.substr(name.size() + 1);
  }

  /// The same for one of several values.
  template <typename Value>
  Value oneOf(std::string_view name, std::initializer_list<std::pair<std::string_view, Value>> values) {
    const std::string_view text = next(name);
    const auto found = std::find_if(values.begin(), values.end(), [&](const auto& pair) { return pair.first == text; });
    m_bGood = m_bGood && found != values.end();
    return m_bGood ? found->second : Value{};
  }

  Mode mode(std::string_view name) { return oneOf<Mode>(name, {{"0", Mode::kFips}, {"2", Mode::kNonFips}}); }
  KeySize keySize(std::string_view name) {
    return oneOf<KeySize>(name, {{"0", KeySize::kLower}, {"1", KeySize::kHigher}});
  }
  bool flag(std::string_view name) { return oneOf<bool>(name, {{"0", false}, {"1", true}}); }

  /// Whether all was as it should be, and nothing is left.
  [[nodiscard]] bool bWhole() const { return m_bGood && m_text.empty(); }

 private:
  std::string_view m_text;
  bool m_bGood = true;
};

std::string identityOf(const std::string& path, HexHash& hash) {
  helper::Presence presence = helper::presenceOf(path);
  if (presence == helper::Presence::kUnknown) presence = helper::presenceOf(path);
  // What cannot be examined counts as there: it must not pass for a file that an import has deleted.
  if (presence == helper::Presence::kAbsent) return kAbsent;
  std::optional<std::string> digits;
  const auto read = [&] {
    const auto size = helper::sizeOf(path);
    // What is too large for a key must not take memory to be told from one.
    const auto content = size && *size <= platform::kMaxKeyFileSize ? helper::contentOf(path) : std::nullopt;
    if (content) digits = hash.of(*content);
    return content.has_value();
  };
  return base::askTwice(read) ? digits.value_or(kUnknown) : kUnknown;
}

}  // namespace

std::string planOf(const BegunImport& import) {
  std::string text = std::string("stage=") + (import.stage == Stage::kStoring ? "storing" : "cleaning");
  text += std::string("\nfrom=") + (import.fromUpdateDir ? "update" : "installation");
  text += "\nmode=" + numberOf(import.plan.setting.mode);
  text += "\nkeysize=" + numberOf(import.plan.setting.keySize);
  text += "\nlegacy-names=" + numberOf(import.plan.bLegacyNames);
  text += "\nmode-before=" + numberOf(import.before.mode);
  text += "\nkeysize-before=" + numberOf(import.before.keySize);
  text += "\nregistry-keys=" + numberOf(import.bRegistryKeys);
  text += "\nagent-keys=" + numberOf(import.bAgentKeys);
  for (const std::string& file : import.files)
    text += "\nfile=" + file;
  return text + "\n";
}

std::optional<BegunImport> importIn(std::string_view plan) {
  PlanReader reader(plan);
  BegunImport import;
  import.stage = reader.oneOf<Stage>("stage", {{"storing", Stage::kStoring}, { "cleaning", Stage::kCleaning }});
  import.fromUpdateDir = reader.oneOf<bool>("from", {{"update", true}, { "installation", false }});
  import.plan.setting.mode = reader.mode("mode");
  import.plan.setting.keySize = reader.keySize("keysize");
  import.plan.bLegacyNames = reader.flag("legacy-names");
  import.before = {reader.mode("mode-before"), reader.keySize("keysize-before")};
  import.bRegistryKeys = reader.flag("registry-keys");
  import.bAgentKeys = reader.flag("agent-keys");
  for (std::string& file : import.files)
    file = reader.next("file");
  // A plan is read whole or not at all: half of one could have files deleted that nobody meant.
  if (!reader.bWhole()) return std::nullopt;
  return import;
}

bool bPresent(const std::string& identity) {
  return identity != kAbsent;
}

std::array<std::string, kKeyFileCount> identitiesOf(const KeyFiles& files) {
  HexHash hash;
  std::array<std::string, kKeyFileCount> identities;
  const auto paths = inOrder(files);
  std::transform(paths.begin(), paths.end(), identities.begin(),
                 [&](const std::string* path) { return identityOf(*path, hash); });
  return identities;
}

}  // namespace kelt::keys
