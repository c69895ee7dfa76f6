#include "app/parser.h"

#include "support/private_device.h"
#include "unit/app/arguments.h"

namespace kelt::app {
namespace {

constexpr const char* kMissing = "Missing option argument.\n";
constexpr const char* kUnsupported = "Unsupported option. Use keltconfig -h or ? or --help for help.\n";

class ParserTest : public ::testing::Test {
 protected:
  /// Parses and keeps what was printed in m_out; nothing goes to standard error.
  bool parse(std::initializer_list<const char*> texts) {
    tests::Arguments arguments(texts);
    bool bResult = false;
    const tests::Output output = tests::outputOf([&] { bResult = ParseCommandLineArg(arguments.get(), m_data); });
    EXPECT_EQ(output.err, "");
    m_out = output.out;
    return bResult;
  }

  /// Whether the help was printed, followed by `rest`.
  [[nodiscard]] bool bHelpThen(const std::string& rest) const {
    const std::string start = "keltconfig    [-m -d path [ -z ";
    const std::string end = "     -CustomProps4   Pass custom property value Ex:-CustomProps4 \"Prop 4\" \n" + rest;
    return m_out.starts_with(start) && m_out.ends_with(end);
  }

  CommandLineData m_data;
  std::string m_out;
};

TEST_F(ParserTest, RefusesAnEmptyCommandLine) {
  EXPECT_FALSE(parse({}));
  EXPECT_EQ(m_out, "Invalid command line : No options specified. Use keltconfig -h or ? or --help for help \n");
}

TEST_F(ParserTest, EverySwitchSetsItsFlagAndNoOther) {
  const std::pair<const char*, bool CommandLineData::*> switches[] = {{"-start", &CommandLineData::startService},
                                                                      {"-stop", &CommandLineData::stopService},
                                                                      {"-m", &CommandLineData::managedMode},
                                                                      {"-u", &CommandLineData::unmanagedMode},
                                                                      {"-p", &CommandLineData::pFlag},
                                                                      {"-f", &CommandLineData::fFlag},
                                                                      {"-z", &CommandLineData::provision},
                                                                      {"-k", &CommandLineData::importKeysOnly},
                                                                      {"-nostart", &CommandLineData::noStart},
                                                                      {"-version", &CommandLineData::showVersion}};
  for (const auto& [name, flag] : switches) {
    CommandLineData data;
    tests::Arguments arguments({name});
    EXPECT_TRUE(ParseCommandLineArg(arguments.get(), data)) << name;
    for (const auto& [otherName, other] : switches)
      EXPECT_EQ(data.*other, other == flag) << name << " " << otherName;
    EXPECT_FALSE(data.sourceDirGiven || data.logFileGiven || data.customPropsGiven || data.checkVersionGiven ||
                 data.conflictListGiven);
  }
}

TEST_F(ParserTest, StoresTheValueOfEveryOptionThatTakesOne) {
  ASSERT_TRUE(parse({"-checkHF", "5.7-HF1", "-conflictList", "A,B", "-d", "/tmp", "-e", "host:1", "-U", "admin", "-P",
                     "secret", "-l", "log.txt"}));
  EXPECT_EQ(m_out, "");
  EXPECT_EQ(m_data.GetCheckVersion(), L"5.7-HF1");
  EXPECT_EQ(m_data.GetConflictList(), L"A,B");
  EXPECT_EQ(m_data.GetSiteListPath(), L"/tmp");
  EXPECT_EQ(m_data.GetZentorServer(), L"host:1");
  EXPECT_EQ(m_data.GetZentorUser(), L"admin");
  EXPECT_EQ(m_data.GetZentorPassword(), L"secret");
  EXPECT_EQ(m_data.GetLogFile(), L"log.txt");
  EXPECT_TRUE(m_data.checkVersionGiven && m_data.conflictListGiven && m_data.sourceDirGiven && m_data.logFileGiven);
  EXPECT_FALSE(m_data.customPropsGiven);
}

TEST_F(ParserTest, StoresEachCustomProperty) {
  ASSERT_TRUE(parse({"-CustomProps4", "D", "-CustomProps1", "A", "-CustomProps3", "C", "-CustomProps2", "B"}));
  EXPECT_TRUE(m_data.customPropsGiven);
  EXPECT_EQ(m_data.GetCustomProp1(), L"A");
  EXPECT_EQ(m_data.GetCustomProp2(), L"B");
  EXPECT_EQ(m_data.GetCustomProp3(), L"C");
  EXPECT_EQ(m_data.GetCustomProp4(), L"D");
}

TEST_F(ParserTest, ALogFileIsStoredWithItsFlag) {
  ASSERT_TRUE(parse({"-l", "file"}));
  EXPECT_EQ(m_data.GetLogFile(), L"file");
  EXPECT_TRUE(m_data.logFileGiven);
}

TEST_F(ParserTest, ARepeatedOptionKeepsItsLastValue) {
  ASSERT_TRUE(parse({"-checkHF", "1", "-checkHF", "2", "-P", "one", "-P", "two"}));
  EXPECT_EQ(m_data.GetCheckVersion(), L"2");
  EXPECT_TRUE(m_data.checkVersionGiven);
  EXPECT_EQ(m_data.GetZentorPassword(), L"two");
}

TEST_F(ParserTest, FlagsThatBelongToAValueNeedTheValue) {
  EXPECT_FALSE(parse({"-checkHF"}));
  EXPECT_FALSE(parse({"-conflictList"}));
  EXPECT_FALSE(parse({"-CustomProps1"}));
  EXPECT_FALSE(m_data.checkVersionGiven || m_data.conflictListGiven || m_data.customPropsGiven);
}

TEST_F(ParserTest, FlagsThatBelongToTheOptionDoNotNeedTheValue) {
  EXPECT_FALSE(parse({"-d"}));
  EXPECT_FALSE(parse({"-l"}));
  EXPECT_TRUE(m_data.sourceDirGiven && m_data.logFileGiven);
}

TEST_F(ParserTest, TakesBytesAsLatin1) {
  ASSERT_TRUE(parse({"-d", "\xe9\xc3\xa9"}));
  EXPECT_EQ(m_data.GetSiteListPath(), L"\u00e9\u00c3\u00a9");
}

TEST_F(ParserTest, ShowsTheHelpForEachOfItsSpellings) {
  for (const char* spelling : {"?", "-h", "--help"}) {
    EXPECT_FALSE(parse({spelling, "-m"})) << spelling;
    EXPECT_TRUE(bHelpThen("")) << spelling;
    EXPECT_FALSE(m_data.managedMode) << "what follows " << spelling << " is not looked at";
  }
}

TEST_F(ParserTest, RefusesWhatIsNotExactlyAnOption) {
  for (const char* argument : {"-?", "-help", "-M", "-mu", "-", "--h", "-d=/tmp", "-CustomProps5", "-versio", "-?x"}) {
    EXPECT_FALSE(parse({argument, "-start"})) << argument;
    EXPECT_EQ(m_out, kUnsupported) << argument;
    EXPECT_FALSE(m_data.startService) << "what follows " << argument << " is not looked at";
  }
  EXPECT_FALSE(m_data.managedMode || m_data.unmanagedMode || m_data.sourceDirGiven || m_data.showVersion);
}

TEST_F(ParserTest, MissesAValueAtTheEnd) {
  EXPECT_FALSE(parse({"-m", "-d"}));
  EXPECT_EQ(m_out, kMissing);
  EXPECT_TRUE(m_data.managedMode);
}

TEST_F(ParserTest, AnOptionInPlaceOfAValueIsConsumed) {
  EXPECT_FALSE(parse({"-d", "-m", "-u"}));
  EXPECT_EQ(m_out, kMissing);
  EXPECT_FALSE(m_data.managedMode);
  EXPECT_TRUE(m_data.unmanagedMode) << "parsing goes on";
  EXPECT_EQ(m_data.GetSiteListPath(), L"");
}

TEST_F(ParserTest, AskingForHelpInPlaceOfAValueMissesTheValueToo) {
  EXPECT_FALSE(parse({"-d", "?"}));
  EXPECT_TRUE(bHelpThen("Missing option argument.\n")) << m_out;
}

TEST_F(ParserTest, ReportsAnArgumentWithoutAnOptionAndGoesOn) {
  EXPECT_FALSE(parse({"foo", "-m", "b\xe4r"}));
  EXPECT_EQ(m_out, "Argument foo passed without a valid option\nArgument b\xc3\xa4r passed without a valid option\n");
  EXPECT_TRUE(m_data.managedMode);
}

TEST_F(ParserTest, ASwitchTakesNoValue) {
  EXPECT_FALSE(parse({"-z", "host"}));
  EXPECT_EQ(m_out, "Argument host passed without a valid option\n");
  EXPECT_TRUE(m_data.provision);
}

TEST_F(ParserTest, AnEmptyArgumentEndsTheCommandLine) {
  EXPECT_TRUE(parse({"-m", "", "-u"}));
  EXPECT_EQ(m_out, "");
  EXPECT_TRUE(m_data.managedMode);
  EXPECT_FALSE(m_data.unmanagedMode);
}

TEST_F(ParserTest, AnEmptyFirstArgumentIsACommandLineWithoutOptions) {
  EXPECT_TRUE(parse({"", "-u"}));
  EXPECT_EQ(m_out, "");
  EXPECT_FALSE(m_data.unmanagedMode);
}

TEST_F(ParserTest, AnEmptyValueIsAMissingOne) {
  EXPECT_FALSE(parse({"-CustomProps2", ""}));
  EXPECT_EQ(m_out, kMissing);
  EXPECT_FALSE(m_data.customPropsGiven);
  EXPECT_EQ(m_data.GetCustomProp2(), L"");
}

TEST_F(ParserTest, CombinationsAreNotItsBusiness) {
  EXPECT_TRUE(parse({"-m", "-u", "-start", "-stop"}));
  EXPECT_TRUE(m_data.managedMode && m_data.unmanagedMode && m_data.startService && m_data.stopService);
}

TEST_F(ParserTest, OverwritesAPasswordInTheArguments) {
  tests::Arguments arguments({"-U", "admin", "-P", "secret", "-z", "-P", "other"});
  EXPECT_TRUE(ParseCommandLineArg(arguments.get(), m_data));
  EXPECT_EQ(arguments[3], std::string(6, '\0'));
  EXPECT_EQ(arguments[6], std::string(5, '\0'));
  EXPECT_EQ(arguments[1], "admin") << "nothing else is touched";
  EXPECT_EQ(arguments[4], "-z");
  EXPECT_EQ(m_data.GetZentorPassword(), L"other");
  EXPECT_TRUE(m_data.provision) << "parsing goes on after it";
}

TEST_F(ParserTest, OverwritesAPasswordThatIsNotReadAnyMore) {
  tests::Arguments arguments({"-z", "", "-P", "secret", "-d", "-P"});
  EXPECT_TRUE(ParseCommandLineArg(arguments.get(), m_data));
  EXPECT_EQ(arguments[3], std::string(6, '\0'));
  EXPECT_EQ(arguments[4], "-d") << "nothing else is touched";
  EXPECT_EQ(m_data.GetZentorPassword(), L"");
  EXPECT_FALSE(m_data.sourceDirGiven);
}

TEST_F(ParserTest, OverwritesAPasswordThatItRefuses) {
  tests::Arguments arguments({"-P", "-secret"});
  tests::Output output = tests::outputOf([&] { EXPECT_FALSE(ParseCommandLineArg(arguments.get(), m_data)); });
  EXPECT_EQ(output.out, kMissing);
  EXPECT_EQ(arguments[1], std::string(7, '\0'));
  EXPECT_EQ(m_data.GetZentorPassword(), L"");
}

TEST(Utf8ToUnicode, DecodesUtf8AndKeepsOtherBytes) {
  EXPECT_EQ(utf8_to_unicode("/tmp/\xc3\xa9"), L"/tmp/\u00e9");
  const std::wstring kept = utf8_to_unicode("\xe9");
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(static_cast<unsigned long>(kept[0]), 0xdce9UL);
}

}  // namespace
}  // namespace kelt::app
