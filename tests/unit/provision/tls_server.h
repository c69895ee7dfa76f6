#pragma once
// A management server that answers whatever a test wants.

#include <memory>
#include <openssl/ssl.h>
#include <optional>
#include <string>
#include <vector>

#include "support/child.h"

#include "base/unique_fd.h"

namespace kelt::tests {

/// What becomes of one connection after its request was read.
struct Answer {
  std::string bytes;   ///< sent as they are, status line included
  bool reset = false;  ///< the connection is then reset instead of closed
  bool plain = false;  ///< no TLS: the bytes are sent at once, whatever the client says
};

/// An answer of status 200 with its length and this body.
[[nodiscard]] Answer bodyAnswer(const std::string& body);

/// A server on the loopback addresses, in a process of its own (so that the test may fork beside it), with a
/// certificate of its own making, that gives one answer per connection, the last one again and again.
class TlsServer {
 public:
  /// `certificateName` is the host that the certificate is for; it ends at `validSeconds` from now.
  explicit TlsServer(std::vector<Answer> answers, const std::string& certificateName = "localhost",
                     long validSeconds = 3600);
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;
  ~TlsServer();

  [[nodiscard]] std::string port() const;
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + port(); }

  /// The requests so far, head and all; hundreds are kept until they are asked for, and what comes then is not.
  [[nodiscard]] const std::vector<std::string>& requests() const;

 private:
  struct FreeContext {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  };

  [[noreturn]] void serve();
  void converse(base::UniqueFd connection, const Answer& answer);
  void converseByTls(int connection, const Answer& answer);
  static std::string readRequest(SSL* session);

  std::vector<Answer> m_answers;
  std::unique_ptr<SSL_CTX, FreeContext> m_context;
  base::UniqueFd m_listener;
  base::UniqueFd m_toTest;  ///< each request as a packet, before it is answered
  base::UniqueFd m_fromServer;
  mutable std::vector<std::string> m_requests;
  std::optional<Child> m_process;
};

}  // namespace kelt::tests
