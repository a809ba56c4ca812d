// The serial driver on a pseudo-terminal: the port opens the slave side by
// its path, the test plays the printer on the master side and reads the line
// settings back from the slave.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/wall_clock.h"

namespace {

using vorn::test::ms_since;
using Clock = vorn::test::WallClock;

using Bytes = std::vector<uint8_t>;

class SerialPty : public ::testing::Test {
 protected:
  SerialPty() {
    char name[128] = {};
    EXPECT_EQ(openpty(&master_, &slave_, name, nullptr, nullptr), 0);
    path_ = name;
  }
  ~SerialPty() override {
    vorn_io_port_destroy(port_);
    close(master_);
    close(slave_);
  }

  std::string uri(const char* rate = "9600") const {
    return "vorn:/dev/bus/COM/" + path_ + "?baudrate=" + rate;
  }
  int32_t open(const char* rate = "9600") {
    EXPECT_EQ(vorn_io_port_creator(&port_, uri(rate).c_str()), 0);
    return vorn_io_open(port_);
  }
  // The line takes new timeouts at open (or after a quick read).
  void reopen_with(uint32_t interval, uint32_t read_constant, uint32_t write_constant = 2000) {
    ASSERT_EQ(vorn_io_set_timeout(port_, interval, 0, read_constant, 0, write_constant, 2000), 0);
    ASSERT_EQ(vorn_io_close(port_), 0);
    ASSERT_EQ(vorn_io_open(port_), 0);
  }
  termios slave_settings() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(slave_, &settings), 0);
    return settings;
  }
  void send(const Bytes& bytes) const {
    EXPECT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // What the port wrote, waiting up to two seconds for `count` bytes.
  Bytes receive(size_t count) const {
    Bytes bytes;
    const auto start = Clock::now();
    while (bytes.size() < count && ms_since(start) < 2000) {
      pollfd p{master_, POLLIN, 0};
      uint8_t chunk[4096];
      ssize_t n = poll(&p, 1, 50) > 0 ? read(master_, chunk, sizeof chunk) : 0;
      if (n > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    }
    return bytes;
  }
  std::string read_text() {
    uint8_t buffer[16] = {};
    uint32_t transferred = 0;
    EXPECT_EQ(vorn_io_read(port_, buffer, 0, sizeof buffer, &transferred), 0);
    return std::string(buffer, buffer + transferred);
  }

  int master_ = -1, slave_ = -1;
  std::string path_;
  VORN_PORT port_ = nullptr;
};

TEST_F(SerialPty, OpenSetsTheLineTo8N1WithoutFlowControlAtTheBaudRate) {
  // From a line set up for something else entirely.
  termios before = slave_settings();
  before.c_cflag = (before.c_cflag & ~(CSIZE | CLOCAL)) | CS7 | PARENB | CSTOPB | CRTSCTS;
  before.c_iflag |= IXON | IXOFF | ICRNL;
  before.c_lflag |= ICANON | ECHO;
  before.c_oflag |= OPOST;
  cfsetspeed(&before, B300);
  ASSERT_EQ(tcsetattr(slave_, TCSANOW, &before), 0);
  ASSERT_EQ(open("1200"), 0);
  termios after = slave_settings();
  EXPECT_EQ(std::pair(cfgetospeed(&after), cfgetispeed(&after)),
            std::pair(speed_t{B1200}, speed_t{B1200}));
  EXPECT_EQ(after.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS | CLOCAL | CREAD),
            static_cast<tcflag_t>(CS8 | CLOCAL | CREAD));
  EXPECT_EQ(after.c_iflag & (IXON | IXOFF | ICRNL), 0u);
  EXPECT_EQ(after.c_lflag & (ICANON | ECHO), 0u);
  EXPECT_EQ(after.c_oflag & OPOST, 0u);
}

TEST_F(SerialPty, BytesGoBothWaysUnchanged) {
  ASSERT_EQ(open(), 0);
  // Every byte value: line ends, XON/XOFF and control characters too.
  Bytes data(256), back(256);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
  uint32_t total = 0;
  ASSERT_EQ(vorn_io_write(port_, data.data(), 0, 256, &total), 0);
  EXPECT_EQ(receive(data.size()), data);
  send(data);
  total = 0;
  for (uint32_t got = 1; got > 0 && total < back.size(); total += got)
    ASSERT_EQ(vorn_io_read(port_, back.data(), total, 256 - total, &got), 0);
  EXPECT_EQ(back, data);
}

