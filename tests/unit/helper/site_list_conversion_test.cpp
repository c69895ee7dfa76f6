#include <cstdio>
#include <unistd.h>

#include "support/private_device.h"

#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

using tests::contentOf;
using tests::putFile;

constexpr const char* kConverted = "Successfully convert the sitelist.xml file to utf8\n";
constexpr const char* kNotConverted = "Error : Fail to convert the sitelist.xml file to utf8\n";

TEST(ConvertToUtf8, EncodesEveryByteAboveAsciiInTwo) {
  const unixCommandLineHelper agent;
  std::string utf8 = "before";
  EXPECT_TRUE(agent.ConvertToUtf8("a\xe9\xff\x80z", utf8));
  EXPECT_EQ(utf8, "a\xc3\xa9\xc3\xbf\xc2\x80z");
}

TEST(ConvertToUtf8, OfNothingIsNothing) {
  const unixCommandLineHelper agent;
  std::string utf8 = "before";
  EXPECT_TRUE(agent.ConvertToUtf8("", utf8));
  EXPECT_EQ(utf8, "");
}

TEST(ConvertToUtf8, RefusesANullPointer) {
  const unixCommandLineHelper agent;
  std::string utf8 = "before";
  EXPECT_FALSE(agent.ConvertToUtf8(nullptr, utf8));
  EXPECT_EQ(utf8, "before");
}

class SiteListConversionTest : public tests::PrivateDevice {
 protected:
  bool convert() {
    bool bResult = false;
    m_output = tests::outputOf([&] { bResult = m_agent.ConvertSiteListToUTF8(L"/tmp/SiteList.xml"); });
    EXPECT_EQ(m_output.err, "");
    return bResult;
  }

  unixCommandLineHelper m_agent;
  tests::Output m_output;
};

TEST_F(SiteListConversionTest, KeepsAsciiByteForByte) {
  const std::string ascii = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<ns:SiteLists>\t&amp;~</ns:SiteLists>\n";
  putFile("/tmp/SiteList.xml", ascii, 0640);
  EXPECT_TRUE(convert());
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), ascii);
  EXPECT_EQ(m_output.out, kConverted);
  EXPECT_EQ(tests::modeOf("/tmp/SiteList.xml"), 0640U);
  EXPECT_EQ(tests::namesIn("/tmp"), std::vector<std::string>{"SiteList.xml"});
}

TEST_F(SiteListConversionTest, EncodesLatin1) {
  putFile("/tmp/SiteList.xml", "<S Name=\"caf\xe9\"/>");
  EXPECT_TRUE(convert());
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), "<S Name=\"caf\xc3\xa9\"/>");
}

TEST_F(SiteListConversionTest, EncodesUtf8ASecondTime) {
  putFile("/tmp/SiteList.xml", "<S Name=\"caf\xc3\xa9\"/>");
  EXPECT_TRUE(convert());
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), "<S Name=\"caf\xc3\x83\xc2\xa9\"/>");
}

TEST_F(SiteListConversionTest, LeavesTheDeclarationAlone) {
  putFile("/tmp/SiteList.xml", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><S n=\"\xe9\"/>");
  EXPECT_TRUE(convert());
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><S n=\"\xc3\xa9\"/>");
}

TEST_F(SiteListConversionTest, CutsTheFileAtAZeroByte) {
  putFile("/tmp/SiteList.xml", std::string("<S/>\0<T/>", 9));
  EXPECT_TRUE(convert());
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), "<S/>");
  EXPECT_EQ(m_output.out, kConverted);
}

TEST_F(SiteListConversionTest, KeepsAnEmptyFile) {
  putFile("/tmp/SiteList.xml", "");
  EXPECT_TRUE(convert());
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), "");
  EXPECT_EQ(m_output.out, kConverted);
}

TEST_F(SiteListConversionTest, ReportsAMissingFile) {
  EXPECT_FALSE(convert());
  EXPECT_EQ(m_output.out, kNotConverted);
  EXPECT_FALSE(tests::exists("/tmp/SiteList.xml"));
}

TEST_F(SiteListConversionTest, ReportsADirectoryInItsPlace) {
  tests::putDirectory("/tmp/SiteList.xml");
  EXPECT_FALSE(convert());
  EXPECT_EQ(m_output.out, kNotConverted);
}

TEST_F(SiteListConversionTest, NeverWritesThroughALink) {
  const std::string target = std::string("#!program\0\x7f\xe9", 12);
  putFile("/tmp/target", target, 0755);
  ASSERT_EQ(::symlink("target", "/tmp/SiteList.xml"), 0);
  EXPECT_FALSE(convert());
  EXPECT_EQ(m_output.out, kNotConverted);
  EXPECT_EQ(contentOf("/tmp/target"), target);
  EXPECT_EQ(tests::namesIn("/tmp"), (std::vector<std::string>{"SiteList.xml", "target"}));
}

TEST_F(SiteListConversionTest, DoesNotMakeTheTargetOfADanglingLink) {
  ASSERT_EQ(::symlink("target", "/tmp/SiteList.xml"), 0);
  EXPECT_FALSE(convert());
  EXPECT_EQ(m_output.out, kNotConverted);
  EXPECT_EQ(tests::namesIn("/tmp"), std::vector<std::string>{"SiteList.xml"});
}

TEST_F(SiteListConversionTest, IsLoggedWithThePath) {
  tests::putDirectory("/opt/Quorvane/orv/scratch");
  putFile("/tmp/SiteList.xml", "<S/>");
  EXPECT_TRUE(convert());
  ASSERT_EQ(::rename("/tmp/SiteList.xml", "/tmp/other"), 0);
  EXPECT_FALSE(convert());
  ASSERT_EQ(::symlink("other", "/tmp/SiteList.xml"), 0);
  EXPECT_FALSE(convert());
  const std::string log = contentOf("/opt/Quorvane/orv/scratch/logs/keltcfg.log");
  EXPECT_NE(log.find("\tkeltcfg\tConverted to UTF-8: /tmp/SiteList.xml\n"), std::string::npos) << log;
  const std::string refused = "\tkeltcfg\t/tmp/SiteList.xml: not converted to UTF-8: ";
  EXPECT_NE(log.find(refused + "it cannot be read\n"), std::string::npos) << log;
  EXPECT_NE(log.find(refused + "it is a symbolic link\n"), std::string::npos) << log;
}

TEST_F(SiteListConversionTest, LeavesAFileThatCannotBeWritten) {
  putFile("/tmp/SiteList.xml", "<S Name=\"caf\xe9\"/>");
  tests::mountReadOnly("/tmp");
  EXPECT_FALSE(convert());
  EXPECT_EQ(m_output.out, kNotConverted);
  EXPECT_EQ(contentOf("/tmp/SiteList.xml"), "<S Name=\"caf\xe9\"/>");
}

TEST_F(SiteListConversionTest, AFullDiskLeavesTheFile) {
  tests::mountSmall("/tmp/full", 16384);
  const std::string content(6000, '\xe9');
  putFile("/tmp/full/SiteList.xml", content);
  bool bResult = true;
  const tests::Output output =
      tests::outputOf([&] { bResult = m_agent.ConvertSiteListToUTF8(L"/tmp/full/SiteList.xml"); });
  EXPECT_FALSE(bResult);
  EXPECT_EQ(output.out, kNotConverted);
  EXPECT_EQ(contentOf("/tmp/full/SiteList.xml"), content);
  EXPECT_EQ(tests::namesIn("/tmp/full"), std::vector<std::string>{"SiteList.xml"});
}

}  // namespace
}  // namespace kelt::helper
