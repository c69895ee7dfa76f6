#pragma once

#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>

namespace kelt::tests {

/// While it lives, OpenSSL's compiled-in directory of modules is empty, as on a system without a FIPS module.
class NoFipsModule {
 public:
  NoFipsModule() {
    void* library = ::dlopen(KELT_CRYPTO_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return;
    constexpr int kModulesDirectory = 1003;  // OPENSSL_INFO_MODULES_DIR
    m_directory = reinterpret_cast<const char* (*)(int)>(::dlsym(library, "OPENSSL_info"))(kModulesDirectory);
    m_bEmpty = ::access(m_directory.c_str(), F_OK) != 0 ||  // for instance on an emulated system
               ::mount("none", m_directory.c_str(), "tmpfs", 0, nullptr) == 0;
    EXPECT_TRUE(m_bEmpty) << m_directory;
  }
  NoFipsModule(const NoFipsModule&) = delete;
  NoFipsModule& operator=(const NoFipsModule&) = delete;
  ~NoFipsModule() {
    if (m_bEmpty) ::umount2(m_directory.c_str(), MNT_DETACH);
  }

  [[nodiscard]] bool bEmpty() const { return m_bEmpty; }

  /// Puts the module `file` there as the FIPS module. False where there is no such directory.
  [[nodiscard]] bool install(const std::string& file) const {
    std::error_code error;
    return std::filesystem::copy_file(file, m_directory + "/fips.so", error);
  }

 private:
  std::string m_directory;
  bool m_bEmpty = false;
};

}  // namespace kelt::tests
