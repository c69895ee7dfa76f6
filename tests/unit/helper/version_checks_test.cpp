#include <algorithm>
#include <sys/stat.h>
#include <time.h>

#include "support/private_device.h"

#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

constexpr const char* kConfig = "/etc/orv.d/ZENTORAGENT/config.xml";
constexpr const char* kProper = "\n Proper Version \n";
constexpr const char* kImproper = "\n Improper Version \n";
constexpr const char* kExists = "\n Hotfix already Exists \n";
constexpr const char* kFound = "\n reg and conflict match \n\n Found \n";
constexpr const char* kNotFound = "\n Not Found \n";

class VersionChecksTest : public tests::PrivateDevice {
 protected:
  static void putConfig(const std::string& elements) {
    tests::putFile(kConfig, "<Configuration>" + elements + "</Configuration>");
  }

  bool checkVersion(std::wstring version) {
    return runCheck([&] { return m_agent.CheckVersion(version); });
  }

  bool checkConflicts(std::wstring list) {
    return runCheck([&] { return m_agent.CheckConflictList(list); });
  }

  unixCommandLineHelper m_agent;
  std::string m_out;

 private:
  template <typename Check>
  bool runCheck(Check check) {
    bool bResult = false;
    const tests::Output output = tests::outputOf([&] { bResult = check(); });
    EXPECT_EQ(output.err, "");
    m_out = output.out;
    return bResult;
  }
};

TEST_F(VersionChecksTest, TheVersionBeforeTheHyphenMustBeTheInstalledOne) {
  putConfig("<Version>5.7.1.10</Version>");
  EXPECT_TRUE(checkVersion(L"5.7.1.10-HF1"));
  EXPECT_EQ(m_out, kProper);
  EXPECT_FALSE(checkVersion(L"5.7.1.1-HF1"));
  EXPECT_EQ(m_out, kImproper);
  EXPECT_FALSE(checkVersion(L"5.7.1.100-HF1"));
  EXPECT_EQ(m_out, kImproper);
}

TEST_F(VersionChecksTest, AnArgumentWithoutAHyphenIsComparedWhole) {
  putConfig("<Version>5.7</Version>");
  EXPECT_TRUE(checkVersion(L"5.7"));
  EXPECT_FALSE(checkVersion(L"5.7HF1"));
}

TEST_F(VersionChecksTest, OfTwoHyphensTheSecondCounts) {
  putConfig("<Version>5.7-beta</Version>");
  EXPECT_TRUE(checkVersion(L"5.7-beta-HF1"));
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
}

TEST_F(VersionChecksTest, AnEmptyVersionMatchesAnArgumentThatBeginsWithAHyphen) {
  putConfig("<Version></Version>");
  EXPECT_TRUE(checkVersion(L"-HF1"));
  EXPECT_EQ(m_out, kProper);
}

TEST_F(VersionChecksTest, AMissingVersionReadsAsAnEmptyOne) {
  putConfig("");
  EXPECT_TRUE(checkVersion(L"-HF1"));
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
}

TEST_F(VersionChecksTest, VersionsAreComparedExactly) {
  putConfig("<Version>5.7a</Version>");
  EXPECT_FALSE(checkVersion(L"5.7A-HF1"));
  EXPECT_FALSE(checkVersion(L" 5.7a-HF1"));
}

TEST_F(VersionChecksTest, AVersionOfMoreThan33CharactersIsImproper) {
  putConfig("<Version>" + std::string(33, '1') + "</Version>");
  EXPECT_TRUE(checkVersion(std::wstring(33, L'1') + L"-HF1"));
  EXPECT_FALSE(checkVersion(std::wstring(34, L'1') + L"-HF1"));
  putConfig("<Version>" + std::string(34, '1') + "</Version>");
  EXPECT_FALSE(checkVersion(std::wstring(34, L'1') + L"-HF1"));
  EXPECT_EQ(m_out, kImproper);
  EXPECT_FALSE(checkVersion(std::wstring(100000, L'1')));
  EXPECT_EQ(m_out, kImproper);
}

TEST_F(VersionChecksTest, WithoutALoadableConfigurationBothFailSilently) {
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
  EXPECT_EQ(m_out, "");
  EXPECT_FALSE(checkConflicts(L"A"));
  EXPECT_EQ(m_out, "");
  tests::putFile(kConfig, "<Other><Version>5.7</Version></Other>");
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
  EXPECT_EQ(m_out, "");
}

TEST_F(VersionChecksTest, TheFileIsAskedWhoeverMayWriteToItButTheDirectoryIsJudged) {
  putConfig("<Version>5.7</Version><HotFixVersions>A</HotFixVersions>");
  ASSERT_EQ(::chmod(kConfig, 0666), 0);
  EXPECT_TRUE(checkVersion(L"5.7-HF1"));
  EXPECT_TRUE(checkConflicts(L"B"));
  ASSERT_EQ(::chmod("/etc/orv.d", 0777), 0);
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
  EXPECT_FALSE(checkConflicts(L"B"));
  EXPECT_EQ(m_out, "");
}

TEST_F(VersionChecksTest, ConflictsAreLookedUpAmongTheInstalledHotfixes) {
  putConfig("<HotFixVersions>A,B,C</HotFixVersions>");
  EXPECT_FALSE(checkConflicts(L"X,C,A"));
  EXPECT_EQ(m_out, kFound) << "said once, whatever the number of matches";
  EXPECT_TRUE(checkConflicts(L"X,Y"));
  EXPECT_EQ(m_out, kNotFound);
}

