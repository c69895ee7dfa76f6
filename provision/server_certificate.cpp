#include "provision/server_certificate.h"

#include <array>
#include <ctime>
#include <memory>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>  // IWYU pragma: keep
#include <openssl/x509.h>
#include <span>

#include "base/hex.h"

namespace kelt::provision {
namespace {

struct FreeCertificate {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct FreeBio {
  void operator()(BIO* bio) const { BIO_free(bio); }
};

std::string textOf(const X509_NAME* name) {
  const std::unique_ptr<BIO, FreeBio> bio(BIO_new(BIO_s_mem()));
  // RFC 2253, but with letters beyond ASCII as they are, which is how people know the names.
  constexpr unsigned long kForm = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  if (bio == nullptr || X509_NAME_print_ex(bio.get(), name, 0, kForm) < 0) return {};
  char* text = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &text);
  return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

std::string textOf(const ASN1_TIME* time) {
  std::tm utc{};
  std::array<char, 32> text{};
  // It comes in two forms, with two and with four digits of the year (RFC 5280, 4.1.2.5); this call knows both.
  if (ASN1_TIME_to_tm(time, &utc) != 1) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

/// Pairs of digits with colons between them, as certificates are compared by eye.
std::string fingerprintOf(const X509* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (X509_digest(certificate, EVP_sha256(), digest.data(), &length) != 1) return {};
  return base::hexDigits(std::span<const unsigned char>(digest).first(length), ":");
}

}  // namespace

void tellConnection(const void* ssl, const ProbeFacts& tell) {
  const auto* connection = static_cast<const SSL*>(ssl);
  tell("tls", std::string(SSL_get_version(connection)) + ", " + SSL_get_cipher_name(connection));
  const std::unique_ptr<X509, FreeCertificate> certificate(SSL_get1_peer_certificate(connection));
  // There are ways of TLS in which the server shows none.
  if (certificate == nullptr) return;
  const ASN1_TIME* from = X509_get0_notBefore(certificate.get());
  const ASN1_TIME* until = X509_get0_notAfter(certificate.get());
  tell("subject", textOf(X509_get_subject_name(certificate.get())));
  tell("issuer", textOf(X509_get_issuer_name(certificate.get())));
  tell("not-before", textOf(from));
  tell("not-after", textOf(until));
  // Neither is said of a time that does not read (0).
  if (X509_cmp_current_time(until) < 0) tell("validity", "expired");
  if (X509_cmp_current_time(from) > 0) tell("validity", "not yet valid");
  tell("sha256", fingerprintOf(certificate.get()));
}

}  // namespace kelt::provision
