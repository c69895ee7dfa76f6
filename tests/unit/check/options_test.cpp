#include "check/options.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using kelt::base::Result;
using kelt::check::Format;
using kelt::check::Options;

namespace {

Result<Options> parsed(std::vector<std::string> words) {
  words.insert(words.begin(), "keltcheck");
  std::vector<char*> arguments;
  for (std::string& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return kelt::check::optionsIn(static_cast<int>(words.size()), arguments.data());
}

std::string refusalOf(const std::vector<std::string>& words) {
  const auto options = parsed(words);
  return options ? "accepted" : options.error().message;
}

TEST(Options, AreNoneByDefault) {
  const auto options = parsed({});
  ASSERT_TRUE(options.ok());
  EXPECT_EQ(options.value().source, "");
  EXPECT_EQ(options.value().server, "");
  EXPECT_EQ(options.value().format, Format::kTerminal);
  EXPECT_FALSE(options.value().bVerbose || options.value().bHelp || options.value().bVersion);
}

TEST(Options, AreAllTaken) {
  const auto options = parsed({"--source", "dir", "--server=host:1", "--json", "--verbose"});
  ASSERT_TRUE(options.ok());
  EXPECT_EQ(options.value().source, "dir");
  EXPECT_EQ(options.value().server, "host:1");
  EXPECT_EQ(options.value().format, Format::kJson);
  EXPECT_TRUE(options.value().bVerbose);
  EXPECT_EQ(parsed({"--plain"}).value().format, Format::kPlain);
  EXPECT_TRUE(parsed({"--help"}).value().bHelp);
  EXPECT_TRUE(parsed({"--version"}).value().bVersion);
}

TEST(Options, MayBeShortenedWhereThatIsUnique) {
  EXPECT_EQ(parsed({"--so", "dir"}).value().source, "dir");
  EXPECT_EQ(refusalOf({"--ver"}), "there is no option --ver");
}

TEST(Options, ThatAreNoneAreNamed) {
  EXPECT_EQ(refusalOf({"--foo"}), "there is no option --foo");
  EXPECT_EQ(refusalOf({"-x"}), "there is no option -x");
  EXPECT_EQ(refusalOf({"--json", "-xy"}), "there is no option -xy");
  EXPECT_EQ(refusalOf({"word", "--foo"}), "the argument word belongs to no option");
  EXPECT_EQ(refusalOf({"--", "--json"}), "the argument --json belongs to no option");
  EXPECT_EQ(refusalOf({"--json=1"}), "there is no option --json=1");
  EXPECT_EQ(refusalOf({"--source"}), "the option --source needs a value");
  EXPECT_EQ(refusalOf({"--server", ""}), "the value of an option is empty");
  EXPECT_EQ(refusalOf({"word"}), "the argument word belongs to no option");
  EXPECT_EQ(refusalOf({"--plain", "--json"}), "--json and --plain exclude each other");
}

TEST(Options, AreAllInTheHelpText) {
  const std::string help = kelt::check::helpText();
  for (const char* option :
       {"--source DIR", "--server HOST[:PORT]", "--json", "--plain", "--verbose", "--help", "--version"})
    EXPECT_NE(help.find(option), std::string::npos) << option;
}

}  // namespace
