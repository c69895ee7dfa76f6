#include "provision/terminal_modes.h"

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace kelt::provision {
namespace {

class TerminalModes : public ::testing::Test {
 protected:
  void SetUp() override {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(::openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    m_master.reset(master);
    m_slave.reset(slave);
  }

  termio state() const {
    termio now{};
    EXPECT_EQ(::ioctl(m_slave.get(), TCGETA, &now), 0);
    return now;
  }

  base::UniqueFd m_master;
  base::UniqueFd m_slave;
};

bool bSame(const termio& a, const termio& b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
         a.c_line == b.c_line && std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

TEST_F(TerminalModes, SavesTheStateAsItIs) {
  const termio before = state();
  EXPECT_EQ(TtySave(m_slave.get()), 0);
  EXPECT_TRUE(bSame(tioSave, before));
  EXPECT_TRUE(bSame(state(), before));
}

TEST_F(TerminalModes, SwitchesEchoOffAndNothingElse) {
  termio expected = state();
  expected.c_lflag = static_cast<unsigned short>(expected.c_lflag & ~(ECHO | ECHOE | ECHOK | ECHONL));
  EXPECT_NE(state().c_lflag & ECHO, 0);
  EXPECT_EQ(TtyNoEcho(m_slave.get()), 0);
  EXPECT_TRUE(bSame(state(), expected));
  EXPECT_NE(state().c_lflag & ICANON, 0);
  EXPECT_NE(state().c_lflag & ISIG, 0);
}

TEST_F(TerminalModes, SwitchesTheReceiverOn) {
  termio deaf = state();
  deaf.c_cflag = static_cast<unsigned short>(deaf.c_cflag & ~static_cast<unsigned>(CREAD));
  ASSERT_EQ(::ioctl(m_slave.get(), TCSETA, &deaf), 0);
  EXPECT_EQ(TtyNoEcho(m_slave.get()), 0);
  EXPECT_NE(state().c_cflag & CREAD, 0);
}

TEST_F(TerminalModes, RestoresEveryFieldOfAnUnusualTerminal) {
  termio unusual = state();
  unusual.c_iflag ^= IXANY;
  unusual.c_oflag ^= ONLCR;
  unusual.c_lflag = static_cast<unsigned short>(unusual.c_lflag & ~ECHOE);
  unusual.c_cc[VERASE] = 'h';
  unusual.c_cc[VKILL] = 'u';
  ASSERT_EQ(::ioctl(m_slave.get(), TCSETA, &unusual), 0);
  const termio before = state();
  EXPECT_EQ(TtySave(m_slave.get()), 0);
  EXPECT_EQ(TtyNoEcho(m_slave.get()), 0);
  EXPECT_FALSE(bSame(state(), before));
  EXPECT_EQ(TtyRestore(m_slave.get()), 0);
  EXPECT_TRUE(bSame(state(), before));
}

TEST_F(TerminalModes, FailsOnWhatIsNoTerminal) {
  const base::UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  EXPECT_EQ(TtySave(null.get()), -1);
  EXPECT_EQ(TtyNoEcho(null.get()), -1);
  EXPECT_EQ(TtyRestore(null.get()), -1);
}

}  // namespace
}  // namespace kelt::provision
