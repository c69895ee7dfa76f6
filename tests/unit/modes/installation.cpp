#include "installation.h"

#include <unistd.h>

namespace kelt::tests {

void putLoop(const std::string& path) {
  ::unlink(path.c_str());
  ASSERT_EQ(::symlink(path.c_str(), path.c_str()), 0) << path;
}

Tree installedTree() {
  Tree tree = treeOf("/opt/Quorvane");
  std::erase_if(tree, [](const auto& entry) { return entry.first.starts_with(kInstalled + "/scratch/logs"); });
  return tree;
}

std::vector<std::string> logLines() {
  std::vector<std::string> lines;
  const std::string path = kInstalled + "/scratch/logs/keltcfg.log";
  const std::string text = exists(path) ? contentOf(path) : "";
  for (std::size_t start = 0, end = 0; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    const std::string line = text.substr(start, end - start);
    lines.push_back(line.substr(line.find('\t') + 1, 1) + " " + line.substr(line.rfind('\t') + 1));
  }
  return lines;
}

}  // namespace kelt::tests
