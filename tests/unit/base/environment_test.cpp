#include "base/environment.h"

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/child.h"

namespace kelt::base {
namespace {

using Entries = std::vector<std::string>;

Entries entries() {
  Entries found;
  for (char** entry = environ; *entry != nullptr; ++entry)
    found.emplace_back(*entry);
  return found;
}

/// Runs `test` in a process that was started with this environment.
int runWith(Entries given, const std::function<bool()>& test) {
  return tests::Child([&] {
           std::vector<char*> pointers;
           for (std::string& entry : given)
             pointers.push_back(entry.data());
           pointers.push_back(nullptr);
           environ = pointers.data();
           const bool bPassed = test();
           environ = pointers.data();
           ::_exit(bPassed ? 0 : 1);
           return 1;
         })
      .exitStatus();
}

const Entries kMixed{"OPENSSL_CONF=/planted", "PATH=/bin",    "KEPT=yes",       "GCONV_PATH=/planted",
                     "https_proxy=p:1",       "PATH=/second", "PWD=/somewhere", "NO_PROXY=*",
                     "no equals sign",        "PATHS=x",      "HTTP_PROXY=h:1", "SSLKEYLOGFILE=/k",
                     "LD_LIBRARY_PATH=/lib"};

TEST(Environment, KeepsForTheToolWhatIsMeantForIt) {
  EXPECT_EQ(runWith(kMixed,
                    [] {
                      shedEnvironment();
                      return entries() == Entries{"PATH=/bin", "PWD=/somewhere", "LD_LIBRARY_PATH=/lib",
                                                  "https_proxy=p:1", "NO_PROXY=*"};
                    }),
            0);
}

TEST(Environment, GivesEveryVariableBackInItsOrder) {
  EXPECT_EQ(runWith(kMixed,
                    [] {
                      shedEnvironment();
                      shedEnvironment();
                      giveEnvironmentBack();
                      return entries() == kMixed;
                    }),
            0);
}

TEST(Environment, IsAsItWasWhereNothingWasShed) {
  EXPECT_EQ(runWith(kMixed,
                    [] {
                      giveEnvironmentBack();
                      return entries() == kMixed;
                    }),
            0);
}

TEST(Environment, MayBeEmpty) {
  EXPECT_EQ(runWith({},
                    [] {
                      shedEnvironment();
                      const bool bEmpty = entries().empty() && ::getenv("PATH") == nullptr;
                      giveEnvironmentBack();
                      return bEmpty && entries().empty();
                    }),
            0);
}

TEST(Environment, HidesAVariableFromTheLibraries) {
  EXPECT_EQ(runWith(kMixed,
                    [] {
                      shedEnvironment();
                      return ::getenv("OPENSSL_CONF") == nullptr && ::secure_getenv("GCONV_PATH") == nullptr &&
                             std::string(::getenv("PATH")) == "/bin";
                    }),
            0);
}

}  // namespace
}  // namespace kelt::base
