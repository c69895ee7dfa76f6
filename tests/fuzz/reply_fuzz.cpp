// The management server's reply, from its first byte to the files in the source directory.
//
// The input's first byte says what the rest is: 0, the whole reply; 1, an archive, sent as the server sends it;
// anything else, a site list, sent in an archive. Its second byte is how many bytes arrive at once, 0 for all.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "fuzz/canned_server.h"
#include "fuzz/require.h"
#include "fuzz/standard_output.h"
#include "support/private_device.h"

#include "platform/astring.h"
#include "platform/sites_helper.h"
#include "provision/provision_client.h"
#include "provision/status.h"
#include "provision/transfer.h"

namespace {

namespace fs = std::filesystem;
using kelt::tests::require;

constexpr const char* kTop = "/tmp/reply";
constexpr const char* kDirectory = "/tmp/reply/source";
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Of(const std::string& bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = bits << 8U | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0U);
    for (std::size_t i = 0; i < 4; ++i)
      text += at + i <= bytes.size() ? kDigits[bits >> (18 - 6 * i) & 0x3FU] : '=';
    if (at % 57 == 54) text += "\r\n";
  }
  return text;
}

/// What base64 stands for, told anew; nothing where it is none.
std::optional<std::string> decoded(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (std::string_view(" \t\r\n").find(c) == std::string_view::npos) digits += c;
  }
  const std::size_t padding = digits.size() - (digits.find_last_not_of('=') + 1);
  if (digits.size() % 4 != 0 || padding > 2) return std::nullopt;
  std::string bytes;
  std::uint32_t bits = 0;
  for (std::size_t at = 0; at < digits.size(); ++at) {
    const bool bPadding = at + padding >= digits.size();
    const std::size_t digit = bPadding ? 0 : kDigits.find(digits[at]);
    if (digit == std::string_view::npos) return std::nullopt;
    bits = bits << 6U | static_cast<std::uint32_t>(digit);
    if (at % 4 != 3) continue;
    for (const unsigned shift : {16U, 8U, 0U})
      bytes += static_cast<char>(bits >> shift & 0xFFU);
  }
  bytes.resize(bytes.size() - padding);
  return bytes;
}

std::uint32_t crc32Of(std::string_view content) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : content) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit)
      crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
  }
  return ~crc;
}

std::string littleEndian(std::size_t number, std::size_t bytes) {
  std::string text;
  for (; bytes != 0; --bytes, number >>= 8U)
    text += static_cast<char>(number & 0xFFU);
  return text;
}

/// An archive of one stored file.
std::string archiveOf(const std::string& name, const std::string& content) {
  const std::string size = littleEndian(content.size(), 4);
  const std::string fields = littleEndian(20, 2) + std::string(8, '\0') + littleEndian(crc32Of(content), 4) + size +
                             size + littleEndian(name.size(), 2) + std::string(2, '\0');
  const std::string local = "PK\x03\x04" + fields + name + content;
  const std::string central = "PK\x01\x02" + littleEndian(20, 2) + fields + std::string(14, '\0') + name;
  return local + central + "PK\x05\x06" + std::string(4, '\0') + littleEndian(1, 2) + littleEndian(1, 2) +
         littleEndian(central.size(), 4) + littleEndian(local.size(), 4) + std::string(2, '\0');
}

std::string replyOf(std::uint8_t kind, const std::string& rest) {
  if (kind == 0) return rest;
  return "OK:\r\n" + base64Of(kind == 1 ? rest : archiveOf("sitelist.xml", rest));
}

