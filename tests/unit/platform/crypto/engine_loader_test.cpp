#include "crypto/engine_loader.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace kelt::platform {
namespace {

TEST(EngineLoader, TellsThatTheEntryFoundNoMemoryForTheEngine) {
  const auto engine = engineFrom([]() -> CryptoEngine* { return nullptr; });
  ASSERT_FALSE(engine.ok());
  EXPECT_EQ(engine.error().kind, ErrorKind::kSystem);
  EXPECT_EQ(engine.error().sysErrno, ENOMEM);
  EXPECT_EQ(engine.error().message, "out of memory");
}

TEST(EngineLoader, LoadsTheOneEngineOfTheProcess) {
  const auto engine = loadCryptoEngine();
  ASSERT_TRUE(engine.ok()) << engine.error().message;
  ASSERT_NE(engine.value(), nullptr);
  EXPECT_EQ(loadCryptoEngine().value(), engine.value());
}

}  // namespace
}  // namespace kelt::platform