TEST_F(VersionChecksTest, NamesAreComparedWholeAndWithTheirBlanksAndCase) {
  putConfig("<HotFixVersions>A, B,Cd</HotFixVersions>");
  EXPECT_TRUE(checkConflicts(L"B"));
  EXPECT_TRUE(checkConflicts(L"C,cd,Cde"));
  EXPECT_FALSE(checkConflicts(L" B"));
}

TEST_F(VersionChecksTest, EmptyNamesAreNoNames) {
  putConfig("<HotFixVersions>,,A,,B,</HotFixVersions>");
  EXPECT_TRUE(checkConflicts(L",,"));
  EXPECT_EQ(m_out, kNotFound);
  EXPECT_FALSE(checkConflicts(L",,B,"));
}

TEST_F(VersionChecksTest, AnEmptyListConflictsWithNothing) {
  putConfig("<HotFixVersions>A</HotFixVersions>");
  EXPECT_TRUE(checkConflicts(L""));
  EXPECT_EQ(m_out, kNotFound);
}

TEST_F(VersionChecksTest, WithoutInstalledHotfixesNothingConflicts) {
  putConfig("<Version>5.7</Version>");
  EXPECT_TRUE(checkConflicts(L"A"));
  EXPECT_EQ(m_out, kNotFound);
}

TEST_F(VersionChecksTest, AnInstalledHotfixIsReportedBeforeAnyConflict) {
  putConfig("<Version>5.7</Version><HotFixVersions>A,5.7-HF1</HotFixVersions>");
  EXPECT_TRUE(checkVersion(L"5.7-HF1"));
  EXPECT_FALSE(checkConflicts(L"A"));
  EXPECT_EQ(m_out, kExists) << "and the list is not looked at";
}

TEST_F(VersionChecksTest, TheHotfixIsRememberedAlsoWhenItsVersionIsImproper) {
  putConfig("<Version>5.8</Version><HotFixVersions>5.7-HF1</HotFixVersions>");
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
  EXPECT_FALSE(checkConflicts(L""));
  EXPECT_EQ(m_out, kExists);
}

TEST_F(VersionChecksTest, TheHotfixIsRememberedAlsoWhenTheConfigurationDidNotLoad) {
  EXPECT_FALSE(checkVersion(L"5.7-HF1"));
  putConfig("<HotFixVersions>5.7-HF1</HotFixVersions>");
  EXPECT_FALSE(checkConflicts(L""));
  EXPECT_EQ(m_out, kExists);
}

TEST_F(VersionChecksTest, WithoutAVersionCheckNoHotfixIsTheOneAskedFor) {
  putConfig("<HotFixVersions>,A,</HotFixVersions>");
  EXPECT_TRUE(checkConflicts(L"B"));
  EXPECT_EQ(m_out, kNotFound);
}

TEST_F(VersionChecksTest, OnlyTheFirstElementOfANameCounts) {
  putConfig(
      "<Version>1</Version><Version>2</Version><HotFixVersions>A</HotFixVersions><HotFixVersions>B</HotFixVersions>");
  EXPECT_FALSE(checkVersion(L"2-HF"));
  EXPECT_TRUE(checkConflicts(L"B"));
  EXPECT_FALSE(checkConflicts(L"A"));
}

TEST_F(VersionChecksTest, LeaveTheConfigurationAsItIs) {
  putConfig("<Version>1</Version><HotFixVersions>A</HotFixVersions>");
  const std::string before = tests::contentOf(kConfig);
  (void)checkVersion(L"1-HF");
  (void)checkConflicts(L"A");
  EXPECT_EQ(tests::contentOf(kConfig), before);
}

/// Names that are alike up to their end, so that each comparison is a long one.
template <typename String>
String namesFrom(int first, int count, const String& prefix) {
  String names;
  for (int i = first; i < first + count; ++i) {
    const std::string number = std::to_string(1000000 + i);
    names += prefix;
    names.append(number.begin(), number.end());
    names += static_cast<typename String::value_type>(',');
  }
  return names;
}

double processorSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

TEST_F(VersionChecksTest, LongListsTakeTimeInProportionToTheirLength) {
  const auto secondsFor = [&](int count) {
    putConfig("<HotFixVersions>" + namesFrom<std::string>(0, count, "5.7.1.10-HF") + "</HotFixVersions>");
    const std::wstring conflicts = namesFrom<std::wstring>(count, count, L"5.7.1.10-HF");
    double best = 1e9;
    for (int i = 0; i < 3; ++i) {
      const double start = processorSeconds();
      EXPECT_TRUE(checkConflicts(conflicts));
      best = std::min(best, processorSeconds() - start);
    }
    return best;
  };
  const double few = secondsFor(1000);
  const double many = secondsFor(10000);
  EXPECT_LT(many, 40 * few) << "ten times the names: in proportion it is ten times as long, in pairs a hundred times";
}

TEST_F(VersionChecksTest, FindsAMatchAtTheEndOfLongLists) {
  putConfig("<HotFixVersions>" + namesFrom<std::string>(0, 10000, "HF") + "</HotFixVersions>");
  EXPECT_FALSE(checkConflicts(namesFrom<std::wstring>(9999, 10000, L"HF")));
  EXPECT_EQ(m_out, kFound);
}

}  // namespace
}  // namespace kelt::helper
