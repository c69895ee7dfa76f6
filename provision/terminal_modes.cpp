#include "provision/terminal_modes.h"

namespace kelt::provision {

termio tioSave{};
termio tioMode{};

int TtySave(int fd) {
  return ::ioctl(fd, TCGETA, &tioSave);
}

int TtyNoEcho(int fd) {
  if (::ioctl(fd, TCGETA, &tioMode) < 0) return -1;
  constexpr unsigned int kEcho = ECHO | ECHOE | ECHOK | ECHONL;
  tioMode.c_lflag = static_cast<unsigned short>(tioMode.c_lflag & ~kEcho);
  // A line whose receiver is off would never give the answer that is waited for.
  tioMode.c_cflag = static_cast<unsigned short>(tioMode.c_cflag | CREAD);
  // At once, not after pending output: what is typed from now on must not show.
  return ::ioctl(fd, TCSETA, &tioMode);
}

int TtyRestore(int fd) {
  ::ioctl(fd, TCGETA, &tioMode);
  // After what is still to be written: that was meant for the terminal as it is now.
  return ::ioctl(fd, TCSETAW, &tioSave);
}

}  // namespace kelt::provision
