#pragma once

#include <string>

namespace kelt::app {

/// What the user asked for: filled by the parser, read by the driver. Owns its strings and wipes the password when it
/// is replaced or taken, and when the record ends; a copy that is handed out is the caller's to wipe.
///
/// A setter replaces the value whole, an earlier one is gone. No setter fails; those with a result always return true.
class CommandLineData {
 public:
  CommandLineData() = default;
  CommandLineData(const CommandLineData&) = delete;
  CommandLineData& operator=(const CommandLineData&) = delete;
  ~CommandLineData();

  bool SetCheckVersion(std::wstring& version);
  [[nodiscard]] std::wstring GetCheckVersion() const;
  bool SetConflictList(std::wstring& list);
  [[nodiscard]] std::wstring GetConflictList() const;
  void SetSiteListPath(std::wstring& path);
  void SetLogFile(std::wstring& path);
  [[nodiscard]] std::wstring GetSiteListPath() const;
  [[nodiscard]] std::wstring GetZentorServer() const;
  void SetZentorServer(const std::wstring& server);
  [[nodiscard]] std::wstring GetZentorUser() const;
  void SetZentorUser(const std::wstring& user);
  [[nodiscard]] std::wstring GetZentorPassword() const;
  void SetZentorPassword(const std::wstring& password);
  /// Hands the password out and wipes it here, so that it does not stay in memory longer than somebody needs it.
  [[nodiscard]] std::wstring takeZentorPassword();
  [[nodiscard]] std::wstring GetLogFile() const;

  /// Adds one custom property, an element `CustomProps<number>` (1 to 4) with `value`, to the custom properties file in
  /// the agent's data directory, which is made when it is missing. Returns true when the file was written; otherwise it
  /// is as it was, as AnXml::writeFile leaves it. Defined in custom_properties.cpp.
  bool writeCustomProps(std::wstring& value, int number);

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
  bool startService = false;
  bool stopService = false;
  bool checkVersionGiven = false;  ///< set when the value is stored
  bool conflictListGiven = false;  ///< set when the value is stored
  bool managedMode = false;
  bool unmanagedMode = false;
  bool sourceDirGiven = false;  ///< set when the option is seen
  bool provision = false;
  bool pFlag = false;
  bool fFlag = false;
  bool logFileGiven = false;  ///< set when the option is seen
  bool noStart = false;
  bool showVersion = false;
  bool importKeysOnly = false;
  bool customPropsGiven = false;  ///< set when a value is stored
};

}  // namespace kelt::app
