// What QEMU's user-mode emulation lacks of the terminal: it refuses the calls with a `termio` record. The C library of
// the emulated system loads this into every program there, to answer them as the kernel does: the record holds the
// lower 16 bits of each word of flags, and setting it leaves the upper ones and the further control characters.

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <dlfcn.h>
#include <iterator>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

// The C library has the call under two names, by the size of times. Neither is declared here, as each is defined below.
extern "C" {
int answer(int fd, unsigned long request, ...) asm("ioctl");
int answerForWideTimes(int fd, unsigned long request, ...) asm("__ioctl_time64");
}

namespace {

/// The kernel's own record, which is not the C library's `termios`. The library's calls are not used, as they report an
/// error where a terminal did not take every mode; these do not.
struct Modes {
  std::uint32_t c_iflag, c_oflag, c_cflag, c_lflag;
  std::uint8_t c_cc[19];
  std::uint8_t c_line;
  std::uint32_t c_ispeed, c_ospeed;
};
constexpr unsigned long kGet = _IOR('t', 19, Modes);
constexpr unsigned long kSet = _IOW('t', 20, Modes);

std::uint16_t lower(std::uint32_t flags) {
  return static_cast<std::uint16_t>(flags & 0xffffU);
}

std::uint32_t replaceLower(std::uint32_t flags, std::uint16_t by) {
  return (flags & ~0xffffU) | by;
}

int get(int fd, termio& record) {
  Modes modes{};
  if (::syscall(SYS_ioctl, fd, kGet, &modes) != 0) return -1;
  record.c_iflag = lower(modes.c_iflag);
  record.c_oflag = lower(modes.c_oflag);
  record.c_cflag = lower(modes.c_cflag);
  record.c_lflag = lower(modes.c_lflag);
  record.c_line = modes.c_line;
  std::copy_n(modes.c_cc, std::size(record.c_cc), record.c_cc);
  return 0;
}

/// At once with 0 for `when`, after the output is out with 1, and with the input discarded too with 2.
int set(int fd, unsigned long when, const termio& record) {
  Modes modes{};
  if (::syscall(SYS_ioctl, fd, kGet, &modes) != 0) return -1;
  modes.c_iflag = replaceLower(modes.c_iflag, record.c_iflag);
  modes.c_oflag = replaceLower(modes.c_oflag, record.c_oflag);
  modes.c_cflag = replaceLower(modes.c_cflag, record.c_cflag);
  modes.c_lflag = replaceLower(modes.c_lflag, record.c_lflag);
  modes.c_line = record.c_line;
  std::copy_n(record.c_cc, std::size(record.c_cc), modes.c_cc);
  return static_cast<int>(::syscall(SYS_ioctl, fd, kSet + when, &modes));
}

int dispatch(int fd, unsigned long request, void* argument) {
  switch (request) {
    case TCGETA:
      return get(fd, *static_cast<termio*>(argument));
    case TCSETA:
      return set(fd, 0, *static_cast<const termio*>(argument));
    case TCSETAW:
      return set(fd, 1, *static_cast<const termio*>(argument));
    case TCSETAF:
      return set(fd, 2, *static_cast<const termio*>(argument));
    default:
      break;
  }
  const auto next = reinterpret_cast<int (*)(int, unsigned long, ...)>(::dlsym(RTLD_NEXT, "__ioctl_time64"));
  return next(fd, request, argument);
}

void* argumentOf(va_list arguments) {
  return va_arg(arguments, void*);
}

}  // namespace

int answer(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = argumentOf(arguments);
  va_end(arguments);
  return dispatch(fd, request, argument);
}

int answerForWideTimes(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = argumentOf(arguments);
  va_end(arguments);
  return dispatch(fd, request, argument);
}
