// The serial driver on a pseudo-terminal: the port opens the slave side by
// its path, the test plays the printer on the master side and reads the line
// settings back from the slave.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

long ms_since(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

class Pty {
 public:
  Pty() {
    char name[128] = {};
    EXPECT_EQ(openpty(&master_, &slave_, name, nullptr, nullptr), 0);
    path_ = name;
  }
  ~Pty() {
    close(master_);
    close(slave_);
  }
  const std::string& path() const { return path_; }
  int master() const { return master_; }
  termios slave_settings() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(slave_, &settings), 0);
    return settings;
  }
  void set_slave_settings(const termios& settings) const {
    EXPECT_EQ(tcsetattr(slave_, TCSANOW, &settings), 0);
  }
  void send(const std::vector<uint8_t>& bytes) const {
    EXPECT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // What the port wrote, waiting up to `wait_ms` for `count` bytes.
  std::vector<uint8_t> receive(size_t count, int wait_ms = 2000) const {
    std::vector<uint8_t> bytes;
    const auto start = Clock::now();
    while (bytes.size() < count && ms_since(start) < wait_ms) {
      pollfd p{master_, POLLIN, 0};
      if (poll(&p, 1, 50) <= 0) continue;
      uint8_t chunk[4096];
      ssize_t n = read(master_, chunk, sizeof chunk);
      if (n > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    }
    return bytes;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
  std::string path_;
};

// A port on the pseudo-terminal's slave side, destroyed with the object.
class SerialPty : public ::testing::Test {
 protected:
  ~SerialPty() override {
    if (port_ != nullptr) vorn_io_port_destroy(port_);
  }
  int32_t open(const char* type = "COM", const char* rate = "9600") {
    std::string uri =
        std::string("vorn:/dev/bus/") + type + "/" + pty_.path() + "?baudrate=" + rate;
    int32_t result = vorn_io_port_creator(&port_, uri.c_str());
    if (result != 0) return result;
    return vorn_io_open(port_);
  }
  // Small budgets so that silence costs little: read constant `read_constant`,
  // read interval `interval`, no per-byte allowance.
  void set_read_budget(uint32_t interval, uint32_t read_constant) {
    ASSERT_EQ(vorn_io_set_timeout(port_, interval, 0, read_constant, 10, 2000, 2000), 0);
    // The line takes new timeouts at open (or after a quick read).
    ASSERT_EQ(vorn_io_close(port_), 0);
    ASSERT_EQ(vorn_io_open(port_), 0);
  }

  Pty pty_;
  VORN_PORT port_ = nullptr;
};

TEST_F(SerialPty, OpenSetsTheLineTo8N1WithoutFlowControlAtTheBaudRate) {
  struct Row {
    const char* rate;
    speed_t speed;
  };
  const Row rows[] = {{"1200", B1200}, {"9600", B9600}, {"38400", B38400}, {"115200", B115200}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.rate);
    // Start from a line set up for something else entirely.
    termios before = pty_.slave_settings();
    before.c_cflag = (before.c_cflag & ~(CSIZE | CLOCAL)) | CS7 | PARENB | CSTOPB | CRTSCTS;
    before.c_iflag |= IXON | IXOFF | ICRNL;
    before.c_lflag |= ICANON | ECHO;
    before.c_oflag |= OPOST;
    cfsetispeed(&before, B300);
    cfsetospeed(&before, B300);
    pty_.set_slave_settings(before);

    ASSERT_EQ(open("COM", row.rate), 0);
    termios after = pty_.slave_settings();
    EXPECT_EQ(cfgetospeed(&after), row.speed);
    EXPECT_EQ(cfgetispeed(&after), row.speed);
    EXPECT_EQ(after.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(after.c_cflag & (PARENB | CSTOPB | CRTSCTS), 0u);
    EXPECT_EQ(after.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
    EXPECT_EQ(after.c_iflag & (IXON | IXOFF | ICRNL), 0u);
    EXPECT_EQ(after.c_lflag & (ICANON | ECHO), 0u);
    EXPECT_EQ(after.c_oflag & OPOST, 0u);
    ASSERT_EQ(vorn_io_port_destroy(port_), 0);
    port_ = nullptr;
  }
}

TEST_F(SerialPty, BytesGoBothWaysUnchanged) {
  ASSERT_EQ(open(), 0);
  // Every byte value twice: line ends, XON/XOFF and control characters too.
  std::vector<uint8_t> data(512);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
  uint32_t transferred = 0;
  ASSERT_EQ(vorn_io_write(port_, data.data(), 0, static_cast<uint32_t>(data.size()), &transferred),
            0);
  EXPECT_EQ(transferred, data.size());
  EXPECT_EQ(pty_.receive(data.size()), data);

  pty_.send(data);
  std::vector<uint8_t> back(data.size());
  uint32_t total = 0;
  for (int reads = 0; reads < 20 && total < back.size(); ++reads) {
    uint32_t got = 0;
    ASSERT_EQ(
        vorn_io_read(port_, back.data(), total, static_cast<uint32_t>(back.size()) - total, &got),
        0);
    total += got;
  }
  EXPECT_EQ(back, data);
}

TEST_F(SerialPty, ReadOfASilentLineEndsAfterTheReadConstantWithNothing) {
  ASSERT_EQ(open(), 0);
  set_read_budget(20, 150);
  uint8_t buffer[16];
  uint32_t transferred = 99;
  const auto start = Clock::now();
  EXPECT_EQ(vorn_io_read(port_, buffer, 0, sizeof buffer, &transferred), 0);
  const long elapsed = ms_since(start);
  EXPECT_EQ(transferred, 0u);
  EXPECT_GE(elapsed, 140);
  EXPECT_LT(elapsed, 1500);
}

TEST_F(SerialPty, ReadEndsWhenTheLineFallsSilentAfterSomeBytes) {
  ASSERT_EQ(open(), 0);
  set_read_budget(100, 3000);
  // Two bytes, a gap shorter than the interval, two more, then a gap longer
  // than the interval before the last two.
  std::thread printer([this] {
    pty_.send({'a', 'b'});
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    pty_.send({'c', 'd'});
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    pty_.send({'e', 'f'});
  });
  uint8_t buffer[16] = {};
  uint32_t transferred = 0;
  const auto start = Clock::now();
  EXPECT_EQ(vorn_io_read(port_, buffer, 0, sizeof buffer, &transferred), 0);
  const long elapsed = ms_since(start);
  EXPECT_EQ(std::string(buffer, buffer + transferred), "abcd");
  EXPECT_LT(elapsed, 380) << "the interval, not the read constant, ended the read";
  printer.join();
  EXPECT_EQ(vorn_io_read(port_, buffer, 0, sizeof buffer, &transferred), 0);
  EXPECT_EQ(std::string(buffer, buffer + transferred), "ef");
}

TEST_F(SerialPty, ReadexistTakesWhatIsThereAndLeavesTheReadBudgetAsItWas) {
  ASSERT_EQ(open(), 0);
  set_read_budget(20, 300);
  pty_.send({0x10, 0x04, 0x01});
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  uint8_t buffer[8] = {};
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 2, sizeof buffer, &transferred), 0);
  EXPECT_EQ(transferred, 3u);
  EXPECT_EQ(buffer[2], 0x10);
  EXPECT_EQ(buffer[4], 0x01);

  // Nothing there: the short timeouts give up at once (6 bytes + 10 ms).
  auto start = Clock::now();
  EXPECT_EQ(vorn_io_readexist(port_, buffer, 2, sizeof buffer, &transferred), 0);
  EXPECT_EQ(transferred, 0u);
  EXPECT_LT(ms_since(start), 200);

  // Afterwards a read waits its whole read constant again.
  start = Clock::now();
  EXPECT_EQ(vorn_io_read(port_, buffer, 0, sizeof buffer, &transferred), 0);
  EXPECT_EQ(transferred, 0u);
  EXPECT_GE(ms_since(start), 290);
}

TEST_F(SerialPty, BytesWaitingBeforeOpenAreDiscarded) {
  termios raw = pty_.slave_settings();
  cfmakeraw(&raw);
  pty_.set_slave_settings(raw);
  pty_.send({'o', 'l', 'd'});
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_EQ(open(), 0);
  set_read_budget(20, 100);
  pty_.send({'n', 'e', 'w'});
  uint8_t buffer[8] = {};
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_read(port_, buffer, 0, sizeof buffer, &transferred), 0);
  EXPECT_EQ(std::string(buffer, buffer + transferred), "new");
}

