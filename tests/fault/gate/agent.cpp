// The stand-in agent of the gate: what it is told stands in /run/agent, as files, so that no process is left running.
//
//   agent start | stop | load PLUG-IN | unload PLUG-IN
//
// It is started a hundred thousand times. So it does without the C library, whose start asks the processor what it can
// do: on a virtual machine, where each such question goes to the host, that takes longer than all the rest.

#include <cstddef>
#include <fcntl.h>
#include <sys/syscall.h>

namespace {

long systemCall(long number, long first, long second = 0, long third = 0) {
  long result = 0;
  asm volatile("syscall" : "=a"(result) : "a"(number), "D"(first), "S"(second), "d"(third) : "rcx", "r11", "memory");
  return result;
}

long addressOf(const void* memory) {
  return reinterpret_cast<long>(memory);
}

/// Text in a buffer of its own, cut off where that ends.
class Text {
 public:
  explicit Text(const char* begin) { add(begin); }
  Text& add(const char* more) {
    for (; *more != '\0' && m_length + 1 < sizeof m_text; ++more)
      m_text[m_length++] = *more;
    m_text[m_length] = '\0';
    return *this;
  }
  [[nodiscard]] const char* text() const { return m_text; }
  [[nodiscard]] long length() const { return static_cast<long>(m_length); }

 private:
  char m_text[256];  // NOLINT: there is no std::array without the library's checks
  std::size_t m_length = 0;
};

bool bSame(const char* one, const char* other) {
  for (; *one == *other; ++one, ++other) {
    if (*one == '\0') return true;
  }
  return false;
}

Text inDirectory(const char* name) {
  return Text("/run/agent/").add(name);
}

bool append(const Text& path, const Text& text) {
  const long fd = systemCall(SYS_open, addressOf(path.text()), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  return fd >= 0 && systemCall(SYS_write, fd, addressOf(text.text()), text.length()) == text.length();
}

bool removeFile(const Text& path) {
  return systemCall(SYS_unlink, addressOf(path.text())) == 0;
}

int act(int count, char** arguments) {
  if (count < 2) return 2;
  const char* const verb = arguments[1];
  const char* const plugIn = count > 2 ? arguments[2] : "";
  systemCall(SYS_umask, 022);
  if (!append(inDirectory("calls"), Text(verb).add(count > 2 ? " " : "").add(plugIn).add("\n"))) return 1;
  if (bSame(verb, "start")) return append(inDirectory("running"), Text("")) ? 0 : 1;
  if (bSame(verb, "stop")) return removeFile(inDirectory("running")) ? 0 : 1;
  if (bSame(verb, "load")) return append(inDirectory("plugin-").add(plugIn), Text("")) ? 0 : 1;
  if (bSame(verb, "unload")) return removeFile(inDirectory("plugin-").add(plugIn)) ? 0 : 1;
  return 2;
}

}  // namespace

/// Takes the stack as the kernel gives it: the count of arguments, and pointers to them.
extern "C" [[noreturn]] __attribute__((used)) void begin(long* stack) {
  for (;;)
    systemCall(SYS_exit_group, act(static_cast<int>(*stack), reinterpret_cast<char**>(stack + 1)));
}

asm(".globl _start\n"
    "_start:\n"
    "  xor %ebp, %ebp\n"
    "  mov %rsp, %rdi\n"
    "  and $-16, %rsp\n"
    "  call begin\n");