TEST_F(SerialPty, ReadEndsWhenTheLineFallsSilentForTheInterval) {
  ASSERT_EQ(open(), 0);
  reopen_with(100, 3000);
  // A gap shorter than the interval, then one longer.
  std::thread printer([this] {
    send({'a', 'b'});
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    send({'c', 'd'});
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    send({'e', 'f'});
  });
  const auto start = Clock::now();
  EXPECT_EQ(read_text(), "abcd");
  EXPECT_LT(ms_since(start), 380) << "the interval, not the read constant, ended the read";
  printer.join();
  EXPECT_EQ(read_text(), "ef");
}

TEST_F(SerialPty, ReadexistTakesWhatCameAfterOpenAndLeavesTheReadBudgetAsItWas) {
  // Raw, so that bytes waiting before open would be readable if kept.
  termios raw = slave_settings();
  cfmakeraw(&raw);
  ASSERT_EQ(tcsetattr(slave_, TCSANOW, &raw), 0);
  send({'o', 'l', 'd'});
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_EQ(open(), 0);
  reopen_with(20, 300);
  send({0x10, 0x04, 0x01});
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  uint8_t buffer[8] = {};
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 2, sizeof buffer, &transferred), 0);
  EXPECT_EQ(Bytes(buffer + 2, buffer + 2 + transferred), (Bytes{0x10, 0x04, 0x01}));
  // Nothing there: the short timeouts give up at once (6 bytes + 10 ms).
  auto start = Clock::now();
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 2, sizeof buffer, &transferred), 0);
  EXPECT_EQ(transferred, 0u);
  EXPECT_LT(ms_since(start), 200);
  // Afterwards a silent line holds a read for the whole read constant again.
  start = Clock::now();
  EXPECT_EQ(read_text(), "");
  EXPECT_GE(ms_since(start), 290);
  EXPECT_LT(ms_since(start), 1500);
}

// A write the line does not take runs out of its time. Zero timeouts set no
// limit on the line: then a kill from another thread ends such a write, or a
// read still waiting for most of its bytes, with what moved so far.
TEST_F(SerialPty, StuckTransferEndsByItsTimeoutOrByAKill) {
  const struct {
    bool writing, kill;
    int32_t result;
  } rows[] = {{true, false, VORN_ERR_IO_WRITE_TIMEOUT}, {true, true, 0}, {false, true, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.writing << row.kill);
    const bool writing = row.writing;
    vorn_io_port_destroy(port_);
    ASSERT_EQ(open(), 0);
    row.kill ? reopen_with(0, 0, 0) : reopen_with(10, 2000, 100);
    Bytes data(1 << 20, 0x55);
    uint32_t done = 0;
    Clock::time_point killed_at = Clock::now();
    std::thread killer([&] {
      if (!row.kill) return;
      // Under way once the written bytes reach the master side, or once the
      // read took the two bytes sent to it; a moment later it waits.
      if (!writing) send({'a', 'b'});
      int queued = writing ? 0 : 1;
      while (ioctl(writing ? master_ : slave_, FIONREAD, &queued) == 0 &&
             (queued == 0) == writing) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      killed_at = Clock::now();
      EXPECT_EQ(vorn_io_kill(port_), 0);
    });
    EXPECT_EQ(writing ? vorn_io_write(port_, data.data(), 0, 1 << 20, &done)
                      : vorn_io_read(port_, data.data(), 0, 16, &done),
              row.result);
    const Clock::time_point returned_at = Clock::now();
    killer.join();
    EXPECT_LT(returned_at - killed_at, std::chrono::seconds(2));
    if (writing) {
      EXPECT_GT(done, 0u);
      EXPECT_LT(done, data.size());
    } else {
      EXPECT_EQ(Bytes(data.begin(), data.begin() + done), (Bytes{'a', 'b'}));
    }
  }
}

TEST_F(SerialPty, OpenFailuresGiveTheirCodes) {
  ASSERT_EQ(open(), 0);
  VORN_PORT other = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&other, uri().c_str()), 0);
  EXPECT_EQ(vorn_io_open(other), EBUSY) << "the line is not shared";
  ASSERT_EQ(vorn_io_set_uri(other, "vorn:/dev/bus/COM//dev/vorn-no-such-tty?baudrate=9600"), 0);
  EXPECT_EQ(vorn_io_open(other), ENOENT);
  char name[] = "/tmp/vorn-not-a-tty-XXXXXX";
  close(mkstemp(name));
  ASSERT_EQ(
      vorn_io_set_uri(other, (std::string("vorn:/dev/bus/BSP/") + name + "?baudrate=9600").c_str()),
      0);
  EXPECT_EQ(vorn_io_open(other), VORN_ERR_IO_GET_ATTRIBUTES);
  EXPECT_EQ(vorn_io_port_destroy(other), 0);
  unlink(name);
}

}  // namespace
