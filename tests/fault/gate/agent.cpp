// The stand-in agent of the gate: what it is told stands in /run/agent, as files, so that no process is left running.
//
//   agent start | stop | load PLUG-IN | unload PLUG-IN

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const std::string kDirectory = "/run/agent/";

bool bAppended(const std::string& path, const std::string& text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  return fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool bGone(const std::string& path) {
  return ::unlink(path.c_str()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string verb = argv[1];
  const std::string plugIn = argc > 2 ? std::string("plugin-") + argv[2] : std::string();
  ::umask(022);
  if (!bAppended(kDirectory + "calls", verb + (argc > 2 ? std::string(" ") + argv[2] : "") + "\n")) return 1;
  if (verb == "start") return bAppended(kDirectory + "running", "") ? 0 : 1;
  if (verb == "stop") return bGone(kDirectory + "running") ? 0 : 1;
  if (verb == "load") return bAppended(kDirectory + plugIn, "") ? 0 : 1;
  if (verb == "unload") return bGone(kDirectory + plugIn) ? 0 : 1;
  return 2;
}
