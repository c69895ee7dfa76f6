// Replays what a fuzz target is known to be good at finding faults with: its corpus, and every input that ever did.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "fuzz/require.h"
#include "support/private_device.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kelt::tests {
namespace {

namespace fs = std::filesystem;

/// The files of this target in one of its two directories, sorted. There need not be a directory.
std::vector<std::string> inputsOf(const std::string& kind) {
  std::vector<std::string> paths;
  const fs::path directory = fs::path(KELT_TEST_DATA) / "fuzz" / kind / KELT_FUZZ_TARGET;
  if (!fs::is_directory(directory)) return paths;
  for (const auto& entry : fs::directory_iterator(directory))
    paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  return paths;
}

void replay(const std::string& input, const std::string& name) {
  // Said first: a crash says nothing.
  std::printf("[  replay  ] %s\n", name.c_str());
  try {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  } catch (const Finding& finding) {
    ADD_FAILURE() << name << ": does not hold: " << finding.what();
  }
}

class Replay : public PrivateDevice {};

TEST_F(Replay, EveryClaimHoldsForTheCorpusAndForPastFindings) {
  const std::vector<std::string> corpus = inputsOf("corpus");
  ASSERT_FALSE(corpus.empty());
  replay("", "no bytes");
  for (const std::string& path : corpus)
    replay(contentOf(path), path);
  for (const std::string& path : inputsOf("findings"))
    replay(contentOf(path), path);
}

}  // namespace
}  // namespace kelt::tests
