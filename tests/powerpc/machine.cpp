// The first process of the machine that tests boot (vm.py). It does what the test asks for through the port, a device
// that carries bytes as they are: it mounts, runs commands in the root on the disk, and tells what they wrote and how
// they ended. It is in memory, beside the disk, which has nothing of the tests.
//
// A message is a number of four bytes, most significant first, and as many bytes: a letter and words that end in a zero
// byte each. From the test, and what is answered:
//
//   m SOURCE TARGET TYPE FLAGS DATA    mounts: d ERRNO
//   u TARGET                           unmounts: d ERRNO
//   s                                  puts on the disk what is in memory: d ERRNO
//   t SECONDS                          sets the clock: d ERRNO
//   a PATH                             the modes of a terminal, or of that of command PATH: a and four numbers, for
//                                      input, output, control and local modes
//   r ID INPUT ROOT DIRECTORY ADDRESS-SPACE CORE [VARIABLE...] '' ARGUMENT...
//                                      runs a command. INPUT is "null", "pipe", "pty" or a terminal's path; the limits
//                                      are in bytes, or empty. d ERRNO, then o ID STREAM and the bytes, and at last e
//                                      ID WORD NUMBER with "exit", "signal" or "core"
//   i ID, and bytes                    input for it; no bytes are the end of the input, or of the terminal
//   k ID SIGNAL                        a signal for it: d ERRNO
//   p                                  powers off
//
// Run as `machine search PID`, it is a command by itself: it tells at how many places the memory of that process has
// each word of its standard input, a line each, as narrow, wide and base64-coded text.

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

using Words = std::vector<std::string>;

constexpr const char* kPort = "/dev/vport0p1";

[[noreturn]] void giveUp(const std::string& what) {
  std::fprintf(stderr, "machine: %s: %s\n", what.c_str(), std::strerror(errno));
  std::_Exit(1);  // of the first process: the kernel panics, and the emulator ends
}

struct Command {
  pid_t pid;
  int input;                   // -1 once it has ended
  std::array<int, 2> outputs;  // a terminal has one; -1 once it has ended
  bool bTerminal;
};

// --- Messages --------------------------------------------------------------------------------------------------------

int port = -1;
std::map<std::string, Command> commands;

void readWhole(std::span<char> buffer) {
  while (!buffer.empty()) {
    const ssize_t got = ::read(port, buffer.data(), buffer.size());
    if (got <= 0) giveUp("reading from the port");
    buffer = buffer.subspan(static_cast<std::size_t>(got));
  }
}

std::string receive() {
  std::array<unsigned char, 4> head{};
  readWhole({reinterpret_cast<char*>(head.data()), head.size()});
  std::string message((head[0] << 24U) | (head[1] << 16U) | (head[2] << 8U) | head[3], '\0');
  readWhole({message.data(), message.size()});
  return message;
}

void send(char letter, const Words& words, std::string_view bytes = {}) {
  std::string body(1, letter);
  for (const std::string& word : words)
    body += word + '\0';
  body += bytes;
  std::string message;
  for (const unsigned shift : {24U, 16U, 8U, 0U})
    message += static_cast<char>((body.size() >> shift) & 0xffU);
  message += body;
  for (std::size_t at = 0; at < message.size();) {
    const ssize_t put = ::write(port, message.data() + at, message.size() - at);
    if (put <= 0) giveUp("writing to the port");
    at += static_cast<std::size_t>(put);
  }
}

void answer(bool bDone) {
  send('d', {std::to_string(bDone ? 0 : errno)});
}

Words wordsOf(std::string_view text) {
  Words words;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\0'), text.size());
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

// --- Commands --------------------------------------------------------------------------------------------------------

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) giveUp("a pipe");
  return ends;
}

/// The descriptors of a command, and what is kept of them here.
struct Streams {
  std::array<int, 3> theirs{-1, -1, -1};
  Command ours{-1, -1, {-1, -1}, false};
};

