#include "platform/config_directory.h"

#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>
#include <utility>

#include "device_paths.h"
#include "xml/document.h"

#include "base/file_read.h"
#include "base/trusted_file.h"
#include "base/utf.h"

namespace kelt::platform {
namespace {

constexpr const char* kRoot = "Configuration";
/// Far beyond any configuration; memory use is several times this.
constexpr std::size_t kMaxConfigSize = std::size_t{64} * 1024 * 1024;

/// The system wants root's configuration; that a group may write to it is root's to decide.
constexpr base::Trust kRootOnly{};
constexpr base::Trust kAnybody{.bJudgesAnything = false};

/// Errors by which the system says of a name that it leads nowhere.
bool bLeadsNowhere(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

/// Whether it is a directory, or a link to one. Sets `error` where the system does not tell.
bool bDirectoryIn(int directory, const std::string& name, int& error) {
  struct stat info {};
  if (::fstatat(directory, name.c_str(), &info, 0) == 0) return S_ISDIR(info.st_mode);
  // A product may hide there. The name is passed over, and listed() says that something was.
  if (!bLeadsNowhere(errno)) error = errno;
  return false;
}

/// In messages a file has one path, however the directory was given.
std::string withoutSlashAtEnd(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

/// The error with the path of the configuration file before it, unless it begins with that.
Error about(const std::string& path, Error error) {
  if (!error.message.starts_with(path + ":")) error.message.insert(0, path + ": ");
  return error;
}

}  // namespace

ConfigFile::ConfigFile(std::unique_ptr<XmlDocument> document) : m_document(std::move(document)) {}
ConfigFile::ConfigFile(ConfigFile&& other) noexcept = default;
ConfigFile& ConfigFile::operator=(ConfigFile&& other) noexcept = default;
ConfigFile::~ConfigFile() = default;

std::optional<std::wstring> ConfigFile::firstText(const wchar_t* name) const {
  const pugi::xml_node child = m_document->findChild(m_document->root(), base::toUtf8(name), {});
  if (!child) return std::nullopt;
  return base::toWide(textOf(child));
}

std::wstring ConfigFile::firstTextOrEmpty(const wchar_t* name) const {
  return firstText(name).value_or(std::wstring());
}

ConfigDirectory::ConfigDirectory(const std::string& path)
    : m_path(withoutSlashAtEnd(path)), m_stream(::opendir(path.c_str())), m_openErrno(m_stream ? 0 : errno) {
  struct stat info {};
  // Where it is open, what was opened is judged, whatever stands at the path meanwhile.
  const int examined = m_stream ? ::fstat(::dirfd(m_stream.get()), &info) : ::stat(path.c_str(), &info);
  if (examined != 0) {
    m_examineErrno = errno;
    return;
  }
  m_whyNotTrusted = base::whyNotTrusted(info, kRootOnly);
  if (m_whyNotTrusted != nullptr) {
    m_state = State::kWritableByOthers;
  } else {
    m_state = m_stream ? State::kUsable : State::kUnreadable;
  }
}

Status ConfigDirectory::usable() const {
  switch (m_state) {
    case State::kUsable:
      return {};
    case State::kInaccessible:
      return base::systemError("examine " + m_path, m_examineErrno);
    case State::kUnreadable:
      return base::systemError("open " + m_path, m_openErrno);
    case State::kWritableByOthers:
      break;
  }
  return Error{ErrorKind::kRefused, 0, m_path + ": " + m_whyNotTrusted};
}

bool ConfigDirectory::bRefusedBySystem() const noexcept {
  // These two tell something of the device, which will be the same at the next look; all others of the moment.
  if (m_state == State::kInaccessible) return m_examineErrno != ENOENT && m_examineErrno != ENOTDIR;
  return m_state == State::kUnreadable;
}

std::optional<std::string> ConfigDirectory::next() {
  if (!m_stream) return std::nullopt;
  errno = 0;  // the end of the list leaves it alone
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this object's own
  while (const dirent* entry = ::readdir(m_stream.get())) {
    const std::string name = &entry->d_name[0];
    if (name != "." && name != ".." && bDirectoryIn(::dirfd(m_stream.get()), name, m_listErrno)) return name;
    errno = 0;
  }
  if (errno != 0) m_listErrno = errno;
  return std::nullopt;
}

Status ConfigDirectory::listed() const {
  if (m_listErrno == 0) return {};
  Error error = base::systemError("list " + m_path, m_listErrno);
  error.kind = ErrorKind::kSystem;  // whatever it was, it does not say that nothing is there
  return error;
}

std::optional<std::string> ConfigDirectory::nextAgent() {
  auto name = next();
  while (name && !bAgent(*name))
    name = next();
  return name;
}

bool ConfigDirectory::bAgent(const std::string& name) {
  return name.find(paths::kAgentMarker) != std::string::npos;
}

std::string ConfigDirectory::fileOf(const std::string& name) const {
  return m_path + "/" + name + "/" + paths::kConfigFile;
}

Result<ConfigFile> ConfigDirectory::load(const std::string& name, ConfigUse use) const {
  const bool bTrusted = use == ConfigUse::kDecides;
  if (const Status judged = usable(); bTrusted && !judged) return judged.error();
  // For whoever only wants to know, a directory will do that is not trusted; one that does not open will not.
  if (!m_stream) return base::systemError("open " + m_path, m_openErrno);
  const std::string path = fileOf(name);
  // From the directory that was judged, wherever its path leads by now.
  const auto opened = base::openTrusted(::dirfd(m_stream.get()), m_path, name + "/" + paths::kConfigFile,
                                        bTrusted ? kRootOnly : kAnybody);
  if (!opened) return opened.error().kind == ErrorKind::kRefused ? about(path, opened.error()) : opened.error();
  const auto bytes = base::readAll(opened.value().file.get(), path, kMaxConfigSize);
  if (!bytes) return bytes.error();
  auto document = XmlDocument::load(bytes.value(), kRoot);
  if (!document) return about(path, document.error());
  return ConfigFile(std::move(document).value());
}

Result<ConfigFile> ConfigDirectory::loadAgent(ConfigUse use) {
  if (const Status judged = usable(); !judged) return judged.error();
  const auto name = nextAgent();
  // Where the agent was found, it does not matter what else could not be read.
  if (const Status all = listed(); !name && !all) return all.error();
  if (!name) return Error{ErrorKind::kNotFound, 0, m_path + ": no directory of the agent"};
  return load(*name, use);
}

}  // namespace kelt::platform
