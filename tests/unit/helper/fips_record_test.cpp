#include "support/private_device.h"

#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

constexpr const char* kConfig = "/etc/orv.d/ZENTORAGENT/config.xml";
constexpr const char* kUnusable = "Unable to use the existing file\n";

class FipsRecordTest : public tests::PrivateDevice {
 protected:
  bool save(std::int32_t mode) {
    bool bResult = false;
    const tests::Output output = tests::outputOf([&] { bResult = m_agent.SaveFIPSInfoInRegistry(mode); });
    EXPECT_EQ(output.err, "");
    m_out = output.out;
    return bResult;
  }

  /// The bytes of a written document.
  static std::string written(const std::string& root) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + root + "\n";
  }

  unixCommandLineHelper m_agent;
  std::string m_out;
};

TEST_F(FipsRecordTest, AddsTheElementWhereItIsMissing) {
  tests::putFile(kConfig, "<Configuration><Version>5.7</Version></Configuration>");
  EXPECT_TRUE(save(2));
  EXPECT_EQ(tests::contentOf(kConfig),
            written("<Configuration><Version>5.7</Version><FIPSmode>0</FIPSmode></Configuration>"));
  EXPECT_EQ(m_out, "");
}

TEST_F(FipsRecordTest, ModesZeroAndOneAreRecordedAsOneAndAllOthersAsZero) {
  const std::pair<std::int32_t, const char*> records[] = {{0, "1"},  {1, "1"},         {2, "0"},
                                                          {-1, "0"}, {INT32_MAX, "0"}, {INT32_MIN, "0"}};
  for (const auto& [mode, record] : records) {
    tests::putFile(kConfig, "<Configuration><FIPSmode>?</FIPSmode></Configuration>");
    EXPECT_TRUE(save(mode));
    EXPECT_EQ(tests::contentOf(kConfig),
              written(std::string("<Configuration><FIPSmode>") + record + "</FIPSmode></Configuration>"))
        << mode;
  }
}

TEST_F(FipsRecordTest, ModeZeroTurnsARecordedZeroIntoOne) {
  tests::putFile(kConfig, "<Configuration><FIPSmode>0</FIPSmode></Configuration>");
  EXPECT_TRUE(save(0));
  EXPECT_EQ(tests::contentOf(kConfig), written("<Configuration><FIPSmode>1</FIPSmode></Configuration>"));
}

TEST_F(FipsRecordTest, SavingTwiceLeavesOneElement) {
  tests::putFile(kConfig, "<Configuration><A/></Configuration>");
  EXPECT_TRUE(save(1));
  EXPECT_TRUE(save(2));
  EXPECT_EQ(tests::contentOf(kConfig), written("<Configuration><A/><FIPSmode>0</FIPSmode></Configuration>"));
}

TEST_F(FipsRecordTest, EverythingElseStaysInItsPlace) {
  tests::putFile(kConfig,
                 "<Configuration a=\"1\"><!-- note --><FIPSmode>0</FIPSmode><B>\n x </B><FIPSmode>7</FIPSmode>"
                 "</Configuration>",
                 0640);
  EXPECT_TRUE(save(1));
  EXPECT_EQ(tests::contentOf(kConfig),
            written("<Configuration a=\"1\"><!-- note --><FIPSmode>1</FIPSmode><B>\n x </B><FIPSmode>7</FIPSmode>"
                    "</Configuration>"));
  EXPECT_EQ(tests::modeOf(kConfig), 0640U);
}

TEST_F(FipsRecordTest, WithoutAnAgentThereIsNothingToRecordIn) {
  EXPECT_FALSE(save(1));
  EXPECT_EQ(m_out, kUnusable);
  EXPECT_TRUE(tests::namesIn("/etc/orv.d").empty());
}

TEST_F(FipsRecordTest, AFileThatDoesNotLoadStaysAsItIs) {
  tests::putFile(kConfig, "<Configuration><Version>5.7</Configuration>");
  EXPECT_FALSE(save(1));
  EXPECT_EQ(m_out, kUnusable);
  EXPECT_EQ(tests::contentOf(kConfig), "<Configuration><Version>5.7</Configuration>");
}

TEST_F(FipsRecordTest, AFailedWriteIsNotReported) {
  tests::putFile(kConfig, "<Configuration/>");
  tests::mountReadOnly("/etc/orv.d");
  EXPECT_TRUE(save(1));
  EXPECT_EQ(m_out, "");
  EXPECT_EQ(tests::contentOf(kConfig), "<Configuration/>");
}

}  // namespace
}  // namespace kelt::helper
