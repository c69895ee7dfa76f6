#include "app/custom_properties.h"

#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

#include "platform/iconfiguration.h"

namespace kelt::app {
namespace {

constexpr const char* kFile = "/opt/Quorvane/orv/scratch/CustomProps.xml";
constexpr const char* kNotDeleted = "Error : Failed to delete file, /opt/Quorvane/orv/scratch/CustomProps.xml\n";
constexpr const char* kDeclaration = R"(<?xml version="1.0" encoding="UTF-8"?>)";

class CustomPropertiesTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch");
  }

  /// Writes one property alone.
  bool write(std::wstring value, int number) { return m_data.writeCustomProps(value, number); }

  /// Replaces the file by what is set; returns what was printed.
  std::string replace() {
    const tests::Output output = tests::outputOf([this] { replaceCustomProperties(m_data); });
    EXPECT_EQ(output.err, "");
    return output.out;
  }

  /// The document after its declaration, without the line ends between elements.
  static std::string elements() {
    std::string content = tests::contentOf(kFile);
    EXPECT_TRUE(content.starts_with(kDeclaration)) << content;
    content.erase(0, std::string(kDeclaration).size());
    std::erase(content, '\n');
    return content;
  }

  CommandLineData m_data;
};

TEST_F(CustomPropertiesTest, OnePropertyMakesANewFile) {
  EXPECT_TRUE(write(L"B", 2));
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps2 value="B"/></CustomProperties>)");
}

TEST_F(CustomPropertiesTest, TheFileIsTheAgentsWhateverWasConfiguredBefore) {
  auto& configuration = quorvane_com::orv::configuration::IConfiguration::GetConfiguration();
  tests::putFile("/tmp/conf/ZENTORAGENT/config.xml",
                 "<Configuration><FrameworkDataDirectory>/tmp</FrameworkDataDirectory></Configuration>");
  configuration.SetConfigurationDirectory(L"/tmp/conf");
  EXPECT_TRUE(write(L"A", 1));
  EXPECT_TRUE(tests::exists(kFile));
  EXPECT_FALSE(tests::exists("/tmp/CustomProps.xml"));
}

TEST_F(CustomPropertiesTest, AFurtherPropertyIsAddedAfterTheOthers) {
  EXPECT_TRUE(write(L"D", 4));
  EXPECT_TRUE(write(L"A", 1));
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps4 value="D"/><CustomProps1 value="A"/></CustomProperties>)");
}

TEST_F(CustomPropertiesTest, TextsAreKeptWhateverTheyHold) {
  EXPECT_TRUE(write(L"<a> & \"b\" 'c' \u00e9\u20ac", 1));
  const std::string written = elements();
  EXPECT_NE(written.find("&lt;a"), std::string::npos) << written;
  EXPECT_NE(written.find("&amp; &quot;b&quot; 'c' \xc3\xa9\xe2\x82\xac\"/>"), std::string::npos) << written;
}

TEST_F(CustomPropertiesTest, ATextThatXmlCannotHoldLeavesTheFile) {
  EXPECT_TRUE(write(L"A", 1));
  const std::string before = tests::contentOf(kFile);
  EXPECT_FALSE(write(L"\x01", 2));
  EXPECT_EQ(tests::contentOf(kFile), before);
}

TEST_F(CustomPropertiesTest, AFileThatDoesNotLoadIsLeftAsItIs) {
  tests::putFile(kFile, "<CustomProperties>");
  EXPECT_FALSE(write(L"A", 1));
  EXPECT_EQ(tests::contentOf(kFile), "<CustomProperties>");
  tests::putFile(kFile, "<Other/>");
  EXPECT_FALSE(write(L"A", 1));
  EXPECT_EQ(tests::contentOf(kFile), "<Other/>");
}

TEST_F(CustomPropertiesTest, WithoutADataDirectoryNothingIsWritten) {
  tests::putDirectory("/opt/Quorvane");
  tests::resetDevice();
  EXPECT_FALSE(write(L"A", 1));
  EXPECT_TRUE(tests::namesIn("/opt/Quorvane").empty());
}

TEST_F(CustomPropertiesTest, GoIntoTheDataDirectoryThatTheAgentNames) {
  tests::putFile("/etc/orv.d/ZENTORAGENT/config.xml",
                 "<Configuration><FrameworkDataDirectory>/opt/Quorvane/data</FrameworkDataDirectory></Configuration>");
  tests::putDirectory("/opt/Quorvane/data");
  EXPECT_TRUE(write(L"A", 1));
  EXPECT_TRUE(tests::exists("/opt/Quorvane/data/CustomProps.xml"));
  EXPECT_FALSE(tests::exists(kFile));
}

