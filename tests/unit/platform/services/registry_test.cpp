#include "platform/registry.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "support/private_device.h"

namespace kelt::tests {
namespace {

constexpr const char* kFile = "/opt/Quorvane/orv/scratch/registry.ini";
constexpr const char* kKey = "SOFTWARE\\Tellwick\\Zentor\\Agent";
const std::string kHeader = "[SOFTWARE\\Tellwick\\Zentor\\Agent]\n";
const std::string kContent =
    "; kept\n" + kHeader + "PubKeyBuffSize=dword:00000003\nAgentPublicKey=hex:01,02,fe\nAgentGUID=text\n[Other]\nx=1\n";

class RegistryCalls : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putFile(kFile, kContent, 0640);
    ASSERT_EQ(InitializeRegistry(L"/opt/Quorvane/orv/scratch/registry.ini"), 0);
  }

  static void* open() {
    void* key = nullptr;
    EXPECT_EQ(RegOpenKey(HKEY_LOCAL_MACHINE, kKey, &key), 0);
    return key;
  }

  static int openStatus(void* root = HKEY_LOCAL_MACHINE, const char* path = kKey) {
    int unchanged = 0;
    void* key = &unchanged;
    const int status = RegOpenKey(root, path, &key);
    if (status != 0) {
      EXPECT_EQ(key, &unchanged);
    } else {
      EXPECT_EQ(RegCloseKey(key), 0);
    }
    return status;
  }
};

/// A query and what it changed.
struct Query {
  Query(void* key, const char* name, std::uint32_t wanted, std::uint32_t room) : type(wanted), size(room) {
    data.fill(0xAA);
    status = RegQueryValueEx(key, name, nullptr, &type, data.data(), &size);
  }
  std::array<unsigned char, 8> data{};
  std::uint32_t type;
  std::uint32_t size;
  int status;
};

TEST_F(RegistryCalls, RootIsTheGivenHandle) {
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(HKEY_LOCAL_MACHINE), 0x80000002U);
}

TEST_F(RegistryCalls, InitializeRefusesNoPathAndReadsNothing) {
  EXPECT_EQ(InitializeRegistry(nullptr), 13);
  EXPECT_EQ(InitializeRegistry(L""), 13);
  EXPECT_EQ(openStatus(), 0);
  EXPECT_EQ(InitializeRegistry(L"/opt/missing.ini"), 0);
  EXPECT_EQ(openStatus(), 2);
  EXPECT_FALSE(exists("/opt/missing.ini"));
}

TEST_F(RegistryCalls, OpenFailsForAMissingKeyFileOrRoot) {
  EXPECT_EQ(openStatus(HKEY_LOCAL_MACHINE, "SOFTWARE"), 2);
  EXPECT_EQ(openStatus(HKEY_LOCAL_MACHINE, ""), 2);
  EXPECT_EQ(openStatus(nullptr), 2);
  ASSERT_EQ(::unlink(kFile), 0);
  EXPECT_EQ(openStatus(), 2);
}

TEST_F(RegistryCalls, OpenFailsWithBadDataForNullsAndForWhatIsNoSuchFile) {
  void* key = nullptr;
  EXPECT_EQ(RegOpenKey(HKEY_LOCAL_MACHINE, nullptr, &key), 13);
  EXPECT_EQ(RegOpenKey(HKEY_LOCAL_MACHINE, kKey, nullptr), 13);
  putFile(kFile, kContent + std::string(1, '\0'));
  EXPECT_EQ(openStatus(), 13);
  ASSERT_EQ(::unlink(kFile), 0);
  putDirectory(kFile);
  EXPECT_EQ(openStatus(), 13);
}

TEST_F(RegistryCalls, OpenFailsWithBadDataForAFileOverTheLimit) {
  putFile(kFile, kContent);
  ASSERT_EQ(::truncate(kFile, 16 * 1024 * 1024 + 1), 0);
  EXPECT_EQ(openStatus(), 13);
}

TEST_F(RegistryCalls, OpenFailsWithAccessDeniedForAFileThatCannotBeRead) {
  ASSERT_EQ(::unlink(kFile), 0);
  ASSERT_EQ(::symlink("registry.ini", kFile), 0);
  EXPECT_EQ(openStatus(), 5);
}