TEST_F(SerialPty, WriteThatTheLineDoesNotTakeRunsOutOfTime) {
  ASSERT_EQ(open(), 0);
  ASSERT_EQ(vorn_io_set_timeout(port_, 10, 5, 2000, 0, 100, 2000), 0);
  ASSERT_EQ(vorn_io_close(port_), 0);
  ASSERT_EQ(vorn_io_open(port_), 0);
  // Nobody reads the master side, so the terminal's buffers fill up.
  std::vector<uint8_t> data(1 << 20, 0x55);
  uint32_t transferred = 0;
  const auto start = Clock::now();
  EXPECT_EQ(vorn_io_write(port_, data.data(), 0, static_cast<uint32_t>(data.size()), &transferred),
            VORN_ERR_IO_WRITE_TIMEOUT);
  EXPECT_GT(transferred, 0u);
  EXPECT_LT(transferred, data.size());
  EXPECT_LT(ms_since(start), 2000);
}

TEST_F(SerialPty, BspPortIsASerialPortLikeCom) {
  ASSERT_EQ(open("BSP", "19200"), 0);
  const termios settings = pty_.slave_settings();
  EXPECT_EQ(cfgetospeed(&settings), B19200);
  const uint8_t init[] = {0x1B, 0x40};
  uint32_t transferred = 0;
  ASSERT_EQ(vorn_io_write(port_, init, 0, sizeof init, &transferred), 0);
  EXPECT_EQ(pty_.receive(2), (std::vector<uint8_t>{0x1B, 0x40}));
  uint32_t values[6] = {};
  ASSERT_EQ(vorn_io_get_timeout(port_, values), 0);
  EXPECT_EQ(values[4], 2000u);
}

