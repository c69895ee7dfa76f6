#include "app/command_line_data.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <new>
#include <type_traits>

namespace kelt::app {
namespace {

using Data = CommandLineData;

constexpr std::array kSwitches = {
    &Data::startService, &Data::stopService,    &Data::checkVersionGiven, &Data::conflictListGiven,
    &Data::managedMode,  &Data::unmanagedMode,  &Data::sourceDirGiven,    &Data::provision,
    &Data::pFlag,        &Data::fFlag,          &Data::logFileGiven,      &Data::noStart,
    &Data::showVersion,  &Data::importKeysOnly, &Data::customPropsGiven};

TEST(CommandLineData, IsEmptyWhenNew) {
  Data data;
  EXPECT_EQ(data.GetCheckVersion(), L"");
  EXPECT_EQ(data.GetConflictList(), L"");
  EXPECT_EQ(data.GetSiteListPath(), L"");
  EXPECT_EQ(data.GetZentorServer(), L"");
  EXPECT_EQ(data.GetZentorUser(), L"");
  EXPECT_EQ(data.GetZentorPassword(), L"");
  EXPECT_EQ(data.GetLogFile(), L"");
  EXPECT_EQ(data.GetCustomProp1(), L"");
  EXPECT_EQ(data.GetCustomProp2(), L"");
  EXPECT_EQ(data.GetCustomProp3(), L"");
  EXPECT_EQ(data.GetCustomProp4(), L"");
}

TEST(CommandLineData, HasFifteenSwitchesAllOffWhenNew) {
  static_assert(kSwitches.size() == 15);
  const Data data;
  for (std::size_t i = 0; i < kSwitches.size(); ++i)
    EXPECT_FALSE(data.*kSwitches[i]) << "switch " << i + 1;
}

TEST(CommandLineData, SettersReplaceTheirOwnValueOnly) {
  Data data;
  std::wstring first = L"a first value that is longer than the second";
  std::wstring second = L"second";
  std::wstring other = L"other";
  EXPECT_TRUE(data.SetCheckVersion(first));
  EXPECT_TRUE(data.SetCheckVersion(second));
  EXPECT_TRUE(data.SetConflictList(other));
  data.SetSiteListPath(first);
  data.SetSiteListPath(second);
  data.SetLogFile(first);
  data.SetLogFile(other);
  EXPECT_EQ(data.GetCheckVersion(), L"second");
  EXPECT_EQ(data.GetConflictList(), L"other");
  EXPECT_EQ(data.GetSiteListPath(), L"second");
  EXPECT_EQ(data.GetLogFile(), L"other");
  EXPECT_FALSE(data.checkVersionGiven) << "the flags are the parser's";
  EXPECT_FALSE(data.logFileGiven);
}

TEST(CommandLineData, KeepsServerUserAndPasswordApart) {
  Data data;
  data.SetZentorServer(L"host:8443");
  data.SetZentorUser(L"admin");
  data.SetZentorPassword(L"first");
  data.SetZentorPassword(L"a second password that needs more memory than the first had");
  EXPECT_EQ(data.GetZentorServer(), L"host:8443");
  EXPECT_EQ(data.GetZentorUser(), L"admin");
  EXPECT_EQ(data.GetZentorPassword(), L"a second password that needs more memory than the first had");
}

TEST(CommandLineData, GettersHandOutCopies) {
  Data data;
  data.SetZentorUser(L"admin");
  std::wstring copy = data.GetZentorUser();
  copy += L"changed";
  EXPECT_EQ(data.GetZentorUser(), L"admin");
}

TEST(CommandLineData, ALaterCustomPropertyShowsThroughTheReference) {
  Data data;
  const std::wstring& second = data.GetCustomProp2();
  data.SetCustomProp1(L"A");
  data.SetCustomProp2(L"B");
  data.SetCustomProp3(L"C");
  data.SetCustomProp4(L"D");
  EXPECT_EQ(second, L"B");
  EXPECT_EQ(&second, &data.GetCustomProp2());
  EXPECT_EQ(data.GetCustomProp1(), L"A");
  EXPECT_EQ(data.GetCustomProp3(), L"C");
  EXPECT_EQ(data.GetCustomProp4(), L"D");
}

TEST(CommandLineData, SettersOfTheParserTakeItsStringsByReference) {
  static_assert(std::is_same_v<decltype(&Data::SetCheckVersion), bool (Data::*)(std::wstring&)>);
  static_assert(std::is_same_v<decltype(&Data::SetConflictList), bool (Data::*)(std::wstring&)>);
  static_assert(std::is_same_v<decltype(&Data::SetSiteListPath), void (Data::*)(std::wstring&)>);
  static_assert(std::is_same_v<decltype(&Data::SetLogFile), void (Data::*)(std::wstring&)>);
  static_assert(std::is_same_v<decltype(&Data::writeCustomProps), bool (Data::*)(std::wstring&, int)>);
  static_assert(!std::is_polymorphic_v<Data>);
}

TEST(CommandLineData, WipesThePasswordWhenItIsTaken) {
  alignas(Data) std::array<unsigned char, sizeof(Data)> memory{};
  auto* data = new (memory.data()) Data();
  data->SetZentorPassword(L"\u00a5\u00a6");
  std::wstring taken = data->takeZentorPassword();
  EXPECT_EQ(data->GetZentorPassword(), L"");
  EXPECT_EQ(taken, L"\u00a5\u00a6");
  const auto* bytes = reinterpret_cast<const unsigned char*>(taken.data());
  EXPECT_EQ(std::search(memory.begin(), memory.end(), bytes, bytes + 2 * sizeof(wchar_t)), memory.end());
  data->~Data();
}

TEST(CommandLineData, WipesThePasswordWhenItEnds) {
  // Placed in memory of the test's own, so that what is left behind can be looked at. A short text stands in the record
  // itself.
  alignas(Data) std::array<unsigned char, sizeof(Data)> memory{};
  auto* data = new (memory.data()) Data();
  data->SetZentorPassword(L"\u00a5\u00a6");
  data->~Data();
  const std::wstring left(L"\u00a5\u00a6");
  const auto* bytes = reinterpret_cast<const unsigned char*>(left.data());
  EXPECT_EQ(std::search(memory.begin(), memory.end(), bytes, bytes + 2 * sizeof(wchar_t)), memory.end());
}

}  // namespace
}  // namespace kelt::app
