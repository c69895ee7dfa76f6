#include "app/command_line_data.h"

#include "base/secret.h"

namespace kelt::app {

/// A run that ends before the switch, at a check of the version for instance, has not taken the password out.
CommandLineData::~CommandLineData() {
  base::wipe(zentorPassword);
}

// Any text will do for these two: what fits is for the agent's configuration to say.
bool CommandLineData::SetCheckVersion(std::wstring& version) {
  checkVersion = version;
  return true;
}

std::wstring CommandLineData::GetCheckVersion() const {
  return checkVersion;
}

bool CommandLineData::SetConflictList(std::wstring& list) {
  conflictList = list;
  return true;
}

std::wstring CommandLineData::GetConflictList() const {
  return conflictList;
}

void CommandLineData::SetSiteListPath(std::wstring& path) {
  siteListPath = path;
}

void CommandLineData::SetLogFile(std::wstring& path) {
  logFile = path;
}

std::wstring CommandLineData::GetSiteListPath() const {
  return siteListPath;
}

std::wstring CommandLineData::GetZentorServer() const {
  return zentorServer;
}

void CommandLineData::SetZentorServer(const std::wstring& server) {
  zentorServer = server;
}

std::wstring CommandLineData::GetZentorUser() const {
  return zentorUser;
}

void CommandLineData::SetZentorUser(const std::wstring& user) {
  zentorUser = user;
}

// A copy, which is the caller's to wipe.
std::wstring CommandLineData::GetZentorPassword() const {
  return zentorPassword;
}

void CommandLineData::SetZentorPassword(const std::wstring& password) {
  // A longer one moves to new memory; what it leaves behind must hold nothing.
  base::wipe(zentorPassword);
  zentorPassword = password;
}

std::wstring CommandLineData::takeZentorPassword() {
  // Copied, not moved: a short text stands in the object itself, where moving would leave it.
  std::wstring taken = zentorPassword;
  base::wipe(zentorPassword);
  return taken;
}

std::wstring CommandLineData::GetLogFile() const {
  return logFile;
}

void CommandLineData::SetCustomProp1(const std::wstring& value) {
  customProp1 = value;
}

void CommandLineData::SetCustomProp2(const std::wstring& value) {
  customProp2 = value;
}

void CommandLineData::SetCustomProp3(const std::wstring& value) {
  customProp3 = value;
}

void CommandLineData::SetCustomProp4(const std::wstring& value) {
  customProp4 = value;
}

std::wstring& CommandLineData::GetCustomProp1() {
  return customProp1;
}

std::wstring& CommandLineData::GetCustomProp2() {
  return customProp2;
}

std::wstring& CommandLineData::GetCustomProp3() {
  return customProp3;
}

std::wstring& CommandLineData::GetCustomProp4() {
  return customProp4;
}

}  // namespace kelt::app
