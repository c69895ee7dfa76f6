#pragma once
// The agent on Linux.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "helper/command_line_helper.h"
#include "helper/file_id.h"
#include "helper/reserved_start.h"
#include "platform/astring.h"
#include "platform/config_directory.h"

namespace kelt::helper {

/// What CommandLineHelper promises, done to an agent that is installed on Linux. Members are defined in the folder
/// whose topic they are: discovery, commands, service, checks and conversion here, the mode switch in modes/.
class unixCommandLineHelper : public CommandLineHelper {
 public:
  unixCommandLineHelper() = default;

  /// A command that the system refuses to read anew (no descriptor, no memory, a disk that fails) is run as it was kept
  /// by reserveStart, with a line in the log. A file that is missing, malformed or not trusted names nothing to run.
  bool StartORVService() override;
  bool StopORVService() override;
  bool CheckVersion(std::wstring& version) override;
  bool CheckConflictList(std::wstring& conflictList) override;
  int PrepareORV(bool managed, bool noStart, std::wstring sourceDir, std::wstring currentDir, bool pFlag,
                 std::wstring logFile, bool fFlag, bool provision, std::wstring server, std::wstring user,
                 std::wstring password) override;

  std::unique_ptr<StartPromise> promiseStart() override;

  /// Keeps all or nothing: what the system refuses already here is no base for a start later on.
  void reserveStart() override;

  /// Whether the next stop is one that a start is to follow: it then leaves the marks of helper/owed_start.h.
  void setStartPromised(bool promised) { m_bStartPromised = promised; }

  /// Runs the load command of every other product, the second half of StartORVService. Says on the console why not,
  /// where the configuration directory cannot be used; where it is the system that refuses it, what reserveStart kept
  /// is run all the same.
  void loadPlugIns();

  /// Finds the agent's own configuration file: "config.xml" in the first directory, as readdir yields them, whose name
  /// contains "ZENTORAGENT". Leaves `path` as it was when there is none, or when the configuration directory is
  /// missing, not owned by root, or writable by others. The file itself need not be there.
  void GetORVPath(AString& path) const;

  /// The directory that holds the site list and key files to import, as typed; empty at first.
  void SetSourceDir(std::wstring sourceDir);
  [[nodiscard]] std::wstring GetSourceDir() const;

  /// Cuts a command line at white space outside double quotes and appends the parts to `parameters`. Quote characters
  /// stay in the parts.
  void splitStringToParameters(std::wstring commandLine, std::vector<std::string>& parameters) const;

  /// Runs a command line as a child, without a shell, found through PATH, and waits for it. The child has the
  /// environment that the tool was started with (base/environment.h) without LD_LIBRARY_PATH.
  /// Returns true whatever became of the child.
  bool ExecCmd(AString commandLine) const;

  /// Converts ISO-8859-1 to UTF-8. Returns false, with `utf8` unchanged, for a null pointer or when the system has no
  /// such conversion.
  bool ConvertToUtf8(const char* latin1, std::string& utf8) const;

  /// Rewrites a site list, always taken to be ISO-8859-1, in UTF-8, prints the outcome and logs it with the path.
  /// Returns whether it was rewritten. A failed read or conversion leaves the file untouched; so does a symbolic link
  /// in its place, as it leads to a file that nobody named.
  bool ConvertSiteListToUTF8(std::wstring path) const;

  /// Records in the agent's configuration file whether it is to run in FIPS mode: "1" for the modes 0 and 1, "0" for
  /// all others. Returns false, with a message, when the file is not found or does not load; a write that fails is not
  /// told, and leaves the old record.
  bool SaveFIPSInfoInRegistry(std::int32_t mode) const;

  /// Checks that the source directory holds every key file, each a regular file (or a link to one) of at most 64 KiB,
  /// prints a line per problem, and creates a missing legacy key file empty where its 2048-bit form is there. Opens
  /// none of them. Returns false when there was any problem.
  bool allKeyFilesPresent();

  /// Looks for site list and key files in `sourceDir`, in `currentDir` + "/" + `sourceDir`, and in `currentDir`, and
  /// switches to managed mode from the first complete one. Returns 1 when the switch succeeded, else 0: the switch
  /// failed, or, with a line on the console, no directory is complete.
  int PrepareORVForManagedMode(std::wstring sourceDir, std::wstring currentDir);

  /// The switch itself, from the directory set with SetSourceDir. Returns whether all of it succeeded. A site list that
  /// does not load, names no server's address or cannot be copied ends it before anything is changed; any later failure
  /// is told, and in the end the copied key files are deleted again, and the site list in the source directory.
  bool managedModeTask();

  /// Empties the installed site list of its servers and deletes the legacy key files and the cached server data.
  /// Returns false when the site list is missing or does not load, with nothing changed, or when something could not be
  /// deleted, each with a line on the console. A site list without servers is success; only what an interrupted switch
  /// left is then still deleted.
  bool PrepareORVForUnmanagedMode();

 private:
  /// Whether the source directory is the one into which provisioning put its files.
  [[nodiscard]] bool bFetchedHere() const;

  [[nodiscard]] PreparedCommand prepared(const std::wstring& commandLine) const;

  /// The steps of a start, in helper/service_control.cpp. `reserved` may be null; `bDespiteDirectory` is whether it
  /// counts where the configuration directory cannot be opened, too.
  [[nodiscard]] Result<PreparedCommand> readStartCommand() const;
  [[nodiscard]] Result<ReservedStart> readStart() const;
  [[nodiscard]] std::optional<ReservedStart> readStartInAdvance() const noexcept;
  void loadPlugInsAnewOr(ReservedStart* reserved, bool bDespiteDirectory) const noexcept;
  [[nodiscard]] bool loadPlugInsAnew(ReservedStart* reserved, bool bDespiteDirectory) const;
  void loadPlugIn(const Result<platform::ConfigFile>& file, ReservedPlugIn* kept) const;

  std::wstring m_versionString;
  std::wstring m_sourceDir;
  bool m_provisionFromServer = false;
  std::string m_server;
  std::string m_user;
  std::string m_password;
  std::int32_t m_provisionResult = 0;
  bool m_bStartPromised = false;
  std::optional<ReservedStart> m_reserved;
  std::optional<FileId> m_fetchedInto;  ///< the directory into which provisioning put its files
};

}  // namespace kelt::helper
