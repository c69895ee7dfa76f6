#include <fstream>
#include <memory>
#include <stdexcept>
#include <unistd.h>

#include "crypto/no_fips_module.h"
#include "support/private_device.h"
#include "support/test_keys.h"

#include "platform/crypto.h"

namespace quorvane_com::QV::crypto {
namespace {

using kelt::tests::contentOf;
using kelt::tests::namesIn;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::testKey;

const std::string kStore = "/opt/Quorvane/orv/scratch/keystore";

std::wstring& said() {
  static std::wstring text;
  return text;
}
void onError(const wchar_t* source, const wchar_t* message) {
  said() += std::wstring(L"E ") + source + L": " + message + L"\n";
}
void onInfo(const wchar_t* source, const wchar_t* message) {
  said() += std::wstring(L"I ") + source + L": " + message + L"\n";
}

struct DestroyKeys {
  void operator()(IKeyManagement* keys) const { CryptShim::destroy_key_manager_object(keys); }
};
struct DestroyHash {
  void operator()(IHash* hash) const { CryptShim::destroy_hash_object(hash); }
};
using Keys = std::unique_ptr<IKeyManagement, DestroyKeys>;
using Hash = std::unique_ptr<IHash, DestroyHash>;

class CryptShimTest : public kelt::tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/opt/Quorvane/orv/scratch");
    putFile("/tmp/server.bin", testKey("rsa2048.spki.pem"));
    CryptShim::configure(Mode::kNonFips, Role::kDefault, &m_logger, L"keltconfig.sig");
    said().clear();
  }
  void TearDown() override {
    CryptShim::instance()->deinitialize();
    CryptShim::configure(Mode::kNonFips, Role::kDefault, nullptr, L"");
  }

  // The library keeps the loggers that it was given.
  static inline CryptShimLogger m_logger{onError, onInfo, nullptr, nullptr};
};

bool bLibcryptoLoaded() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(KELT_CRYPTO_LIBRARY) != std::string::npos) return true;
  }
  return false;
}

[[noreturn]] void configureOnly() {
  Mode mode{};
  KeySize keySize{};
  const bool bFound = KeyConf().getCryptoMode(mode) || KeyConf().getCryptoKeySize(keySize);
  CryptShim::configure(Mode::kFips, Role::kDefault, nullptr, L"keltconfig.sig");
  CryptShim::set_key_size_to_use(KeySize::kHigher);
  CryptShim::instance()->deinitialize();
  if (bFound || bLibcryptoLoaded()) ::_exit(1);
  ::_exit(CryptShim::instance()->initialize() && bLibcryptoLoaded() ? 0 : 2);
}

TEST(CryptShimDeathTest, LoadsNoCryptoLibraryBeforeItIsStarted) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(configureOnly(), ::testing::ExitedWithCode(0), "");
}

TEST_F(CryptShimTest, IsOnePerProcess) {
  EXPECT_NE(CryptShim::instance(), nullptr);
  EXPECT_EQ(CryptShim::instance(), CryptShim::instance());
}

TEST_F(CryptShimTest, StartsAndEndsAnyNumberOfTimesWithoutAWord) {
  EXPECT_TRUE(CryptShim::instance()->deinitialize()) << "not started";
  for (int n = 0; n < 3; ++n) {
    EXPECT_TRUE(CryptShim::instance()->initialize());
    EXPECT_TRUE(CryptShim::instance()->initialize());
    EXPECT_TRUE(CryptShim::instance()->deinitialize());
    EXPECT_TRUE(CryptShim::instance()->deinitialize());
  }
  EXPECT_EQ(said(), L"");
}

TEST_F(CryptShimTest, RefusesToBeConfiguredForAModeThatThereIsNot) {
  EXPECT_THROW(CryptShim::configure(Mode{1}, Role::kDefault, &m_logger, L""), std::runtime_error);
}

TEST_F(CryptShimTest, StartsByItselfWhenAnObjectIsAskedFor) {
  const Keys keys(CryptShim::create_key_manager_object());
  ASSERT_NE(keys, nullptr);
  EXPECT_TRUE(keys->importKeyFromFile(KeyType::kServerPublic, L"/tmp/server.bin"));
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
  EXPECT_EQ(said(), L"");
}

