#pragma once

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "support/private_device.h"

#include "platform/unzip.h"

namespace kelt::tests {

/// The archives that tests/data/archives makes, in a directory that no test empties.
inline const std::string& archives() {
  static const std::string directory = [] {
    const std::string script = KELT_TEST_DATA "/archives/make_archives.py";
    const int status = std::system(("/usr/bin/python3 -B " + script + " /archives").c_str());
    if (status != 0) std::abort();
    return std::string("/archives");
  }();
  return directory;
}

inline std::vector<std::string> archivesIn(const std::string& kind) {
  std::vector<std::string> names = namesIn(archives() + "/" + kind);
  EXPECT_GT(names.size(), 10U);
  return names;
}

/// Every path below a directory, with its kind and content.
inline std::map<std::string, std::string> treeOf(const std::string& directory) {
  std::map<std::string, std::string> tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    const std::string path = entry.path();
    const std::string name = path.substr(directory.size() + 1);
    if (entry.is_symlink()) {
      tree[name] = "link to " + std::filesystem::read_symlink(path).string();
    } else if (entry.is_directory()) {
      tree[name] = "directory";
    } else {
      tree[name] = "file " + contentOf(path);
    }
  }
  return tree;
}

using Tree = std::map<std::string, std::string>;

/// Unpacks archives into an empty directory.
class Unpacking : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(m_target);
  }

  int unpack(const std::string& archive) {
    return ::NsUnzip((archives() + "/" + archive + ".zip").c_str(), m_target.c_str());
  }

  const std::string m_target = "/tmp/target";
};

}  // namespace kelt::tests