/// What is printed up to the step that ends with this status.
std::string printedFor(int status, bool bEmptyReply) {
  static const std::array<std::pair<const char*, int>, 7> steps = {
      {{"Examining response...", kelt::provision::kBadReply},
       {"Creating keys zip file...", kelt::provision::kZipNotCreated},
       {"Writing decoded data to zip file...", kelt::provision::kZipNotWritten},
       {"Unzipping key files...", kelt::provision::kNotUnzipped},
       {"Reading FIPS mode from sitelist...", kelt::provision::kModeNotRead},
       {"Writing agentfipsmode file...", kelt::provision::kModeNotWritten},
       {"Renaming sitelist.xml to SiteList.xml...", kelt::provision::kNotRenamed}}};
  std::string text = "Initializing CURL...\nCurl initialization OK\nContacting Zentor... OK\n";
  for (const auto& [step, failure] : steps) {
    text += step;
    text += status == failure ? " ERROR\n" : " OK\n";
    if (status == failure) break;
  }
  if (bEmptyReply) {
    text +=
        "No response from Zentor, possibly due to invalid Zentor credentials, "
        "check Zentor credentials and retry.\n";
  }
  return text;
}

void checkFiles(const std::string& reply) {
  // An archive may name its files as we name temporary ones.
  const bool bAnyName =
      decoded(reply.substr(std::min<std::size_t>(5, reply.size()))).value_or("").find("kelt") != std::string::npos;
  for (const auto& entry : fs::recursive_directory_iterator(kDirectory)) {
    struct stat info {};
    require(::lstat(entry.path().c_str(), &info) == 0, "what is there can be examined");
    require(S_ISDIR(info.st_mode) || S_ISREG(info.st_mode), "there are files and directories and nothing else");
    require((info.st_mode & 0077U) == 0, "nobody else can read them");
    const std::string name = entry.path().filename();
    require(bAnyName || !name.starts_with('.') || name.find("kelt") == std::string::npos, "no temporary file is left");
  }
  require(kelt::tests::namesIn(kTop) == std::vector<std::string>{"source"}, "nothing is written elsewhere");
}

std::string file(const char* name) {
  return std::string(kDirectory) + "/" + name;
}

void checkSuccess() {
  require(kelt::tests::exists(file("SiteList.xml")) && !kelt::tests::exists(file("sitelist.xml")),
          "the site list has its final name");
  const std::wstring path = quorvane_com::orv::tellcomn_ansi_to_wide(file("SiteList.xml"));
  std::wstring mode;
  require(sitehlp::CSitesHelper(path).GetSitelistFipsMode(path, mode) == 0, "the site list can be read");
  require(kelt::tests::contentOf(file("agentfipsmode")) == ACharString(mode.c_str()).str(), "its mode is written");
}

/// What is left, by what the reply was and where it ended.
void checkOutcome(const std::string& reply, int status) {
  using Names = std::vector<std::string>;
  const bool bGood = reply.starts_with("OK:\r\n");
  require((status == kelt::provision::kBadReply) == !bGood, "a good reply starts with OK");
  if (!bGood) {
    require(kelt::tests::namesIn(kDirectory).empty(), "of another reply nothing is kept");
  } else if (status == kelt::provision::kNotUnzipped) {
    require(kelt::tests::namesIn(kDirectory) == Names{"keltconfig_keystemp.zip"},
            "the archive is left, and nothing of it");
    require(kelt::tests::contentOf(file("keltconfig_keystemp.zip")) == decoded(reply.substr(5)).value_or(""),
            "the archive is what was sent");
  } else {
    require(decoded(reply.substr(5)).has_value(), "what is unpacked was base64");
    require(!kelt::tests::exists(file("keltconfig_keystemp.zip")), "the archive is gone");
  }
  if (status == kelt::provision::kSuccess) checkSuccess();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string reply = replyOf(data[0], std::string(reinterpret_cast<const char*>(data) + 2, size - 2));
  kelt::tests::cannedServer() = {};
  kelt::tests::cannedServer().reply = reply;
  kelt::tests::cannedServer().piece = data[1];
  kelt::provision::serverReply.clear();
  fs::remove_all(kTop);
  kelt::tests::putDirectory(kDirectory, 0700);

  int status = -1;
  const std::string printed = kelt::tests::standardOutputOf(
      [&] { status = kelt::provision::provisionFiles("/tmp/reply/source", "server", "user", "password"); });
  require(printed == printedFor(status, reply.empty()), "it prints each step and how it ended");
  checkOutcome(reply, status);
  checkFiles(reply);
  return 0;
}