TEST_F(RegistryCalls, QueryGivesANumber) {
  void* key = open();
  const Query query(key, "pubkeybuffsize", 5, 4);
  EXPECT_EQ(query.status, 0);
  EXPECT_EQ(query.type, 5U);
  EXPECT_EQ(query.size, 4U);
  std::uint32_t number = 0;
  std::memcpy(&number, query.data.data(), 4);
  EXPECT_EQ(number, 3U);
  EXPECT_EQ(query.data[4], 0xAA);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, QueryGivesBytesAndTheirLength) {
  void* key = open();
  for (const std::uint32_t room : {3U, 8U}) {
    const Query query(key, "AgentPublicKey", 6, room);
    EXPECT_EQ(query.status, 0);
    EXPECT_EQ(query.size, 3U);
    EXPECT_EQ(query.data, (std::array<unsigned char, 8>{1, 2, 0xFE, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
  }
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, QueryWithTooLittleRoomTellsTheSizeNeeded) {
  void* key = open();
  for (const std::uint32_t room : {0U, 2U}) {
    const Query query(key, "AgentPublicKey", 6, room);
    EXPECT_EQ(query.status, 234);
    EXPECT_EQ(query.size, 3U);
    EXPECT_EQ(query.type, 6U);
    EXPECT_EQ(query.data[0], 0xAA);
  }
  EXPECT_EQ(Query(key, "PubKeyBuffSize", 5, 3).status, 234);
  std::uint32_t type = 6;
  std::uint32_t size = 100;
  EXPECT_EQ(RegQueryValueEx(key, "AgentPublicKey", nullptr, &type, nullptr, &size), 234);
  EXPECT_EQ(size, 3U);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, QueryOfAnotherTypeIsBadDataAndTellsTheSize) {
  void* key = open();
  const Query number(key, "PubKeyBuffSize", 6, 8);
  EXPECT_EQ(number.status, 13);
  EXPECT_EQ(number.size, 4U);
  EXPECT_EQ(number.type, 6U);
  EXPECT_EQ(number.data[0], 0xAA);
  const Query bytes(key, "AgentPublicKey", 5, 4);
  EXPECT_EQ(bytes.status, 13);
  EXPECT_EQ(bytes.size, 3U);
  const Query neither(key, "AgentGUID", 6, 8);
  EXPECT_EQ(neither.status, 13);
  EXPECT_EQ(neither.size, 0U);
  EXPECT_EQ(neither.data[0], 0xAA);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, QueryOfAMissingValueIsNotFoundAndChangesNothing) {
  void* key = open();
  const Query query(key, "x", 6, 8);
  EXPECT_EQ(query.status, 2);
  EXPECT_EQ(query.size, 8U);
  EXPECT_EQ(query.data[0], 0xAA);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, QueryOfEmptyBytesNeedsNoRoom) {
  putFile(kFile, kHeader + "v=hex:\n");
  void* key = open();
  std::uint32_t type = 6;
  std::uint32_t size = 0;
  EXPECT_EQ(RegQueryValueEx(key, "v", nullptr, &type, nullptr, &size), 0);
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, QueryRefusesNullsAndTheReservedArgument) {
  void* key = open();
  std::uint32_t type = 5;
  std::uint32_t size = 4;
  std::uint32_t data = 7;
  EXPECT_EQ(RegQueryValueEx(key, nullptr, nullptr, &type, &data, &size), 13);
  EXPECT_EQ(RegQueryValueEx(key, "PubKeyBuffSize", &type, &type, &data, &size), 13);
  EXPECT_EQ(RegQueryValueEx(key, "PubKeyBuffSize", nullptr, nullptr, &data, &size), 13);
  EXPECT_EQ(RegQueryValueEx(key, "PubKeyBuffSize", nullptr, &type, &data, nullptr), 13);
  EXPECT_EQ(RegDeleteValue(key, nullptr), 13);
  EXPECT_EQ(data, 7U);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(RegistryCalls, DeletedValuesLeaveTheFileWhenTheKeyIsClosed) {
  void* key = open();
  EXPECT_EQ(RegDeleteValue(key, "AGENTPUBLICKEY"), 0);
  EXPECT_EQ(RegDeleteValue(key, "AgentPublicKey"), 2);
  EXPECT_EQ(RegDeleteValue(key, "missing"), 2);
  EXPECT_EQ(Query(key, "AgentPublicKey", 6, 8).status, 2);
  EXPECT_EQ(contentOf(kFile), kContent);
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_EQ(contentOf(kFile), "; kept\n" + kHeader + "PubKeyBuffSize=dword:00000003\nAgentGUID=text\n[Other]\nx=1\n");
  EXPECT_EQ(modeOf(kFile), 0640U);
  EXPECT_EQ(namesIn("/opt/Quorvane/orv/scratch"), std::vector<std::string>{"registry.ini"});
}

TEST_F(RegistryCalls, ClosingWithoutADeletionDoesNotTouchTheFile) {
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::stat(kFile, &before), 0);
  void* key = open();
  EXPECT_EQ(RegDeleteValue(key, "missing"), 2);
  EXPECT_EQ(RegCloseKey(key), 0);
  ASSERT_EQ(::stat(kFile, &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(RegistryCalls, WhatCameIntoTheFileSinceTheKeyWasOpenedStays) {
  void* key = open();
  EXPECT_EQ(RegDeleteValue(key, "AgentPublicKey"), 0);
  putFile(kFile, kContent + "[New]\ny=2\n");
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_EQ(contentOf(kFile),
            "; kept\n" + kHeader + "PubKeyBuffSize=dword:00000003\nAgentGUID=text\n[Other]\nx=1\n[New]\ny=2\n");
}

TEST_F(RegistryCalls, TwoOpenKeysDeleteWithoutUndoingEachOther) {
  void* first = open();
  void* second = open();
  EXPECT_NE(first, second);
  EXPECT_EQ(RegDeleteValue(first, "AgentPublicKey"), 0);
  EXPECT_EQ(RegDeleteValue(second, "PubKeyBuffSize"), 0);
  EXPECT_EQ(RegCloseKey(first), 0);
  EXPECT_EQ(RegCloseKey(second), 0);
  EXPECT_EQ(contentOf(kFile), "; kept\n" + kHeader + "AgentGUID=text\n[Other]\nx=1\n");
}

TEST_F(RegistryCalls, AnOpenKeyGoesOnWithItsFileAfterAnotherInitialize) {
  void* key = open();
  putFile("/opt/other.ini", kContent);
  ASSERT_EQ(InitializeRegistry(L"/opt/other.ini"), 0);
  EXPECT_EQ(RegDeleteValue(key, "AgentGUID"), 0);
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_EQ(contentOf("/opt/other.ini"), kContent);
  EXPECT_EQ(contentOf(kFile).find("AgentGUID"), std::string::npos);
}

TEST_F(RegistryCalls, AFileThatIsGoneWhenTheKeyIsClosedIsNoFailureAndIsNotMade) {
  void* key = open();
  EXPECT_EQ(RegDeleteValue(key, "AgentGUID"), 0);
  ASSERT_EQ(::unlink(kFile), 0);
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_FALSE(exists(kFile));
}

TEST_F(RegistryCalls, AFileThatCannotBeReplacedIsAccessDeniedAndStaysAsItWas) {
  void* key = open();
  EXPECT_EQ(RegDeleteValue(key, "AgentGUID"), 0);
  mountReadOnly("/opt/Quorvane");
  EXPECT_EQ(RegCloseKey(key), 5);
  EXPECT_EQ(contentOf(kFile), kContent);
  EXPECT_EQ(RegCloseKey(key), 13);
}

TEST_F(RegistryCalls, HandlesThatAreNotOpenAreBadData) {
  void* closed = open();
  EXPECT_EQ(RegCloseKey(closed), 0);
  int local = 0;
  for (void* key : {closed, static_cast<void*>(nullptr), static_cast<void*>(&local), HKEY_LOCAL_MACHINE}) {
    EXPECT_EQ(Query(key, "AgentGUID", 6, 8).status, 13);
    EXPECT_EQ(RegDeleteValue(key, "AgentGUID"), 13);
    EXPECT_EQ(RegCloseKey(key), 13);
  }
  EXPECT_NE(open(), closed);
  EXPECT_EQ(contentOf(kFile), kContent);
}

}  // namespace
}  // namespace kelt::tests
