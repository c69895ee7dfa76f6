#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "base/console.h"
#include "helper/latin1_converter.h"
#include "helper/messages.h"
#include "helper/unix_command_line_helper.h"
#include "platform/afile.h"

namespace kelt::helper {
namespace {

/// Room that is reckoned per character; no character of ISO-8859-1 takes more than two in fact.
constexpr std::size_t kUtf8Room = 6;

const char* asText(const ABuffer& buffer) {
  return reinterpret_cast<const char*>(buffer.data());
}

ABuffer asBuffer(const std::string& text) {
  return ABuffer({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

}  // namespace

bool unixCommandLineHelper::ConvertToUtf8(const char* latin1, std::string& utf8) const {
  if (latin1 == nullptr) return false;
  const std::size_t length = std::strlen(latin1);
  if (length > std::numeric_limits<std::size_t>::max() / kUtf8Room) return false;
  const std::size_t room = length * kUtf8Room;
  const std::unique_ptr<char[]> out(new (std::nothrow) char[room + 1]);
  if (out == nullptr) return false;

  Latin1Converter converter("UTF8");
  const std::optional<std::size_t> written = converter.convert({latin1, length}, {out.get(), room});
  if (!written) return false;
  utf8.assign(out.get(), *written);
  return true;
}

bool unixCommandLineHelper::ConvertSiteListToUTF8(std::wstring path) const {
  const AString file(std::move(path));
  ABuffer content;
  std::string utf8;
  const bool bConverted =
      AFile::readExisting(file, content) && ConvertToUtf8(asText(content), utf8) && AFile::write(file, asBuffer(utf8));
  base::printLine(bConverted ? messages::kSiteListConverted : messages::kSiteListNotConverted);
  return bConverted;
}

}  // namespace kelt::helper
