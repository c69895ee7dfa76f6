#pragma once
// Findings that are kept, and a device with an agent to find them on.

#include <string>
#include <utility>
#include <vector>

#include "check/device.h"
#include "support/agent_on_device.h"
#include "support/private_device.h"

namespace kelt::tests {

class Collected final : public check::Findings {
 public:
  Collected() = default;
  Collected(Collected&& other) noexcept : report(std::move(other.report)), begun(std::move(other.begun)) {}
  void take(check::Check check) override { report.checks.push_back(std::move(check)); }
  void takeFact(const std::string& name, const std::string& value) override { report.facts[name].push_back(value); }
  void begin(const std::string& id, const std::string& waitsFor) override { begun.push_back(id + "|" + waitsFor); }

  /// "ok", "warning", "problem", "unknown": of each finding with that identifier, in order, joined by blanks; "" where
  /// there is none.
  [[nodiscard]] std::string states(const std::string& id) const {
    std::string text;
    for (const check::Check& check : report.checks) {
      if (check.id == id) text.append(text.empty() ? "" : " ").append(nameOf(check.state));
    }
    return text;
  }

  /// The fact of the only finding with that identifier.
  [[nodiscard]] std::string fact(const std::string& id) const {
    std::string found;
    for (const check::Check& check : report.checks) {
      if (check.id == id) found += check.fact;
    }
    return found;
  }

  /// Identifier and state of whatever is not ok, in order.
  [[nodiscard]] std::vector<std::string> trouble() const {
    std::vector<std::string> found;
    for (const check::Check& check : report.checks) {
      if (check.state != check::State::kOk) found.push_back(check.id + " " + nameOf(check.state));
    }
    return found;
  }

  check::Report report;
  std::vector<std::string> begun;
};

using Trouble = std::vector<std::string>;

inline const std::string kInstalled = "/opt/Quorvane/orv";
inline const std::string kAgentName = "ZENTORAGENT3000";
inline const std::string kAgentConfig = "/etc/orv.d/ZENTORAGENT3000/config.xml";
inline const std::string kInstalledSiteList = kInstalled + "/scratch/etc/SiteList.xml";
inline const std::string kStore = kInstalled + "/scratch/keystore";

/// A site list with such servers.
inline std::string siteListOf(const std::vector<std::string>& servers) {
  std::string text = "<ns:SiteLists><SiteList>";
  for (const std::string& server : servers)
    text += "<SpipeSite ServerIP=\"" + server + "\"/>";
  return text + "</SiteList></ns:SiteLists>";
}

/// An installed agent that no server manages.
class CheckedDevice : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kInstalled + "/bin");
    putDirectory(kInstalled + "/scratch/etc");
    m_program = putCommand("agent");
    putProduct(kAgentName, {{"Version", "5.7.8"},
                            {"StartCommand", m_program + " start"},
                            {"StopCommand", m_program + " stop"},
                            {"binsphash", ""}});
    putFile(kInstalledSiteList, siteListOf({}));
  }

  /// The device as it is found out from its configuration.
  check::Device device() {
    check::Device found;
    Collected ignored;
    checkConfiguration(found, ignored);
    return found;
  }

  std::string m_program;
};

}  // namespace kelt::tests
