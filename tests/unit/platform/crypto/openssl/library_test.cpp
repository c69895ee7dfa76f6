// How OpenSSL is started, by the engine that starts it.
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "crypto/no_fips_module.h"
#include "crypto/openssl/started_engine.h"
#include "support/test_keys.h"

#include "base/unique_fd.h"

namespace kelt::platform {
namespace {

using tests::bytesOf;
using tests::testKey;

[[noreturn]] void startWithoutFipsModule() {
  const tests::NoFipsModule system;
  const auto engine = loadCryptoEngine();
  if (!system.bEmpty() || !engine) ::_exit(2);
  const auto module = engine.value()->start(true);
  ::_exit(module.ok() && module.value() == CryptoModule::kDefault ? 0 : 1);
}

TEST(OpenSslLibraryDeathTest, RunsOnTheDefaultModuleWhereTheSystemHasNoFipsModule) {
  // In a process of its own: a module that was loaded once is found again.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(startWithoutFipsModule(), ::testing::ExitedWithCode(0), "");
}

[[noreturn]] void startWithFipsModule() {
  const tests::NoFipsModule system;
  const auto engine = loadCryptoEngine();
  const auto own = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "keltconfig-fips-module.so";
  if (!system.bEmpty() || !system.install(own) || !engine) ::_exit(2);
  const auto module = engine.value()->start(true);
  const bool bOnIt = module.ok() && module.value() == CryptoModule::kFips;
  ::_exit(bOnIt && !engine.value()->sha256(bytesOf("abc")).ok() ? 0 : 1);
}

TEST(OpenSslLibraryDeathTest, ComputesWithTheFipsModuleOfTheSystemAndWithNothingElse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(startWithFipsModule(), ::testing::ExitedWithCode(0), "");
}

/// Ends the process: 0 when starting and using the engine opened neither of the two, which its environment names.
[[noreturn]] void useEngineUnderAHostileEnvironment() {
  tests::putFile("/tmp/openssl.cnf", "openssl_conf = none\n");
  tests::putDirectory("/tmp/modules");
  ::setenv("OPENSSL_CONF", "/tmp/openssl.cnf", 1);
  ::setenv("OPENSSL_MODULES", "/tmp/modules", 1);
  tests::putFile("/tmp/modules/fips.so", "not a module");
  const base::UniqueFd watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  const bool bWatching = ::inotify_add_watch(watch.get(), "/tmp/openssl.cnf", IN_OPEN) >= 0 &&
                         ::inotify_add_watch(watch.get(), "/tmp/modules", IN_OPEN) >= 0;
  const auto engine = loadCryptoEngine();
  if (!bWatching || !engine || !engine.value()->start(true)) ::_exit(2);
  if (!engine.value()->publicKey(bytesOf(testKey("rsa2048.spki.pem")))) ::_exit(3);
  char event[4096];
  ::_exit(::read(watch.get(), event, sizeof event) > 0 ? 1 : 0);
}

TEST(OpenSslLibraryDeathTest, ReadsNoConfigurationAndNoModuleThatTheEnvironmentNames) {
  // In a process of its own: OpenSSL reads its environment once.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(useEngineUnderAHostileEnvironment(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kelt::platform