Streams nullOrPipes(bool bPipe) {
  Streams streams;
  const auto input = bPipe ? makePipe() : std::array{::open("/dev/null", O_RDONLY | O_CLOEXEC), -1};
  const auto output = makePipe();
  const auto errors = makePipe();
  streams.theirs = {input[0], output[1], errors[1]};
  streams.ours.input = input[1];
  streams.ours.outputs = {output[0], errors[0]};
  return streams;
}

Streams terminal(const std::string& path) {
  Streams streams;
  const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) giveUp(path);
  streams.theirs = {fd, fd, fd};
  streams.ours.bTerminal = true;
  return streams;
}

Streams pseudoTerminal() {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) giveUp("a pseudo-terminal");
  Streams streams = terminal(::ptsname(master));
  streams.ours.input = master;
  streams.ours.outputs[0] = ::fcntl(master, F_DUPFD_CLOEXEC, 0);
  return streams;
}

Streams streamsFor(const std::string& input) {
  if (input == "pty") return pseudoTerminal();
  if (input.starts_with('/')) return terminal(input);
  return nullOrPipes(input == "pipe");
}

void limit(__rlimit_resource what, const std::string& bytes) {
  if (bytes.empty()) return;
  const rlim_t value = std::strtoul(bytes.c_str(), nullptr, 10);
  const rlimit both{value, value};
  if (::setrlimit(what, &both) != 0) giveUp("a limit");
}

