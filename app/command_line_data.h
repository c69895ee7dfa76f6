#pragma once
// The record of what the command line asks for.

#include <string>

namespace kelt::app {

/// What the user asked for: filled by the parser, read by the driver. Owns its strings and wipes the password when it
/// is replaced or taken, and when the record ends; a copy that is handed out is the caller's to wipe.
///
/// Values are wide text, as widened from the command line; an option that was not given has the empty one. A setter
/// replaces the value whole, an earlier one is gone. No setter fails; those with a result always return true. Setters
/// and getters throw std::bad_alloc, with the record as it was but for a password, which is then wiped.
class CommandLineData {
 public:
  CommandLineData() = default;
  CommandLineData(const CommandLineData&) = delete;
  CommandLineData& operator=(const CommandLineData&) = delete;
  ~CommandLineData();

  /// The version that a hotfix requires, with the name of the hotfix after the last "-".
  bool SetCheckVersion(std::wstring& version);
  [[nodiscard]] std::wstring GetCheckVersion() const;
  /// Names of hotfixes, separated by commas.
  bool SetConflictList(std::wstring& list);
  [[nodiscard]] std::wstring GetConflictList() const;
  /// The source directory, as it was typed, and a log file that has no effect.
  void SetSiteListPath(std::wstring& path);
  void SetLogFile(std::wstring& path);
  [[nodiscard]] std::wstring GetSiteListPath() const;
  /// The management server, host or host:port, and as whom to ask it.
  [[nodiscard]] std::wstring GetZentorServer() const;
  void SetZentorServer(const std::wstring& server);
  [[nodiscard]] std::wstring GetZentorUser() const;
  void SetZentorUser(const std::wstring& user);
  [[nodiscard]] std::wstring GetZentorPassword() const;
  void SetZentorPassword(const std::wstring& password);
  /// Hands the password out and wipes it here, so that it does not stay in memory longer than somebody needs it. A
  /// second call gives the empty text.
  [[nodiscard]] std::wstring takeZentorPassword();
  [[nodiscard]] std::wstring GetLogFile() const;

  /// Adds one custom property, an element `CustomProps<number>` (1 to 4) with `value`, to the custom properties file in
  /// the agent's data directory, which is made when it is missing. Returns true when the file was written; otherwise it
  /// is as it was, as AnXml::writeFile leaves it. Defined in custom_properties.cpp.
  bool writeCustomProps(std::wstring& value, int number);

  /// The custom properties, each by its number.
  void SetCustomProp1(const std::wstring& value);
  void SetCustomProp2(const std::wstring& value);
  void SetCustomProp3(const std::wstring& value);
  void SetCustomProp4(const std::wstring& value);
  /// The member itself: a later SetCustomProp shows through the reference.
  std::wstring& GetCustomProp1();
  std::wstring& GetCustomProp2();
  std::wstring& GetCustomProp3();
  std::wstring& GetCustomProp4();

 private:
  std::wstring checkVersion;
  std::wstring conflictList;
  std::wstring siteListPath;  // the source directory
  std::wstring zentorServer;
  std::wstring zentorUser;
  std::wstring zentorPassword;
  std::wstring logFile;
  std::wstring customProp1;
  std::wstring customProp2;
  std::wstring customProp3;
  std::wstring customProp4;

 public:
  // What was asked for: true where the option was given.
  bool startService = false;
  bool stopService = false;
  bool checkVersionGiven = false;  ///< set when the value is stored
  bool conflictListGiven = false;  ///< set when the value is stored
  bool managedMode = false;
  bool unmanagedMode = false;
  bool sourceDirGiven = false;  ///< set when the option is seen
  bool provision = false;       ///< site list and keys come from the management server
  bool pFlag = false;           ///< has no effect, and neither has the next
  bool fFlag = false;
  bool logFileGiven = false;      ///< set when the option is seen; nobody reads it
  bool noStart = false;           ///< the agent stays stopped after the work
  bool showVersion = false;       ///< of this tool
  bool importKeysOnly = false;    ///< from the update directory
  bool customPropsGiven = false;  ///< set when a value is stored
};

}  // namespace kelt::app
