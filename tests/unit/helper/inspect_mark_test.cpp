#include <unistd.h>

#include "support/private_device.h"

#include "helper/unfinished_work.h"

using kelt::base::ErrorKind;
using kelt::helper::inspectMark;
using kelt::helper::Work;
using kelt::tests::exists;
using kelt::tests::putFile;

namespace {

const std::string kMark = "/tmp/data/unfinished-work";

class InspectMark : public kelt::tests::PrivateDevice {};

TEST_F(InspectMark, FindsNoneWithoutAFileOrDirectory) {
  EXPECT_EQ(inspectMark("/tmp/data", 0).error().kind, ErrorKind::kNotFound);
  kelt::tests::putDirectory("/tmp/data");
  EXPECT_EQ(inspectMark("/tmp/data", 0).error().kind, ErrorKind::kNotFound);
}

TEST_F(InspectMark, TellsWhatAMarkSays) {
  putFile(kMark, "work=key-import\nstage=storing\n", 0600);
  const auto mark = inspectMark("/tmp/data", 0);
  ASSERT_TRUE(mark.ok());
  EXPECT_EQ(mark.value().work, Work::kKeyImport);
  EXPECT_EQ(mark.value().plan, "stage=storing\n");
}

TEST_F(InspectMark, RefusesWhatIsNoneAndLeavesIt) {
  putFile(kMark, "nonsense", 0600);
  EXPECT_EQ(inspectMark("/tmp/data", 0).error().kind, ErrorKind::kRefused);
  putFile(kMark, "work=key-import\n", 0622);
  EXPECT_EQ(inspectMark("/tmp/data", 0).error().kind, ErrorKind::kRefused);
  putFile(kMark, "work=key-import\n", 0600);
  EXPECT_EQ(inspectMark("/tmp/data", 1).error().kind, ErrorKind::kRefused);
  EXPECT_TRUE(exists(kMark));
}

}  // namespace
