#include "check/program.h"

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "collected.h"

using kelt::base::ErrorKind;
using kelt::check::findProgram;
using kelt::tests::putDirectory;
using kelt::tests::putFile;

namespace {

class FindProgram : public kelt::tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    m_path = ::getenv("PATH");
    putFile("/tmp/a/tool", "#!/bin/sh\n", 0755);
    putFile("/tmp/b/tool", "#! /bin/sh -e\n", 0755);
  }
  void TearDown() override { ::setenv("PATH", m_path.c_str(), 1); }

  /// Where the program is found, or why not.
  static std::string found(const std::string& word) {
    const auto program = findProgram(word);
    return program ? program.value() : program.error().message;
  }

  std::string m_path;
};

TEST_F(FindProgram, TakesAPathAsItIs) {
  EXPECT_EQ(found("/tmp/a/tool"), "/tmp/a/tool");
  ASSERT_EQ(::chdir("/tmp"), 0);
  EXPECT_EQ(found("b/tool"), "b/tool");
}

TEST_F(FindProgram, SearchesThePathInItsOrder) {
  ::setenv("PATH", "/tmp/none:/tmp/b:/tmp/a", 1);
  EXPECT_EQ(found("tool"), "/tmp/b/tool");
}

TEST_F(FindProgram, TakesAnEmptyDirectoryForTheWorkingOne) {
  ASSERT_EQ(::chdir("/tmp/a"), 0);
  for (const char* path : {":/tmp/b", "/tmp/none::/tmp/b", "/tmp/none:"}) {
    ::setenv("PATH", path, 1);
    EXPECT_EQ(found("tool"), "tool") << path;
  }
}

TEST_F(FindProgram, GoesOnWhereAFileOfThatNameCannotBeExecuted) {
  ASSERT_EQ(::chmod("/tmp/a/tool", 0644), 0);
  ::setenv("PATH", "/tmp/a:/tmp/b", 1);
  EXPECT_EQ(found("tool"), "/tmp/b/tool");
  ::setenv("PATH", "/tmp/a", 1);
  EXPECT_EQ(found("tool"), "/tmp/a/tool cannot be executed");
}

TEST_F(FindProgram, HasADefaultWithoutPath) {
  ::unsetenv("PATH");
  EXPECT_TRUE(found("sh").starts_with("/bin/sh")) << "found, also by a build for another machine than this shell";
}

TEST_F(FindProgram, RefusesWhatIsNoProgram) {
  putDirectory("/tmp/directory");
  EXPECT_EQ(found("/tmp/directory"), "/tmp/directory is not a regular file");
  EXPECT_EQ(findProgram("/tmp/none").error().kind, ErrorKind::kNotFound);
  ::setenv("PATH", "/tmp/a", 1);
  EXPECT_EQ(found("none"), "none is in none of the directories of PATH");
}

TEST_F(FindProgram, LooksForTheInterpreterOfAScript) {
  putFile("/tmp/script", "#!/tmp/nowhere -x\n", 0755);
  EXPECT_EQ(found("/tmp/script"), "the interpreter of /tmp/script: examine /tmp/nowhere: No such file or directory");
  putFile("/tmp/short", "#!", 0755);
  EXPECT_EQ(found("/tmp/short"), "/tmp/short");
}

TEST_F(FindProgram, RefusesWhatTheSystemCouldNotRun) {
  putFile("/tmp/empty", "", 0755);
  EXPECT_EQ(found("/tmp/empty"), "/tmp/empty is empty");
  std::string program = kelt::tests::contentOf("/proc/self/exe");
  putFile("/tmp/whole", program, 0755);
  EXPECT_EQ(found("/tmp/whole"), "/tmp/whole");
  putFile("/tmp/cut", program.substr(0, program.size() / 2), 0755);
  EXPECT_EQ(found("/tmp/cut"), "/tmp/cut is not complete");
  program[5] ^= 3;  // the byte order
  putFile("/tmp/foreign", program, 0755);
  EXPECT_EQ(found("/tmp/foreign"), "/tmp/foreign is made for another machine");
  putFile("/tmp/words", "exit 0\n", 0755);
  EXPECT_EQ(found("/tmp/words"), "/tmp/words") << "run by the shell, as execvp has it";
}

}  // namespace