std::vector<char*> pointersTo(Words& words) {
  std::vector<char*> pointers;
  for (std::string& word : words)
    pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// In the new process. `words` as the message has them.
[[noreturn]] void become(const Words& words, const Streams& streams) {
  ::setsid();
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  if (streams.ours.bTerminal && ::ioctl(streams.theirs[0], TIOCSCTTY, 0) != 0) giveUp("a terminal of its own");
  for (int number = 0; number < 3; ++number)
    ::dup2(streams.theirs[static_cast<std::size_t>(number)], number);
  if (::chroot(words[2].c_str()) != 0 || ::chdir(words[3].c_str()) != 0) giveUp(words[2] + " and " + words[3]);
  ::umask(022);
  limit(RLIMIT_AS, words[4]);
  limit(RLIMIT_CORE, words[5]);
  const auto end = std::find(words.begin() + 6, words.end(), "");
  Words variables(words.begin() + 6, end), arguments(end + 1, words.end());
  const auto environment = pointersTo(variables);
  environ = const_cast<char**>(environment.data());
  ::execvp(arguments[0].c_str(), pointersTo(arguments).data());
  std::fprintf(stderr, "machine: %s: %s\n", arguments[0].c_str(), std::strerror(errno));
  std::_Exit(127);
}

void run(const Words& words) {
  Streams streams = streamsFor(words[1]);
  streams.ours.pid = ::fork();
  if (streams.ours.pid == 0) become(words, streams);
  if (streams.ours.pid < 0) giveUp("a process");
  std::sort(streams.theirs.begin(), streams.theirs.end());
  for (std::size_t at = 0; at < streams.theirs.size(); ++at) {
    if (at == 0 || streams.theirs[at] != streams.theirs[at - 1]) ::close(streams.theirs[at]);
  }
  commands[words[0]] = streams.ours;
  answer(true);
}

void closeIfOpen(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

void feed(std::string_view message) {
  const std::size_t end = message.find('\0');
  Command& command = commands.at(std::string(message.substr(0, end)));
  std::string_view bytes = message.substr(end + 1);
  if (bytes.empty()) {
    closeIfOpen(command.input);
    // The other end of a terminal is gone with the last descriptor of it.
    if (command.bTerminal) closeIfOpen(command.outputs[0]);
  }
  while (!bytes.empty()) {
    const ssize_t put = ::write(command.input, bytes.data(), bytes.size());
    if (put <= 0) return;  // it has ended
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
}

/// Passes on what there is at the moment. Whether there can be more.
bool passOn(const std::string& id, const Command& command, std::size_t stream) {
  std::array<char, 4096> buffer{};
  const ssize_t got = ::read(command.outputs[stream], buffer.data(), buffer.size());
  if (got <= 0) return false;
  send('o', {id, std::to_string(stream + 1)}, {buffer.data(), static_cast<std::size_t>(got)});
  return true;
}

bool bReadable(int fd) {
  pollfd entry{fd, POLLIN, 0};
  return fd >= 0 && ::poll(&entry, 1, 0) == 1;
}

/// Tells of the end of a command, after all that it wrote itself.
void tellEnd(const std::string& id, Command& command, int status) {
  for (std::size_t stream = 0; stream < command.outputs.size(); ++stream) {
    while (bReadable(command.outputs[stream]) && passOn(id, command, stream)) {
    }
    closeIfOpen(command.outputs[stream]);
  }
  closeIfOpen(command.input);
  const bool bExited = WIFEXITED(status);
  const char* const word = bExited ? "exit" : WCOREDUMP(status) ? "core" : "signal";
  send('e', {id, word, std::to_string(bExited ? WEXITSTATUS(status) : WTERMSIG(status))});
}

void reap() {
  int status = 0;
  for (pid_t pid = ::waitpid(-1, &status, WNOHANG); pid > 0; pid = ::waitpid(-1, &status, WNOHANG)) {
    const auto found =
        std::find_if(commands.begin(), commands.end(), [&](const auto& entry) { return entry.second.pid == pid; });
    if (found == commands.end()) continue;  // an orphan of one
    tellEnd(found->first, found->second, status);
    commands.erase(found);
  }
}

// --- The machine -----------------------------------------------------------------------------------------------------

void tellModes(const std::string& what) {
  const auto command = commands.find(what);
  const int fd =
      command == commands.end() ? ::open(what.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC) : command->second.input;
  termios modes{};
  if (::tcgetattr(fd, &modes) != 0) giveUp("modes of " + what);
  if (command == commands.end()) ::close(fd);
  send('a', {std::to_string(modes.c_iflag), std::to_string(modes.c_oflag), std::to_string(modes.c_cflag),
             std::to_string(modes.c_lflag)});
}

[[noreturn]] void powerOff() {
  ::reboot(RB_POWER_OFF);
  giveUp("powering off");
}

void obey(const std::string& message) {
  const std::string_view rest = std::string_view(message).substr(1);
  if (message[0] == 'i') return feed(rest);
  Words words = wordsOf(rest);
  words.resize(std::max<std::size_t>(words.size(), 6));
  switch (message[0]) {
    case 'm':
      ::mkdir(words[1].c_str(), 0755);
      return answer(::mount(words[0].c_str(), words[1].c_str(), words[2].c_str(),
                            std::strtoul(words[3].c_str(), nullptr, 10), words[4].c_str()) == 0);
    case 'u':
      return answer(::umount(words[0].c_str()) == 0);
    case 's':
      return ::sync(), answer(true);
    case 't': {
      const timeval now{std::strtol(words[0].c_str(), nullptr, 10), 0};
      return answer(::settimeofday(&now, nullptr) == 0);
    }
    case 'a':
      return tellModes(words[0]);
    case 'r':
      return run(words);
    case 'k':
      return answer(::kill(commands.at(words[0]).pid, std::atoi(words[1].c_str())) == 0);
    case 'p':
      powerOff();
    default:
      giveUp("unknown message " + message.substr(0, 1));
  }
}

int signalDescriptor() {
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &child, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  return ::signalfd(-1, &child, SFD_CLOEXEC);
}

struct Source {
  std::string id;
  std::size_t stream;
};

/// Waits for something to do, and does it.
void serve(int signals) {
  std::vector<pollfd> entries{{port, POLLIN, 0}, {signals, POLLIN, 0}};
  std::vector<Source> sources;
  for (const auto& [id, command] : commands) {
    for (std::size_t stream = 0; stream < command.outputs.size(); ++stream) {
      if (command.outputs[stream] < 0) continue;
      entries.push_back({command.outputs[stream], POLLIN, 0});
      sources.push_back({id, stream});
    }
  }
  if (::poll(entries.data(), entries.size(), -1) < 0) return;
  for (std::size_t at = 0; at < sources.size(); ++at) {
    Command& command = commands.at(sources[at].id);
    if (entries[at + 2].revents != 0 && !passOn(sources[at].id, command, sources[at].stream))
      closeIfOpen(command.outputs[sources[at].stream]);
  }
  if (entries[1].revents != 0) {
    signalfd_siginfo information{};
    if (::read(signals, &information, sizeof information) > 0) reap();
  }
  if (entries[0].revents != 0) obey(receive());
}

void mountOwn(const char* source, const char* target) {
  ::mkdir(target, 0755);
  if (::mount(source, target, source, 0, nullptr) != 0) giveUp(target);
}

int beFirst() {
  mountOwn("devtmpfs", "/dev");
  mountOwn("devpts", "/dev/pts");
  mountOwn("proc", "/proc");
  port = ::open(kPort, O_RDWR | O_CLOEXEC);
  if (port < 0) giveUp(kPort);
  const int signals = signalDescriptor();
  utsname names{};
  ::uname(&names);
  send('h', {names.release, names.machine});
  for (;;)
    serve(signals);
}

// --- Searching -------------------------------------------------------------------------------------------------------

/// But for the zero bytes that it begins with, of which memory is full.
std::string wide(std::string_view text) {
  std::string wide;
  for (const char unit : text)
    wide += std::string(wide.empty() ? 0 : 3, '\0') + unit;
  return wide;
}

std::string base64(std::string_view text) {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string coded;
  for (; text.size() >= 3; text.remove_prefix(3)) {
    const auto byte = [&](std::size_t at) { return static_cast<std::uint32_t>(static_cast<unsigned char>(text[at])); };
    const std::uint32_t group = byte(0) << 16U | byte(1) << 8U | byte(2);
    for (const unsigned shift : {18U, 12U, 6U, 0U})
      coded += kAlphabet[(group >> shift) & 63U];
  }
  return coded;
}

std::size_t countIn(std::string_view memory, std::string_view word) {
  std::size_t count = 0;
  for (std::size_t at = memory.find(word); at != std::string_view::npos; at = memory.find(word, at + 1))
    ++count;
  return count;
}

/// All that a process has of memory of its own or of files.
std::string memoryOf(const std::string& pid) {
  std::string all;
  const int fd = ::open(("/proc/" + pid + "/mem").c_str(), O_RDONLY);
  std::FILE* const maps = std::fopen(("/proc/" + pid + "/maps").c_str(), "r");
  if (fd < 0 || maps == nullptr) giveUp("the memory of " + pid);
  unsigned long begin = 0, end = 0;
  char readable = 0;
  while (std::fscanf(maps, "%lx-%lx %c%*[^\n]", &begin, &end, &readable) == 3) {
    if (readable != 'r') continue;
    std::string piece(end - begin, '\0');
    const ssize_t got = ::pread64(fd, piece.data(), piece.size(), static_cast<off64_t>(begin));
    all += piece.substr(0, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  }
  std::fclose(maps);
  ::close(fd);
  return all;
}

int search(const std::string& pid) {
  const std::string memory = memoryOf(pid);
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), stdin) != nullptr) {
    const std::string word(line.data(), std::strcspn(line.data(), "\n"));
    std::printf("%zu %zu %zu\n", countIn(memory, word), countIn(memory, wide(word)), countIn(memory, base64(word)));
  }
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count == 3 && std::string_view(arguments[1]) == "search") return search(arguments[2]);
  return beFirst();
}
