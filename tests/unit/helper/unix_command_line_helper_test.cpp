#include "helper/unix_command_line_helper.h"

#include <gtest/gtest.h>

using kelt::helper::unixCommandLineHelper;

namespace {

TEST(SourceDirectory, IsEmptyUntilItIsSet) {
  EXPECT_EQ(unixCommandLineHelper().GetSourceDir(), L"");
}

TEST(SourceDirectory, IsKeptAsItWasTyped) {
  unixCommandLineHelper helper;
  helper.SetSourceDir(L"keys//\u00E9/");
  EXPECT_EQ(helper.GetSourceDir(), L"keys//\u00E9/");
  helper.SetSourceDir(L"k");
  EXPECT_EQ(helper.GetSourceDir(), L"k");
}

TEST(SourceDirectory, CanBeEmptiedAgain) {
  unixCommandLineHelper helper;
  helper.SetSourceDir(L"keys");
  helper.SetSourceDir(L"");
  EXPECT_EQ(helper.GetSourceDir(), L"");
}

}  // namespace
