#include "support/agent_on_device.h"

#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

namespace kelt::tests {
namespace {

constexpr const char* kRecord = "/tmp/calls";
constexpr const char* kLogs = "/opt/Quorvane/orv/scratch/logs";

void (*g_reaction)() = nullptr;

void react(int /*signal*/) {
  g_reaction();
}

}  // namespace

std::string putProduct(const std::string& directory, const ConfigValues& values) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Configuration>\n";
  for (const auto& [name, text] : values)
    xml += "  <" + name + ">" + text + "</" + name + ">\n";
  const std::string path = "/etc/orv.d/" + directory + "/config.xml";
  putFile(path, xml + "</Configuration>\n");
  return path;
}

std::string putCommand(const std::string& name, const std::string& andThen) {
  const std::string path = "/tmp/commands/" + name;
  putFile(path, "#!/bin/sh\necho \"" + name + " $*\" >> " + kRecord + "\n" + andThen + "\n", 0755);
  return path;
}

std::vector<std::string> calls() {
  std::vector<std::string> lines;
  std::ifstream record(kRecord);
  for (std::string line; std::getline(record, line);) {
    if (!line.empty() && line.back() == ' ') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> namesAsListed(const std::string& directory) {
  std::vector<std::string> names;
  DIR* stream = ::opendir(directory.c_str());
  EXPECT_NE(stream, nullptr) << directory;
  if (stream == nullptr) return names;
  while (const dirent* entry = ::readdir(stream)) {
    const std::string name = &entry->d_name[0];
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(stream);
  return names;
}

Tree treeOf(const std::string& directory) {
  namespace fs = std::filesystem;
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    const std::string path = entry.path();
    if (path.starts_with(kLogs)) continue;
    std::string what = std::to_string(modeOf(path));
    if (entry.is_symlink()) {
      what += " link to " + fs::read_symlink(path).string();
    } else if (entry.is_regular_file()) {
      what += " file " + contentOf(path);
    }
    tree[path] = what;
  }
  return tree;
}

int statusOfProcess(const std::function<bool()>& work) {
  return Child([&] {
           ::_exit(work() ? 0 : 1);
           return 0;
         })
      .wait();
}

WhenRead::WhenRead(const std::string& directory, void (*reaction)())
    : m_directory(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  g_reaction = reaction;
  struct sigaction action {};
  action.sa_handler = react;
  EXPECT_EQ(::sigaction(SIGIO, &action, nullptr), 0);
  EXPECT_EQ(::fcntl(m_directory, F_NOTIFY, DN_ACCESS | DN_MULTISHOT), 0) << "no notification for " << directory;
}

WhenRead::~WhenRead() {
  ::close(m_directory);
  static_cast<void>(std::signal(SIGIO, SIG_DFL));
}

}  // namespace kelt::tests
