#pragma once
// A device with an agent whose keys are to be imported.

#include <string>
#include <vector>

#include "registry_text.h"
#include "support/private_device.h"
#include "support/test_keys.h"

#include "helper/command_line_helper.h"

namespace kelt::tests {

using Lines = std::vector<std::string>;

inline const std::string kInstall = "/opt/Quorvane/orv";
inline const std::string kScratch = kInstall + "/scratch";
inline const std::string kUpdate = kScratch + "/update";
inline const std::string kStore = kScratch + "/keystore";
inline const std::string kKeyConf = kStore + "/keyconf.ini";
inline const std::string kLog = kScratch + "/logs/keltcfg.log";
inline const std::string kConfig = "/etc/orv.d/ZENTORAGENT3000/config.xml";

/// The SHA-256 of rsa1024.spki.der and of rsa2048.spki.der.
inline const std::string kHash1024 = "D7A82E66A3CFBB1C90383EC32E9D7BF720929EB8832CF265BD7903F692BFC184";
inline const std::string kHash2048 = "28A0D7B06E2B89362B134011D3500C2473D225B94D135C5D5D1D637141B3FE9F";

[[nodiscard]] inline std::string configWith(const std::string& hash) {
  return "<Configuration><Version>5.0</Version><binsphash>" + hash + "</binsphash></Configuration>\n";
}

/// The helper as far as the import goes, which asks nothing else of it.
class ImportingHelper final : public helper::CommandLineHelper {
 public:
  bool StartORVService() override { return unexpected(); }
  bool StopORVService() override { return unexpected(); }
  bool CheckVersion(std::wstring& /*version*/) override { return unexpected(); }
  bool CheckConflictList(std::wstring& /*conflictList*/) override { return unexpected(); }
  int PrepareORV(bool, bool, std::wstring, std::wstring, bool, std::wstring, bool, bool, std::wstring, std::wstring,
                 std::wstring) override {
    return unexpected() ? 0 : 1;
  }

 private:
  static bool unexpected() {
    ADD_FAILURE() << "the import called another operation";
    return false;
  }
};

/// The lines of the agent's log from one source, each as mark, blank and text.
[[nodiscard]] inline Lines logLines(const std::string& source = "keltcfg") {
  Lines lines;
  if (!exists(kLog)) return lines;
  const std::string text = contentOf(kLog);
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = text.find('\n', start);
    Lines fields{""};
    for (const char c : text.substr(start, end - start)) {
      if (c == '\t') {
        fields.emplace_back();
      } else {
        fields.back() += c;
      }
    }
    EXPECT_EQ(fields.size(), 5U) << text;
    if (fields.size() == 5 && fields[3] == source) lines.push_back(fields[1] + " " + fields[4]);
    start = end + 1;
  }
  return lines;
}

/// What is meant by the words "in the log": everything that an import with these properties says.
struct ExpectedLog {
  std::string mode = "NON-FIPS";
  std::string size = "Lower 1024";
  std::string directory = kInstall + "//";
  std::string publicFile = "srpubkey.bin";
  std::string secretFile = "reqseckey.bin";
  bool bReinitialized = true;

  [[nodiscard]] Lines begin() const {
    return {"I Initializing in " + mode + " mode", "I Setting the key size to be used as " + size + " bits",
            "I Expecting these key files: " + directory + publicFile + ", " + directory + secretFile};
  }
  [[nodiscard]] Lines with(const Lines& rest) const {
    Lines lines = begin();
    if (bReinitialized) {
      lines.emplace_back("I Trying to re-initialize crypto libraries.");
      lines.emplace_back("I Successfully re-initialized crypto libraries.");
    }
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
  }
  [[nodiscard]] Lines all() const { return with({"I Successfully imported the keys."}); }
};

class ImportKeysTest : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kScratch);
    putFile(kConfig, configWith("old"));
  }

  bool importKeys(bool fromUpdateDir = false) {
    bool bResult = false;
    m_output = outputOf([&] { bResult = ImportingHelper().ImportKeys(fromUpdateDir); });
    EXPECT_EQ(m_output.err, "");
    return bResult;
  }

  /// Server keys of one size under the names of either.
  static void putKeys1024(const std::string& directory = kInstall, const std::string& keys = "rsa1024") {
    putFile(directory + "/srpubkey.bin", testKey(keys + ".spki.der"));
    putFile(directory + "/reqseckey.bin", testKey(keys + ".pkcs8.der"), 0600);
  }
  static void putKeys2048(const std::string& directory = kInstall) {
    putFile(directory + "/sr2048pubkey.bin", testKey("rsa2048.spki.der"));
    putFile(directory + "/req2048seckey.bin", testKey("rsa2048.pkcs8.der"), 0600);
  }
  static void putSetting(const std::string& mode, const std::string& keySize) {
    putDirectory(kStore, 0700);
    putFile(kKeyConf, "mode=" + mode + "\nkeysize=" + keySize + "\n", 0600);
  }

  /// The key files among those of a directory.
  static Lines keyFilesIn(const std::string& directory) {
    Lines names;
    for (const std::string& name : namesIn(directory)) {
      if (name.ends_with(".bin") || name == "agentfipsmode") names.push_back(name);
    }
    return names;
  }

  Output m_output;
};

}  // namespace kelt::tests
