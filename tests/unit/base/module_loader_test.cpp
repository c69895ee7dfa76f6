#include "base/module_loader.h"

#include <dlfcn.h>
#include <filesystem>
#include <sys/mount.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::base {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSymbol = "keltTestModuleAnswer";

class ModuleLoader : public tests::PrivateDevice {
 protected:
  void TearDown() override {
    if (!m_mounted.empty()) ::umount2(m_mounted.c_str(), MNT_DETACH);
  }

  /// Makes the installation's library directory for this test, on a file system of its own over the machine's.
  std::string installDirectory() {
    const fs::path directory = KELT_MODULE_DIR;
    fs::path existing = directory.parent_path();
    while (!fs::is_directory(existing))
      existing = existing.parent_path();
    EXPECT_EQ(::mount("install", existing.c_str(), "tmpfs", 0, "mode=755"), 0);
    m_mounted = existing;
    fs::create_directories(directory);
    return directory;
  }

 private:
  std::string m_mounted;
};

int answerOf(void* address) {
  return reinterpret_cast<int (*)()>(address)();
}

TEST_F(ModuleLoader, FindsAModuleBesideTheBinary) {
  const auto address = loadModuleSymbol("test", kSymbol);
  ASSERT_TRUE(address.ok()) << address.error().message;
  EXPECT_EQ(answerOf(address.value()), 42);
}

TEST_F(ModuleLoader, KeepsTheModulesNamesToItself) {
  ASSERT_TRUE(loadModuleSymbol("test", kSymbol).ok());
  EXPECT_EQ(::dlsym(RTLD_DEFAULT, kSymbol), nullptr);
}

TEST_F(ModuleLoader, FindsAModuleInTheInstallation) {
  const std::string directory = installDirectory();
  const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path() / "keltconfig-test.so";
  fs::copy_file(beside, directory + "/keltconfig-installed.so");
  const auto address = loadModuleSymbol("installed", kSymbol);
  ASSERT_TRUE(address.ok()) << address.error().message;
  EXPECT_EQ(answerOf(address.value()), 42);
}

TEST_F(ModuleLoader, DoesNotLookInTheWorkingDirectory) {
  const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path() / "keltconfig-test.so";
  fs::copy_file(beside, "/tmp/keltconfig-elsewhere.so");
  ASSERT_EQ(::chdir("/tmp"), 0);
  const auto error = loadModuleSymbol("elsewhere", kSymbol).error();
  EXPECT_EQ(error.kind, ErrorKind::kNotFound);
  EXPECT_EQ(error.message, "keltconfig-elsewhere.so: not installed");
}

TEST_F(ModuleLoader, ReportsAModuleThatDoesNotLoad) {
  tests::putFile(installDirectory() + "/keltconfig-broken.so", "no object file");
  const auto error = loadModuleSymbol("broken", kSymbol).error();
  EXPECT_EQ(error.kind, ErrorKind::kSystem);
  EXPECT_NE(error.message.find("keltconfig-broken.so"), std::string::npos);
}

TEST_F(ModuleLoader, ReportsASymbolThatIsMissing) {
  const auto error = loadModuleSymbol("test", "noSuchSymbol").error();
  EXPECT_EQ(error.kind, ErrorKind::kSystem);
  EXPECT_NE(error.message.find("noSuchSymbol"), std::string::npos);
}

}  // namespace
}  // namespace kelt::base
