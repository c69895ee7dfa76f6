#include "tls_server.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include "loopback.h"

namespace kelt::tests {
namespace {

constexpr std::size_t kLongestRequest = 65536;

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

Certificate selfSigned(EVP_PKEY* key, const std::string& name, long validSeconds) {
  Certificate certificate(X509_new(), X509_free);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -7200);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validSeconds);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME* subject = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1,
                             0);
  X509_set_issuer_name(certificate.get(), subject);
  X509_sign(certificate.get(), key, EVP_sha256());
  return certificate;
}

SSL_CTX* contextFor(const std::string& name, long validSeconds) {
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), EVP_PKEY_free);
  const Certificate certificate = selfSigned(key.get(), name, validSeconds);
  EXPECT_EQ(SSL_CTX_use_certificate(context, certificate.get()), 1);
  EXPECT_EQ(SSL_CTX_use_PrivateKey(context, key.get()), 1);
  return context;
}

/// Listens on any free port, for IPv6 and IPv4.
base::UniqueFd listener() {
  base::UniqueFd fd(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 any{};
  any.sin6_family = AF_INET6;
  const int off = 0;
  ::setsockopt(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  EXPECT_EQ(::bind(fd.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
  EXPECT_EQ(::listen(fd.get(), 8), 0);
  return fd;
}

void resetAtClose(int connection) {
  const linger now{1, 0};
  ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

}  // namespace

Answer bodyAnswer(const std::string& body) {
  return {"HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body};
}

TlsServer::TlsServer(std::vector<Answer> answers, const std::string& certificateName, long validSeconds)
    : m_answers(std::move(answers)), m_context(contextFor(certificateName, validSeconds)) {
  bringLoopbackUp();
  m_listener = listener();
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
  m_toTest.reset(ends[0]);
  m_fromServer.reset(ends[1]);
  m_process.emplace([this]() -> int { serve(); });
}

TlsServer::~TlsServer() {
  ::kill(m_process->pid(), SIGKILL);
}

std::string TlsServer::port() const {
  sockaddr_in6 bound{};
  socklen_t length = sizeof bound;
  EXPECT_EQ(::getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&bound), &length), 0);
  return std::to_string(ntohs(bound.sin6_port));
}

const std::vector<std::string>& TlsServer::requests() const {
  std::string packet(kLongestRequest, '\0');
  while (true) {
    const ssize_t got = ::recv(m_fromServer.get(), packet.data(), packet.size(), MSG_DONTWAIT);
    if (got <= 0) return m_requests;
    m_requests.push_back(packet.substr(0, static_cast<std::size_t>(got)));
  }
}

void TlsServer::serve() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // the tool is free to hang up
  for (std::size_t turn = 0;; ++turn) {
    base::UniqueFd connection(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) ::_exit(1);
    converse(std::move(connection), m_answers[std::min(turn, m_answers.size() - 1)]);
  }
}

void TlsServer::converse(base::UniqueFd connection, const Answer& answer) {
  if (!answer.plain) {
    converseByTls(connection.get(), answer);
    return;
  }
  static_cast<void>(::write(connection.get(), answer.bytes.data(), answer.bytes.size()));
  char ignored[1024];
  static_cast<void>(::read(connection.get(), ignored, sizeof ignored));
}

void TlsServer::converseByTls(int connection, const Answer& answer) {
  const std::unique_ptr<SSL, decltype(&SSL_free)> session(SSL_new(m_context.get()), SSL_free);
  SSL_set_fd(session.get(), connection);
  if (SSL_accept(session.get()) != 1) return;
  const std::string request = readRequest(session.get());
  // Whoever never asks for the requests must not hold up the answers: what finds no room is not kept.
  static_cast<void>(::send(m_toTest.get(), request.data(), request.size(), MSG_DONTWAIT));
  std::size_t sent = 0;
  if (!answer.bytes.empty()) SSL_write_ex(session.get(), answer.bytes.data(), answer.bytes.size(), &sent);
  if (answer.reset) {
    resetAtClose(connection);
  } else {
    SSL_shutdown(session.get());
  }
}

std::string TlsServer::readRequest(SSL* session) {
  std::string request;
  char buffer[1024];
  std::size_t got = 0;
  while (!request.ends_with("\r\n\r\n") && SSL_read_ex(session, buffer, sizeof buffer, &got) == 1) {
    request.append(buffer, got);
  }
  return request;
}

}  // namespace kelt::tests
