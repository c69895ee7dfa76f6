#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "crypto/engine_loader.h"
#include "crypto/key_store.h"

#include "base/utf.h"
#include "platform/crypto.h"

namespace quorvane_com::QV::crypto {
namespace {

using kelt::platform::CryptoEngine;
using kelt::platform::CryptoModule;

constexpr const wchar_t* kSource = L"cryptshim";

/// CryptShim on the engine that is loaded when it is first needed: what the process has configured and started.
class EngineShim final : public CryptShim {
 public:
  static EngineShim& get() {
    // Never destroyed: it keeps the loggers for the life of the process.
    static auto* const shim = new EngineShim;
    return *shim;
  }

  void configureWith(Mode mode, CryptShimLogger* logger) {
    m_mode = mode;
    m_logger = logger;
    // The earlier ones, too: each is the library's for the life of the process, and must stay reachable.
    if (logger != nullptr) m_keptLoggers.push_back(logger);
  }

  bool initialize() override {
    if (!ensureStarted()) return false;
    if (m_bFipsMissing) tellThatNoFipsModule();
    return true;
  }

  bool deinitialize() override {
    // Its loadable object stays: a later initialize() starts the same engine again.
    if (m_engine != nullptr) m_engine->stop();
    m_engine = nullptr;
    return true;
  }

  /// The engine in the configured mode, started when it has to be. Only initialize() speaks of a missing FIPS module.
  [[nodiscard]] CryptoEngine* engine() { return ensureStarted() ? m_engine : nullptr; }
  [[nodiscard]] const CryptShimLogger* logger() const { return m_logger; }

  void report(const kelt::Error& error) const {
    if (m_logger != nullptr) m_logger->error(kelt::base::toWide(error.message));
  }

 private:
  /// Starts the engine unless it runs in the configured mode already.
  bool ensureStarted() {
    if (m_engine != nullptr && m_startedMode == m_mode) return true;
    if (start()) return true;
    // An engine that does not run in this mode must not go on in the earlier one.
    m_engine = nullptr;
    return false;
  }

  bool start() {
    // Loaded here and not before, so that a run that touches no key never loads libcrypto.
    const auto engine = kelt::platform::loadCryptoEngine();
    if (!engine) {
      report(engine.error());
      return false;
    }
    m_engine = engine.value();
    const auto module = m_engine->start(m_mode == Mode::kFips);
    if (!module) {
      report(module.error());
      return false;
    }
    m_startedMode = m_mode;
    // The engine takes the default module by itself where there is no other; whoever asked for FIPS mode is told.
    m_bFipsMissing = m_mode == Mode::kFips && module.value() == CryptoModule::kDefault;
    return true;
  }

  void tellThatNoFipsModule() {
    // Once for a process, however often the library is started in it.
    if (m_bToldNoFips || m_logger == nullptr) return;
    m_bToldNoFips = true;
    m_logger->info(
        L"This system has no usable FIPS module of OpenSSL. Its default module is used instead, "
        L"restricted to RSA and SHA-256.");
  }

  Mode m_mode = Mode::kNonFips;
  Mode m_startedMode = Mode::kNonFips;
  CryptShimLogger* m_logger = nullptr;
  std::vector<CryptShimLogger*> m_keptLoggers;
  CryptoEngine* m_engine = nullptr;  ///< set while started
  bool m_bFipsMissing = false;
  bool m_bToldNoFips = false;
};

class Sha256 final : public IHash {
 public:
  explicit Sha256(CryptoEngine& engine) : m_engine(engine) {}

  bool hash(const ABuffer& in, ABuffer& out) override {
    const auto hash = m_engine.sha256(in.span());
    if (!hash) return false;
    out = ABuffer(std::span<const unsigned char>(hash.value()));
    return true;
  }

 private:
  CryptoEngine& m_engine;
};

}  // namespace

void CryptShimLogger::error(const std::wstring& message) const {
  if (m_error != nullptr) m_error(kSource, message.c_str());
}

void CryptShimLogger::info(const std::wstring& message) const {
  if (m_info != nullptr) m_info(kSource, message.c_str());
}

CryptShim* CryptShim::instance() {
  return &EngineShim::get();
}

void CryptShim::configure(Mode mode, Role /*role*/, CryptShimLogger* logger, const std::wstring& /*configName*/) {
  // Thrown, as the operation has no other way to say so: an import in a mode that nobody meant is worse than none.
  if (mode != Mode::kFips && mode != Mode::kNonFips) throw std::runtime_error("no such crypto mode");
  EngineShim::get().configureWith(mode, logger);
}

// The size matters to whoever makes keys. This library makes none, and takes keys of any size.
void CryptShim::set_key_size_to_use(KeySize /*keySize*/) {}

IKeyManagement* CryptShim::create_key_manager_object() {
  EngineShim& shim = EngineShim::get();
  CryptoEngine* engine = shim.engine();
  if (engine == nullptr) return nullptr;
  std::string store = kelt::platform::keyStorePath();
  // Before there is a manager: one whose store cannot be used would only fail later, key by key.
  if (const auto prepared = kelt::platform::prepareKeyStore(store); !prepared) {
    shim.report(prepared.error());
    return nullptr;
  }
  return new (std::nothrow) kelt::platform::KeyStore(std::move(store), *engine, shim.logger());
}

void CryptShim::destroy_key_manager_object(IKeyManagement* keys) {
  delete keys;
}

IHash* CryptShim::create_hash_object(HashType type) {
  if (type != HashType::kSha256) return nullptr;
  CryptoEngine* engine = EngineShim::get().engine();
  return engine == nullptr ? nullptr : new (std::nothrow) Sha256(*engine);
}

void CryptShim::destroy_hash_object(IHash* hash) {
  delete hash;
}

}  // namespace quorvane_com::QV::crypto
