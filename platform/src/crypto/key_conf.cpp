#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/key_store.h"

#include "platform/crypto.h"
#include "platform/key_inspection.h"
#include "platform/refusals.h"

namespace quorvane_com::QV::crypto {
namespace {

constexpr const char* kFileName = "keyconf.ini";
/// Far more than the two lines take.
constexpr std::size_t kMaxSize = 256;

using Values = kelt::platform::KeyRecord;

/// Cuts the first line off `text`, without its line end.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

std::optional<Mode> modeOf(std::string_view number) {
  if (number == "0") return Mode::kFips;
  if (number == "2") return Mode::kNonFips;
  return std::nullopt;
}

std::optional<KeySize> keySizeOf(std::string_view number) {
  if (number == "0") return KeySize::kLower;
  if (number == "1") return KeySize::kHigher;
  return std::nullopt;
}

/// The two lines in either order, each once, and nothing else.
std::optional<Values> parse(std::string_view text) {
  constexpr std::string_view kModeTag = "mode=";
  constexpr std::string_view kSizeTag = "keysize=";
  std::optional<Mode> mode;
  std::optional<KeySize> keySize;
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    // Each once: of two lines for one value, any choice would be a guess at what the agent is to run in.
    if (!mode && line.starts_with(kModeTag)) {
      mode = modeOf(line.substr(kModeTag.size()));
      if (!mode) return std::nullopt;
    } else if (!keySize && line.starts_with(kSizeTag)) {
      keySize = keySizeOf(line.substr(kSizeTag.size()));
      if (!keySize) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  if (!mode || !keySize) return std::nullopt;
  return Values{*mode, *keySize};
}

/// The record in what was read of the key store `store`.
kelt::Result<Values> recordIn(const kelt::Result<kelt::base::SecretBytes>& file, const std::string& store) {
  if (!file) return file.error();
  const auto values = parse(std::string(file.value().begin(), file.value().end()));
  if (values) return *values;
  const std::string why = store + "/" + kFileName + ": is no record of mode and key size";
  return kelt::Error{kelt::ErrorKind::kMalformed, 0, why};
}

std::optional<Values> readValues() {
  const std::string store = kelt::platform::keyStorePath();
  const auto read = [&] { return kelt::platform::readStored(store, kFileName, kMaxSize); };
  auto file = read();
  // What the system refuses for once must not pass for a record that is not there.
  if (!file && file.error().kind == kelt::ErrorKind::kSystem) file = read();
  const auto values = recordIn(file, store);
  if (values) return values.value();
  kelt::platform::logRefusal(values.error());
  return std::nullopt;
}

/// Logs why something was not done, if it was not. Returns whether it was.
bool logFailure(const kelt::Status& status) {
  if (!status) kelt::platform::logRefusal(status.error());
  return status.ok();
}

/// The interface is given, and an enumeration takes any number: what is written here must read again.
bool bOfEnumeration(Mode mode) {
  return mode == Mode::kFips || mode == Mode::kNonFips;
}
bool bOfEnumeration(KeySize size) {
  return size == KeySize::kLower || size == KeySize::kHigher;
}

}  // namespace

bool KeyConf::getCryptoMode(Mode& mode) const {
  const auto values = readValues();
  // Else the caller's own value stays, which is what it falls back to.
  if (values) mode = values->mode;
  return values.has_value();
}

bool KeyConf::getCryptoKeySize(KeySize& keySize) const {
  const auto values = readValues();
  if (values) keySize = values->keySize;
  return values.has_value();
}

bool KeyConf::SetCryptoMode(Mode mode, KeySize keySize) {
  if (!bOfEnumeration(mode) || !bOfEnumeration(keySize)) return false;
  // Both at once, in one replacement: a mode without its size would not read, nor the other way round.
  const std::string text = "mode=" + std::to_string(static_cast<int>(mode)) +
                           "\nkeysize=" + std::to_string(static_cast<int>(keySize)) + "\n";
  const std::string store = kelt::platform::keyStorePath();
  if (!logFailure(kelt::platform::prepareKeyStore(store))) return false;
  const std::vector<unsigned char> bytes(text.begin(), text.end());
  return logFailure(kelt::platform::storeFile(store, kFileName, bytes));
}

}  // namespace quorvane_com::QV::crypto

kelt::Result<kelt::platform::KeyRecord> kelt::platform::inspectKeyRecord(const std::string& store, uid_t owner) {
  namespace crypto = quorvane_com::QV::crypto;
  return crypto::recordIn(readStoredAsItIs(store, crypto::kFileName, crypto::kMaxSize, owner), store);
}
