#include "app/console_log.h"

#include "support/private_device.h"

namespace kelt::app {
namespace {

using tests::Output;
using tests::outputOf;

TEST(ConsoleLog, PrintsInformationToStandardOutput) {
  const Output output = outputOf([] { log_single_funci(L"crypt", L"started \u00e9"); });
  EXPECT_EQ(output.out, "keltconfig\t[I] started \xc3\xa9\n");
  EXPECT_EQ(output.err, "");
}

TEST(ConsoleLog, PrintsErrorsToStandardError) {
  const Output output = outputOf([] { log_single_funce(L"crypt", L"not started"); });
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "keltconfig\t[E] not started\n");
}

TEST(ConsoleLog, PrintsALevelledMessageWithoutItsLevel) {
  const Output output = outputOf([] { log_single_func(7, L"plain"); });
  EXPECT_EQ(output.out, "keltconfig\tplain\n");
  EXPECT_EQ(output.err, "");
}

TEST(ConsoleLog, TakesANullMessageForAnEmptyOne) {
  const Output output = outputOf([] {
    log_single_funci(nullptr, nullptr);
    log_single_funce(nullptr, nullptr);
    log_single_func(0, nullptr);
  });
  EXPECT_EQ(output.out, "keltconfig\t[I] \nkeltconfig\t\n");
  EXPECT_EQ(output.err, "keltconfig\t[E] \n");
}

}  // namespace
}  // namespace kelt::app
