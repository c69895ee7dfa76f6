#include <cstring>
#include <gtest/gtest.h>

#include "support/private_device.h"

int main(int argc, char** argv) {
  const bool bListing = argc > 1 && std::strncmp(argv[1], "--gtest_list_tests", 18) == 0;
  if (!bListing) kelt::tests::enterPrivateDevice(argv);
  ::testing::InitGoogleTest(&argc, argv);
  if (!bListing) kelt::tests::refuseOutputFiles();
  return RUN_ALL_TESTS();
}
