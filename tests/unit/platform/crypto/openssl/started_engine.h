#pragma once

#include <gtest/gtest.h>
#include <span>
#include <string>

#include "crypto/engine_loader.h"
#include "support/private_device.h"

namespace kelt::tests {

inline std::span<const unsigned char> bytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

template <typename Bytes>
std::string textOf(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

/// The engine, started without FIPS mode.
class StartedEngine : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    const auto loaded = platform::loadCryptoEngine();
    ASSERT_TRUE(loaded.ok()) << loaded.error().message;
    m_engine = loaded.value();
    ASSERT_TRUE(m_engine->start(false).ok());
  }
  void TearDown() override { m_engine->stop(); }

  /// What becomes of a file: its bytes in the kept form, or "refused: " and why.
  std::string publicKey(const std::string& file) {
    const auto key = m_engine->publicKey(bytesOf(file));
    return key ? textOf(key.value()) : "refused: " + key.error().message;
  }
  std::string secretKey(const std::string& file) {
    const auto key = m_engine->secretKey(bytesOf(file));
    return key ? textOf(key.value()) : "refused: " + key.error().message;
  }
  bool bTakenByNeither(const std::string& file) {
    return !m_engine->publicKey(bytesOf(file)).ok() && !m_engine->secretKey(bytesOf(file)).ok();
  }

  platform::CryptoEngine* m_engine = nullptr;
};

}  // namespace kelt::tests
