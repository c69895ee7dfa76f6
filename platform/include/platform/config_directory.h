#pragma once
// The configuration of the agent and of the products that it hosts: a directory for each below the configuration
// directory, and in it a "config.xml", an element per value.

#include <memory>
#include <optional>
#include <string>

#include "base/listing.h"
#include "base/result.h"

namespace kelt::platform {

class XmlDocument;

/// One configuration file, loaded to be read.
class ConfigFile {
 public:
  ConfigFile(ConfigFile&& other) noexcept;
  ConfigFile& operator=(ConfigFile&& other) noexcept;
  ~ConfigFile();

  /// The text of the root's first child element `name`, as it stands in the file; nothing when there is no such child.
  [[nodiscard]] std::optional<std::wstring> firstText(const wchar_t* name) const;

  /// The same, for values whose absence means the same as an empty text.
  [[nodiscard]] std::wstring firstTextOrEmpty(const wchar_t* name) const;

 private:
  friend class ConfigDirectory;
  /// `document` has the root `Configuration`.
  explicit ConfigFile(std::unique_ptr<XmlDocument> document);
  std::unique_ptr<XmlDocument> m_document;
};

/// What a value that is read from a configuration file is for.
enum class ConfigUse {
  kDecides,  ///< it names what root runs, or where root writes: only a trusted file has it
  kInforms,  ///< it is compared or shown
};

/// The configuration directory, opened once and judged by what was opened; it finds the products' directories, in the
/// order in which the system lists them, and loads their files.
///
/// A file is trusted when it, the directory that it stands in (and each through which a symbolic link led to it) and
/// the configuration directory belong to root and are not writable by others; a group may. All are judged by
/// descriptors, and the file is read through the one that was judged, so nobody can exchange anything in between.
class ConfigDirectory {
 public:
  /// What keeps the configuration directory from being used, if anything does.
  enum class State {
    kUsable,
    kInaccessible,      ///< cannot be examined
    kWritableByOthers,  ///< belongs to somebody other than root, or others may write to it
    kUnreadable,        ///< is fine, but cannot be opened
  };

  /// Opens the directory at `path`, given with or without a "/" at its end.
  explicit ConfigDirectory(const std::string& path);

  /// How the directory stood when it was opened.
  [[nodiscard]] State state() const { return m_state; }

  /// The same as a Status: ok() when usable. Errors: kNotFound, kRefused (writable by others), kSystem.
  [[nodiscard]] Status usable() const;

  /// Whether it is the system that keeps the directory from being used: not where it is missing or not trusted.
  [[nodiscard]] bool bRefusedBySystem() const noexcept;

  /// The name of the next entry that is a directory (or a link to one); nothing when there is none left, or the
  /// directory is not open. Works whatever the state.
  [[nodiscard]] std::optional<std::string> next();

  /// Whether what next() gave is all there is. Errors: kSystem, where the system broke off the listing, or refused to
  /// tell what an entry is, which was then passed over.
  [[nodiscard]] Status listed() const;

  /// The first of the names that next() has still to give that is the agent's own.
  [[nodiscard]] std::optional<std::string> nextAgent();

  /// Whether a product's directory of that name is the agent's own: it contains "ZENTORAGENT".
  [[nodiscard]] static bool bAgent(const std::string& name);

  /// The path of the configuration file in the directory `name`, which need not be there.
  [[nodiscard]] std::string fileOf(const std::string& name) const;

  /// Loads the configuration file in the directory `name`, trusted if `use` is kDecides. Errors, each with the path in
  /// its message: kNotFound; kRefused for what is not a regular file or not trusted; kMalformed for what is no XML
  /// document with the root `Configuration` (platform/anxml.h); kTooLarge; kSystem.
  [[nodiscard]] Result<ConfigFile> load(const std::string& name, ConfigUse use = ConfigUse::kDecides) const;

  /// Loads the agent's own file: that of nextAgent(). Errors: those of usable() and of load(); kNotFound where no
  /// directory is the agent's; those of listed() where one may be, and was not found.
  [[nodiscard]] Result<ConfigFile> loadAgent(ConfigUse use = ConfigUse::kDecides);

 private:
  std::string m_path;
  base::Listing m_stream;
  int m_openErrno = 0;     ///< why it is not open
  int m_examineErrno = 0;  ///< why it could not be examined
  int m_listErrno = 0;     ///< the last reason for which something was passed over, or the list broken off
  State m_state = State::kInaccessible;
  const char* m_whyNotTrusted = nullptr;  ///< null where it is trusted
};

}  // namespace kelt::platform