[[noreturn]] void startTwiceWithoutFipsModule() {
  const kelt::tests::NoFipsModule system;
  static CryptShimLogger logger{onError, onInfo, nullptr, nullptr};
  for (int n = 0; n < 2; ++n) {
    CryptShim::configure(Mode::kFips, Role::kDefault, &logger, L"keltconfig.sig");
    if (!CryptShim::instance()->initialize() || !CryptShim::instance()->deinitialize()) ::_exit(2);
  }
  const std::wstring expected =
      L"I cryptshim: This system has no usable FIPS module of OpenSSL. Its default module is used instead, "
      L"restricted to RSA and SHA-256.\n";
  ::_exit(system.bEmpty() && said() == expected ? 0 : 1);
}

[[noreturn]] void useWithoutFipsModule() {
  const kelt::tests::NoFipsModule system;
  static CryptShimLogger logger{onError, onInfo, nullptr, nullptr};
  CryptShim::configure(Mode::kFips, Role::kDefault, &logger, L"keltconfig.sig");
  const Hash hash(CryptShim::create_hash_object(HashType::kSha256));
  ::_exit(hash != nullptr && said().empty() ? 0 : 1);
}

TEST(CryptShimDeathTest, SaysNothingOfTheFipsModuleWhereItStartsByItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(useWithoutFipsModule(), ::testing::ExitedWithCode(0), "");
}

TEST(CryptShimDeathTest, TellsOnceThatTheSystemHasNoFipsModuleAndGoesOn) {
  // In a process of its own: a module that was loaded once is found again.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(startTwiceWithoutFipsModule(), ::testing::ExitedWithCode(0), "");
}

TEST_F(CryptShimTest, TellsWhyAKeyStoreCannotBeUsed) {
  putFile(kStore, "");
  EXPECT_EQ(CryptShim::create_key_manager_object(), nullptr);
  EXPECT_EQ(said(), L"E cryptshim: " + std::wstring(kStore.begin(), kStore.end()) + L": is not a directory\n");
}

TEST_F(CryptShimTest, TellsWhyAKeyWasNotImported) {
  putFile("/tmp/empty.bin", "");
  const Keys keys(CryptShim::create_key_manager_object());
  ASSERT_NE(keys, nullptr);
  EXPECT_FALSE(keys->importKeyFromFile(KeyType::kServerPublic, L"/tmp/empty.bin"));
  EXPECT_EQ(said(), L"I cryptshim: The key in /tmp/empty.bin was not imported: empty\n");
}

TEST_F(CryptShimTest, HashesWithSha256) {
  const Hash hash(CryptShim::create_hash_object(HashType::kSha256));
  ASSERT_NE(hash, nullptr);
  const std::string text = "abc";
  ABuffer in(std::span<const unsigned char>(reinterpret_cast<const unsigned char*>(text.data()), text.size()));
  ABuffer out;
  ASSERT_TRUE(hash->hash(in, out));
  const std::string digest(out.span().begin(), out.span().end());
  EXPECT_EQ(digest, std::string("\xba\x78\x16\xbf\x8f\x01\xcf\xea\x41\x41\x40\xde\x5d\xae\x22\x23"
                                "\xb0\x03\x61\xa3\x96\x17\x7a\x9c\xb4\x10\xff\x61\xf2\x00\x15\xad",
                                32));
}

TEST_F(CryptShimTest, KnowsNoOtherHash) {
  EXPECT_EQ(CryptShim::create_hash_object(HashType{1}), nullptr);
  CryptShim::destroy_hash_object(nullptr);
  CryptShim::destroy_key_manager_object(nullptr);
}

TEST_F(CryptShimTest, LeavesObjectsHarmlessWhenItEndsBeforeThem) {
  const Keys keys(CryptShim::create_key_manager_object());
  const Hash hash(CryptShim::create_hash_object(HashType::kSha256));
  ASSERT_TRUE(keys->importKeyFromFile(KeyType::kServerPublic, L"/tmp/server.bin"));
  CryptShim::instance()->deinitialize();
  ABuffer out;
  EXPECT_FALSE(keys->exportKey(KeyType::kServerPublic, out));
  EXPECT_FALSE(hash->hash(out, out));
  EXPECT_EQ(out.length(), 0U);
}

TEST_F(CryptShimTest, CallsNoCallbackThatIsNull) {
  static CryptShimLogger silent{nullptr, nullptr, nullptr, nullptr};
  CryptShim::configure(Mode::kNonFips, Role::kDefault, &silent, L"");
  putFile(kStore, "");
  EXPECT_EQ(CryptShim::create_key_manager_object(), nullptr);
}

}  // namespace
}  // namespace quorvane_com::QV::crypto
