#include "base/module_loader.h"

#include <dlfcn.h>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
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

uid_t ownerOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_uid;
}

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
  EXPECT_TRUE(error.message.starts_with(std::string(KELT_MODULE_DIR) + "/keltconfig-broken.so: ")) << error.message;
}

TEST_F(ModuleLoader, RefusesAModuleThatOthersMayHaveWritten) {
  const std::string directory = installDirectory();
  const std::string module = directory + "/keltconfig-open.so";
  fs::copy_file(fs::read_symlink("/proc/self/exe").parent_path() / "keltconfig-test.so", module);
  const auto expectRefused = [](const std::string& message) {
    const auto loaded = loadModuleSymbol("open", kSymbol);
    ASSERT_FALSE(loaded.ok());
    EXPECT_EQ(loaded.error().kind, ErrorKind::kRefused);
    EXPECT_EQ(loaded.error().message, message);
  };
  ASSERT_EQ(::chmod(module.c_str(), 0757), 0);
  expectRefused(module + ": can be written by others");
  ASSERT_EQ(::chmod(module.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 01777), 0);
  expectRefused(directory + ": can be written by others");
  ASSERT_EQ(::chmod(directory.c_str(), 0775), 0);
  EXPECT_TRUE(loadModuleSymbol("open", kSymbol).ok()) << "the group is root's own";
}

TEST_F(ModuleLoader, RefusesAModuleBehindALinkIntoADirectoryOfEverybodys) {
  const std::string directory = installDirectory();
  fs::copy_file(fs::read_symlink("/proc/self/exe").parent_path() / "keltconfig-test.so", "/tmp/planted.so");
  ASSERT_EQ(::symlink("/tmp/planted.so", (directory + "/keltconfig-link.so").c_str()), 0);
  EXPECT_EQ(loadModuleSymbol("link", kSymbol).error().message, "/tmp: can be written by others");
}

TEST_F(ModuleLoader, AsksNothingOfADirectoryThatHasNoSuchModule) {
  // The binary may stand in a directory that a group of administrators may write to.
  const std::string missing = installDirectory();
  ASSERT_EQ(::chmod(missing.c_str(), 0777), 0);
  EXPECT_EQ(loadModuleSymbol("missing", kSymbol).error().kind, ErrorKind::kNotFound);
}

TEST_F(ModuleLoader, RefusesAModuleInADirectoryOfSomebodyElse) {
  const std::string directory = installDirectory();
  const std::string module = directory + "/keltconfig-foreign.so";
  tests::putFile(module, "");
  std::string foreign = directory;
  if (::chown(directory.c_str(), 65534, 65534) != 0) {
    // In a namespace of one user nothing can be given away, but what the machine's root owns is foreign there.
    foreign = "/usr/bin";
    ASSERT_EQ(::unlink(module.c_str()), 0);
    ASSERT_EQ(::symlink("/usr/bin/env", module.c_str()), 0);
  }
  const auto error = loadModuleSymbol("foreign", kSymbol).error();
  if (ownerOf("/proc/self/exe") == ownerOf(foreign)) {
    EXPECT_EQ(error.kind, ErrorKind::kSystem) << "the binary is theirs too: judged to be fine, and no object file";
    return;
  }
  EXPECT_EQ(error.kind, ErrorKind::kRefused);
  EXPECT_EQ(error.message, foreign + ": belongs to somebody else");
}

TEST_F(ModuleLoader, LoadsTheLibrariesThatStandBesideAModule) {
  // The path by which a module is loaded leads to its own directory, so that $ORIGIN in it does.
  const std::string directory = installDirectory();
  fs::copy_file(fs::read_symlink("/proc/self/exe").parent_path() / "keltconfig-test.so",
                directory + "/keltconfig-origin.so");
  const auto address = loadModuleSymbol("origin", kSymbol);
  ASSERT_TRUE(address.ok());
  Dl_info info{};
  ASSERT_NE(::dladdr(address.value(), &info), 0);
  EXPECT_EQ(fs::canonical(fs::path(info.dli_fname).parent_path()), fs::path(directory));
}

TEST_F(ModuleLoader, ReportsASymbolThatIsMissing) {
  const auto error = loadModuleSymbol("test", "noSuchSymbol").error();
  EXPECT_EQ(error.kind, ErrorKind::kSystem);
  EXPECT_NE(error.message.find("noSuchSymbol"), std::string::npos);
}

}  // namespace
}  // namespace kelt::base
