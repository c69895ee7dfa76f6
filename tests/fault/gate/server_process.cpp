#include "fault/gate/server_process.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fault/gate/tree.h"
#include "unit/provision/tls_server.h"

namespace kelt::tests::gate {
namespace {

struct Pipe {
  base::UniqueFd out;
  base::UniqueFd in;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
  return {base::UniqueFd(ends[0]), base::UniqueFd(ends[1])};
}

[[noreturn]] void serve(const std::string& reply, const Pipe& told, int lifeline) {
  ::signal(SIGPIPE, SIG_IGN);  // clients go away in the middle of an answer
  const TlsServer server({bodyAnswer(reply)});
  const std::string port = server.port();
  require(::write(told.in.get(), port.data(), port.size()) == static_cast<ssize_t>(port.size()), "tell the port");
  char nothing = 0;
  (void)!::read(lifeline, &nothing, 1);
  ::_exit(0);
}

}  // namespace

ServerProcess startServer(const std::string& reply) {
  Pipe told = makePipe();
  Pipe lifeline = makePipe();
  const pid_t pid = ::fork();
  require(pid >= 0, "fork");
  if (pid == 0) {
    // Nobody's child, so that whoever waits for the children of this process never meets it.
    if (::fork() != 0) ::_exit(0);
    lifeline.in.reset();
    serve(reply, told, lifeline.out.get());
  }
  ::waitpid(pid, nullptr, 0);
  told.in.reset();
  std::array<char, 16> port{};
  const ssize_t got = ::read(told.out.get(), port.data(), port.size());
  require(got > 0, "start the management server");
  return {std::string(port.data(), static_cast<std::size_t>(got)), std::move(lifeline.in)};
}

}  // namespace kelt::tests::gate
