// The management server, as `keltconfig -z -e` would reach it.

#include <map>
#include <vector>

#include "check/device.h"
#include "check/proxy.h"

#include "base/utf.h"
#include "helper/encoding.h"
#include "provision/probe.h"

namespace kelt::check {
namespace {

constexpr const char* kCheckAddress = "Give host or host:port; an IPv6 address in brackets.";

/// Makes findings of the facts, in the order in which they come.
class ServerLook {
 public:
  explicit ServerLook(Findings& findings) : m_findings(findings), m_proxy(proxySentence()) {}

  /// Takes a fact. Some close a question: that is told at once, so that it is known also when the next takes too long.
  void take(const std::string& name, const std::string& value) {
    m_facts[name].push_back(value);
    if (name == "resolving") {
      tellAddress();
      m_findings.begin("server.name", "the look-up of " + value);
    } else if (name == "connecting") {
      tellName();
      m_findings.begin("server.connection", "the connection to " + value);
    } else if (name == "sha256") {
      // The last fact about a connection: all others have come by then.
      tellConnection();
      m_findings.begin("server.answer", "the answer of the server");
    }
  }

  /// Tells the rest, once the exchange is over.
  void finish() {
    if (bHas("user-in-address"))
      return m_findings.problem("server.address", "The address holds a user name, which belongs to -U", kCheckAddress);
    if (bHas("failed")) return tellFailure();
    // A libcurl with another TLS library tells nothing of it.
    if (!bHas("sha256")) m_findings.ok("server.connection", "The connection to " + first("connected") + " stands");
    if (bHas("status")) tellAnswer();
  }

 private:
  /// Whether the fact came.
  [[nodiscard]] bool bHas(const std::string& name) const { return m_facts.contains(name); }
  [[nodiscard]] std::string first(const std::string& name) const {
    const auto found = m_facts.find(name);
    return found == m_facts.end() ? std::string() : found->second.front();
  }
  /// All values of a fact, with commas.
  [[nodiscard]] std::string all(const std::string& name) const {
    std::string text;
    const auto found = m_facts.find(name);
    if (found == m_facts.end()) return text;
    for (const std::string& value : found->second)
      text.append(text.empty() ? "" : ", ").append(value);
    return text;
  }

  /// How the address is read, which for an IPv6 address without brackets surprises.
  void tellAddress() {
    const std::string port = first("port");
    const std::string fact = "The address is read as host " + first("host") + ", " +
                             (port.empty() ? "without a port, which means 443" : "port " + port);
    if (port.find_first_not_of("0123456789") != std::string::npos)
      return m_findings.problem("server.address", fact + ", which is no number", kCheckAddress);
    if (port.empty())
      m_findings.warning("server.address", fact, "Give the port after the colon, or leave the colon out for 8443.");
    else
      m_findings.ok("server.address", fact);
    if (!m_proxy.empty()) m_findings.ok("server.proxy", m_proxy);
  }

  void tellName() {
    const std::string host = first("host");
    if (bHas("address")) {
      return m_findings.ok(
          "server.name", host + " is " + all("address") + (bHas("scope") ? ", with the scope " + first("scope") : ""));
    }
    // A proxy looks the name up itself.
    m_findings.put(m_proxy.empty() ? State::kProblem : State::kWarning, "server.name",
                   host + " is not found: " + first("unresolved"),
                   "Check the name, /etc/resolv.conf and /etc/hosts, or give the address.");
  }

  void tellConnection() {
    m_findings.ok("server.connection", "The connection to " + first("connected") + " stands, with " + first("tls"));
    const std::string fingerprint = first("sha256");
    if (!fingerprint.empty()) m_findings.takeFact("certificate_sha256", fingerprint);
    const std::string fact = "The certificate is for " + name("subject") + ", issued by " + name("issuer") +
                             ", valid from " + first("not-before") + " to " + first("not-after") + ", SHA-256 " +
                             fingerprint;
    if (!bHas("validity")) return m_findings.ok("server.certificate", fact);
    m_findings.warning("server.certificate", fact + "; it is " + first("validity"),
                       "Check the clock of this device and the server's certificate; the tool itself does not.");
  }

  /// A name in the certificate, which may be empty, or so long that nothing after it would be shown.
  [[nodiscard]] std::string name(const std::string& whose) const {
    constexpr std::size_t kLongest = 300;
    const std::string text = first(whose);
    return text.empty() ? "nobody" : shortened(text, kLongest);
  }

  /// libcurl's own reason. What there was before it has been told.
  void tellFailure() {
    const bool bConnected = bHas("connected");
    m_findings.problem(bConnected ? "server.answer" : "server.connection",
                       "The server at " + first("host") + " was not reached: " + first("failed"),
                       "Check that the address and port are those of the server, that it runs, and that no firewall is "
                       "between.");
  }

  /// A management server asks for credentials.
  void tellAnswer() {
    const std::string status = first("status");
    if (status == "401") return tellOffers();
    const std::string fact = "Asked for the package without credentials, the server answers with status " + status;
    if (status == "200")
      return m_findings.warning("server.authentication", fact + ": it asks nobody for credentials",
                                "Check that this is the management server.");
    m_findings.problem("server.authentication", fact, "Check that this is a management server, and its port.");
  }

  /// Which of the kinds the tool would choose from; libcurl prefers Negotiate, and tries no other after it.
  void tellOffers() {
    const std::string fact = "The server offers " + all("offers") + " authentication";
    if (!bHas("offers"))
      return m_findings.problem("server.authentication", "The server offers no authentication that libcurl knows",
                                "Let the server offer Digest or Basic.");
    if (bHas("negotiate"))
      return m_findings.warning("server.authentication", fact + "; only Negotiate would be tried",
                                "Let the server offer Digest or Basic alone.");
    m_findings.ok("server.authentication", fact);
  }

  Findings& m_findings;
  std::string m_proxy;
  std::map<std::string, std::vector<std::string>> m_facts;
};

}  // namespace

void checkServer(const std::string& server, Findings& findings) {
  findings.begin("server.address", {});
  // The tool reads its arguments as ISO-8859-1.
  const std::string typed = base::toUtf8(helper::latin1_to_unicode(server));
  if (typed.starts_with('-'))
    return findings.problem("server.address", "keltconfig takes " + typed + " for an option", kCheckAddress);
  ServerLook look(findings);
  const Status done =
      provision::probeServer(typed, [&](const std::string& name, const std::string& value) { look.take(name, value); });
  if (!done)
    return findings.problem("server.connection", "Servers cannot be reached: " + done.error().message,
                            "Put the installation right first; see install.provision.");
  look.finish();
}

}  // namespace kelt::check
