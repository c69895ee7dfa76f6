#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "services/counted_memory.h"
#include "support/private_device.h"

#include "platform/registry.h"

namespace kelt::tests {
namespace {

constexpr const char* kFile = "/opt/Quorvane/orv/scratch/registry.ini";
constexpr const wchar_t* kWideFile = L"/opt/Quorvane/orv/scratch/registry.ini";
constexpr std::size_t kSize = 280000;
constexpr std::size_t kFewBytes = 16384;  // names, handles, what the file system calls need

struct Content {
  const char* name;
  std::string start;
  std::string line;  // again and again up to kSize
};

std::string nameOf(const ::testing::TestParamInfo<Content>& info) {
  return info.param.name;
}

std::string textOf(const Content& content) {
  std::string text = content.start;
  while (text.size() < kSize)
    text += content.line;
  return text;
}

class RegistryMemory : public PrivateDevice, public ::testing::WithParamInterface<Content> {};

/// Opens the key, looks for two values, deletes one and closes the key.
void useRegistry() {
  void* key = nullptr;
  if (RegOpenKey(HKEY_LOCAL_MACHINE, "k", &key) != kRegistrySuccess) return;
  std::uint32_t type = kRegistryNumber;
  std::uint32_t size = 0;
  EXPECT_NE(RegQueryValueEx(key, "", nullptr, &type, nullptr, &size), kRegistrySuccess);
  EXPECT_NE(RegQueryValueEx(key, "v", nullptr, &type, nullptr, &size), kRegistrySuccess);
  (void)RegDeleteValue(key, "");
  EXPECT_EQ(RegCloseKey(key), kRegistrySuccess);
}

TEST_P(RegistryMemory, IsNoMoreThanTwentyTimesTheFileWhateverStandsInIt) {
  putFile(kFile, textOf(GetParam()));
  ASSERT_EQ(InitializeRegistry(kWideFile), kRegistrySuccess);
  const std::size_t before = heldMemory();
  forgetPeak();
  useRegistry();
  const std::size_t taken = peakMemory() - before;
  EXPECT_GE(taken, kSize);                  // it was read, and counted
  EXPECT_LE(taken, 4 * kSize + kFewBytes);  // what it takes; the bound that is promised is 20 times
  EXPECT_LE(heldMemory(), before + kFewBytes);
}

INSTANTIATE_TEST_SUITE_P(
    Files, RegistryMemory,
    ::testing::Values(Content{"ValuesWithoutNames", "[k]\n", "=\n"}, Content{"SectionsWithoutNames", "[k]\n", "[\n"},
                      Content{"Sections", "[k]\n", "[a]\n"}, Content{"SectionsAskedFor", "", "[k]\n"},
                      Content{"LongSectionName", "[" + std::string(kSize / 2, 'a') + "]\n", "=\n"},
                      Content{"UnfinishedValues", "[k]\n", "v=hex:30,\\\n"}, Content{"Comments", "[k]\n", ";\n"},
                      Content{"EmptyLines", "[k]\n", "\n"}, Content{"OneLongValue", "[k]\nv=hex:30", ",30"},
                      Content{"OneContinuedValue", "[k]\nv=hex:\\\n", "3\\\n"}, Content{"NoSection", "", "=\n"}),
    nameOf);

}  // namespace
}  // namespace kelt::tests
