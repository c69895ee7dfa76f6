#include "provision/received_files.h"

#include <filesystem>
#include <unistd.h>

#include "support/private_device.h"

namespace fs = std::filesystem;

namespace kelt::provision {
namespace {

using tests::putFile;

class ReceivedFiles : public tests::PrivateDevice {};

TEST_F(ReceivedFiles, AreKnownFromWhatOthersPlanted) {
  putFile("/tmp/own", "x");
  EXPECT_TRUE(bOwnFile("/tmp/own"));
  fs::create_symlink("/tmp/own", "/tmp/link");
  EXPECT_FALSE(bOwnFile("/tmp/link"));
  EXPECT_FALSE(bOwnFile("/tmp"));
  EXPECT_FALSE(bOwnFile("/tmp/missing"));
  fs::create_hard_link("/tmp/own", "/tmp/second");
  EXPECT_FALSE(bOwnFile("/tmp/own"));
  putFile("/tmp/foreign", "x");
  // A user namespace of one uid cannot give a file away, but what the machine's root owns is foreign in it.
  const bool given = ::chown("/tmp/foreign", 65534, 65534) == 0;
  EXPECT_FALSE(bOwnFile(given ? "/tmp/foreign" : "/etc/passwd"));
}

}  // namespace
}  // namespace kelt::provision
