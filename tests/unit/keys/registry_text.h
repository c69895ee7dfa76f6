#pragma once
// Registry files, spelled out.

#include <cstdint>
#include <string>

namespace kelt::tests {

inline const std::string kRegistry = "/opt/Quorvane/orv/scratch/registry.ini";
inline const std::string kAgentSection = "[SOFTWARE\\Tellwick\\Zentor\\Agent]\n";

/// A line that holds a number.
[[nodiscard]] inline std::string numberLine(const std::string& name, std::uint32_t number) {
  std::string digits;
  for (unsigned shift = 32; shift > 0; shift -= 4)
    digits += "0123456789abcdef"[(number >> (shift - 4)) & 15U];
  return name + "=dword:" + digits + "\n";
}

/// A line that holds bytes.
[[nodiscard]] inline std::string bytesLine(const std::string& name, const std::string& bytes) {
  std::string line = name + "=hex:";
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    const auto byte = static_cast<unsigned char>(bytes[n]);
    if (n > 0) line += ',';
    line += "0123456789abcdef"[byte >> 4U];
    line += "0123456789abcdef"[byte & 15U];
  }
  return line + "\n";
}

/// The four lines of a key pair of the server, and of the agent.
[[nodiscard]] inline std::string serverLines(const std::string& pub, const std::string& sec) {
  return numberLine("ServerPubKeyBuffSize", static_cast<std::uint32_t>(pub.size())) +
         bytesLine("ServerPublicKey", pub) + numberLine("ReqSecKeyBuffSize", static_cast<std::uint32_t>(sec.size())) +
         bytesLine("ReqSecretKey", sec);
}
[[nodiscard]] inline std::string agentLines(const std::string& pub, const std::string& sec) {
  return numberLine("PubKeyBuffSize", static_cast<std::uint32_t>(pub.size())) + bytesLine("AgentPublicKey", pub) +
         numberLine("SecKeyBuffSize", static_cast<std::uint32_t>(sec.size())) + bytesLine("AgentSecretKey", sec);
}

}  // namespace kelt::tests
