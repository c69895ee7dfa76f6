#pragma once
// An agent that does nothing but keep account of what it was told.

#include <csignal>
#include <string>
#include <vector>

#include "helper/command_line_helper.h"

namespace kelt::tests {

/// Answers every call as told and records it by name.
class RecordingAgent : public helper::CommandLineHelper {
 public:
  /// The arguments of the last mode switch.
  struct Switch {
    bool managed = false;
    bool noStart = false;
    std::wstring sourceDir;
    std::wstring currentDir;
    bool pFlag = false;
    std::wstring logFile;
    bool fFlag = false;
    bool provision = false;
    std::wstring server;
    std::wstring user;
    std::wstring password;
    friend bool operator==(const Switch&, const Switch&) = default;
  };

  bool StartORVService() override { return record("start", bStarts); }
  bool StopORVService() override { return record("stop", bStops); }
  bool CheckVersion(std::wstring& version) override {
    checkedVersion = version;
    return record("version", bVersionFits);
  }
  bool CheckConflictList(std::wstring& conflictList) override {
    checkedConflicts = conflictList;
    return record("conflicts", bConflictFree);
  }
  int PrepareORV(bool managed, bool noStart, std::wstring sourceDir, std::wstring currentDir, bool pFlag,
                 std::wstring logFile, bool fFlag, bool provision, std::wstring server, std::wstring user,
                 std::wstring password) override {
    lastSwitch = {managed, noStart, sourceDir, currentDir, pFlag, logFile, fFlag, provision, server, user, password};
    record(managed ? "managed" : "unmanaged", true);
    return switchStatus;
  }
  bool ImportKeys(bool fromUpdateDir) override {
    if (signalDuringImport != 0) std::raise(signalDuringImport);
    return record(fromUpdateDir ? "import update" : "import", bImports);
  }

  bool bStarts = true;
  bool bStops = true;
  bool bVersionFits = true;
  bool bConflictFree = true;
  bool bImports = true;
  int switchStatus = 0;
  int signalDuringImport = 0;

  std::vector<std::string> calls;
  std::wstring checkedVersion;
  std::wstring checkedConflicts;
  Switch lastSwitch;

 private:
  bool record(const char* call, bool bAnswer) {
    calls.emplace_back(call);
    return bAnswer;
  }
};

}  // namespace kelt::tests