TEST_F(CustomPropertiesTest, ReplacingDropsWhatAnEarlierRunSet) {
  tests::putFile(kFile, R"(<CustomProperties><CustomProps1 value="old"/></CustomProperties>)");
  m_data.SetCustomProp2(L"B");
  EXPECT_EQ(replace(), "");
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps2 value="B"/></CustomProperties>)");
}

TEST_F(CustomPropertiesTest, ReplacingWritesInAscendingOrder) {
  tests::putFile(kFile, "whatever is here goes");
  m_data.SetCustomProp4(L"D");
  m_data.SetCustomProp1(L"A");
  EXPECT_EQ(replace(), "");
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps1 value="A"/><CustomProps4 value="D"/></CustomProperties>)");
}

TEST_F(CustomPropertiesTest, ReplacingAFileThatIsNotThereSaysSoAndWritesIt) {
  m_data.SetCustomProp3(L"X");
  EXPECT_EQ(replace(), kNotDeleted);
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps3 value="X"/></CustomProperties>)");
}

TEST_F(CustomPropertiesTest, ANewFileCanBeReadByAll) {
  const mode_t before = ::umask(077);
  m_data.SetCustomProp1(L"A");
  EXPECT_EQ(replace(), kNotDeleted);
  ::umask(before);
  EXPECT_EQ(tests::modeOf(kFile), 0644U);
}

TEST_F(CustomPropertiesTest, AReplacedFileKeepsOwnerGroupAndPermissions) {
  for (const mode_t mode : {0600U, 0640U, 0664U}) {
    tests::putFile(kFile, "<CustomProperties/>", mode);
    const bool bGiven = ::chown(kFile, 12, 34) == 0;  // where there is another user
    m_data.SetCustomProp1(L"A");
    m_data.SetCustomProp4(L"D");
    EXPECT_EQ(replace(), "");
    struct stat info {};
    ASSERT_EQ(::lstat(kFile, &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, mode);
    EXPECT_EQ(info.st_uid, bGiven ? 12U : 0U);
    EXPECT_EQ(info.st_gid, bGiven ? 34U : 0U);
    EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps1 value="A"/><CustomProps4 value="D"/></CustomProperties>)");
  }
}

TEST_F(CustomPropertiesTest, ALinkIsReplacedByAFileOfItsOwn) {
  tests::putFile("/tmp/victim", "untouched", 0600);
  ASSERT_EQ(::symlink("/tmp/victim", kFile), 0);
  m_data.SetCustomProp1(L"A");
  EXPECT_EQ(replace(), "");
  EXPECT_EQ(tests::contentOf("/tmp/victim"), "untouched");
  EXPECT_EQ(tests::modeOf(kFile), 0644U);
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps1 value="A"/></CustomProperties>)");
}

TEST_F(CustomPropertiesTest, WithoutAPropertyThatCanBeWrittenThereIsNoFile) {
  tests::putFile(kFile, "<CustomProperties/>");
  m_data.SetCustomProp2(L"\x01");
  EXPECT_EQ(replace(), "");
  EXPECT_EQ(tests::namesIn("/opt/Quorvane/orv/scratch"), std::vector<std::string>{});
}

TEST_F(CustomPropertiesTest, ReplacingGoesOnWhereTheFileCannotBeDeleted) {
  tests::putDirectory(kFile);
  m_data.SetCustomProp3(L"X");
  EXPECT_EQ(replace(), kNotDeleted);
  EXPECT_TRUE(tests::namesIn(kFile).empty());
}

TEST_F(CustomPropertiesTest, APropertyThatCannotBeWrittenLeavesTheOthers) {
  tests::putFile(kFile, "<CustomProperties/>");
  m_data.SetCustomProp1(L"A");
  m_data.SetCustomProp2(L"\x01");
  m_data.SetCustomProp3(L"C");
  EXPECT_EQ(replace(), "");
  EXPECT_EQ(elements(), R"(<CustomProperties><CustomProps1 value="A"/><CustomProps3 value="C"/></CustomProperties>)");
}

}  // namespace
}  // namespace kelt::app
