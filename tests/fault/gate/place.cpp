#include "fault/gate/place.h"

#include <filesystem>

namespace kelt::tests::gate {
namespace {

namespace fs = std::filesystem;

const std::string kPlace = "/gate/";

}  // namespace

void bringPrograms() {
  const fs::path own = fs::read_symlink("/proc/self/exe").parent_path();
  fs::create_directory(kPlace);
  for (const char* name : {"kelt_gate_agent", "kelt_failing_allocations.so"})
    fs::copy_file(own / name, kPlace + name, fs::copy_options::overwrite_existing);
}

Setting settingFor(const std::string& tool, const std::string& name) {
  return {tool, kPlace + "kelt_failing_allocations.so", kPlace + "record." + name, {}, {}};
}

}  // namespace kelt::tests::gate