TEST_F(SerialPty, LineIsNotShared) {
  ASSERT_EQ(open(), 0);
  VORN_PORT second = nullptr;
  std::string uri = "vorn:/dev/bus/COM/" + pty_.path() + "?baudrate=9600";
  ASSERT_EQ(vorn_io_port_creator(&second, uri.c_str()), 0);
  EXPECT_EQ(vorn_io_open(second), EBUSY);
  EXPECT_EQ(vorn_io_port_destroy(second), 0);
}

TEST_F(SerialPty, MissingDeviceGivesTheSystemErrorAndStaysClosed) {
  std::string uri = "vorn:/dev/bus/COM//dev/vorn-no-such-tty?baudrate=9600";
  ASSERT_EQ(vorn_io_port_creator(&port_, uri.c_str()), 0);
  EXPECT_EQ(vorn_io_open(port_), ENOENT);
  uint8_t byte = 0;
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_write(port_, &byte, 0, 1, &transferred), VORN_ERR_IO_NOT_OPEN);
}

TEST_F(SerialPty, FileThatIsNoTerminalFailsReadingTheLineSettings) {
  char name[] = "/tmp/vorn-not-a-tty-XXXXXX";
  int fd = mkstemp(name);
  ASSERT_GE(fd, 0);
  close(fd);
  std::string uri = std::string("vorn:/dev/bus/COM/") + name + "?baudrate=9600";
  ASSERT_EQ(vorn_io_port_creator(&port_, uri.c_str()), 0);
  EXPECT_EQ(vorn_io_open(port_), VORN_ERR_IO_GET_ATTRIBUTES);
  EXPECT_EQ(vorn_io_close(port_), 0);
  unlink(name);
}

}  // namespace
