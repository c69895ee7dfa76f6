#include "crypto/openssl/library.h"

#include <openssl/bio.h>
#include <openssl/conf.h>
#include <openssl/evp.h>
#include <string>
#include <unistd.h>

#include "base/openssl_memory.h"

namespace kelt::platform {
namespace {

std::unique_ptr<OpenSslLibrary> newLibrary() {
  auto library = std::make_unique<OpenSslLibrary>();
  library->context.reset(OSSL_LIB_CTX_new());
  // Without this, the environment variable OPENSSL_MODULES names the directory.
  const char* modules = OPENSSL_info(OPENSSL_INFO_MODULES_DIR);
  if (library->context == nullptr || modules == nullptr) return nullptr;
  if (OSSL_PROVIDER_set_default_search_path(library->context.get(), modules) != 1) return nullptr;
  return library;
}

/// Returns false, with nothing loaded, where the provider is missing or does not start.
bool loadProvider(OpenSslLibrary& library, const char* name) {
  OSSL_PROVIDER* provider = OSSL_PROVIDER_load(library.context.get(), name);
  if (provider == nullptr) return false;
  library.providers.emplace_back(provider);
  return true;
}

/// The path of the file in which `openssl fipsinstall` leaves the parameters of the FIPS provider, or "".
std::string fipsParametersFile() {
  const char* directory = OPENSSL_info(OPENSSL_INFO_CONFIG_DIR);
  if (directory == nullptr) return {};
  const std::string path = std::string(directory) + "/fipsmodule.cnf";
  return ::access(path.c_str(), R_OK) == 0 ? path : std::string();
}

/// Gives the FIPS provider its parameters. There is no call for that: they come from a configuration, so one is made in
/// memory that holds this one provider, instead of reading the system's own with whatever else it sets. Returns false
/// where they do not read.
bool configureFips(OSSL_LIB_CTX* context, const std::string& parametersFile) {
  const std::string text = "openssl_conf = start\n.include " + parametersFile +
                           "\n[start]\nproviders = providers\n[providers]\nfips = fips_sect\n";
  const Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const Configuration configuration(NCONF_new_ex(context, nullptr));
  if (bio == nullptr || configuration == nullptr) return false;
  long badLine = 0;
  if (NCONF_load_bio(configuration.get(), bio.get(), &badLine) != 1) return false;
  OPENSSL_load_builtin_modules();
  return CONF_modules_load(configuration.get(), nullptr, 0) == 1;
}

/// A library on the FIPS provider, or null where the system has none that passes its self-test.
std::unique_ptr<OpenSslLibrary> fipsLibrary() {
  auto library = newLibrary();
  if (library == nullptr) return nullptr;
  OSSL_LIB_CTX* context = library->context.get();
  const std::string parameters = fipsParametersFile();
  if (!parameters.empty() && !configureFips(context, parameters)) return nullptr;
  // "base" reads and writes key files; it computes nothing.
  if (!loadProvider(*library, "fips") || !loadProvider(*library, "base")) return nullptr;
  if (EVP_set_default_properties(context, "fips=yes") != 1) return nullptr;
  library->module = CryptoModule::kFips;
  return library;
}

}  // namespace

Result<std::unique_ptr<OpenSslLibrary>> startOpenSsl(bool bFips) {
  base::giveOpenSslWipingMemory();
  // A tool that root runs must not take its crypto modules from OPENSSL_CONF.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
  if (bFips) {
    if (auto library = fipsLibrary()) return library;
  }
  // In a new context: what was tried for FIPS mode is gone with its own.
  auto library = newLibrary();
  if (library == nullptr || !loadProvider(*library, "default")) {
    return Error{ErrorKind::kSystem, 0, "OpenSSL cannot be started"};
  }
  return library;
}

}  // namespace kelt::platform
