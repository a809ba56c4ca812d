// Ports used from several threads at once: a kill that stops a running write
// on another thread, and ports created and destroyed on many threads
// (the process-wide lock and count). Run under ThreadSanitizer too.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vorn/vorn.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "io/port_lock.h"

namespace {

// A pipe opened as a parallel port (an existing file), with a thread at its
// other end that moves bytes a few at a time. That thread kills the port
// once some bytes have moved and keeps them moving until the transfer comes
// back: a kill is seen before the next attempt, and an attempt waits for the
// device for as long as the budget allows.
class PipePort : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(mkdtemp(dir_), nullptr);
    path_ = std::string(dir_) + "/pipe";
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    ASSERT_EQ(vorn_io_port_creator(&port_, ("vorn:/dev/bus/LPT/" + path_).c_str()), VORN_OK);
    ASSERT_EQ(vorn_io_open(port_), VORN_OK);
    // Budgets of minutes: only the kill ends the transfers within the test.
    ASSERT_EQ(vorn_io_set_timeout(port_, 0, 0, 600000, 100, 600000, 1000), VORN_OK);
    other_end_ = open(path_.c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(other_end_, 0);
  }
  void TearDown() override {
    if (port_ != nullptr) {
      EXPECT_EQ(vorn_io_port_destroy(port_), VORN_OK);
    }
    if (other_end_ >= 0) close(other_end_);
    unlink(path_.c_str());
    rmdir(dir_);
  }

  // Runs `transfer` while the other end calls `move` (which moves a few
  // bytes and says how many), killing the port after `kill_after` bytes.
  // (Parallel reads do not look at the kill mark; network reads do.)
  template <typename Transfer, typename Move>
  void kill_while_running(Transfer transfer, Move move, size_t kill_after) {
    std::atomic<bool> returned = false;
    std::thread other_end([&] {
      size_t moved = 0;
      bool killed = false;
      while (!returned) {
        moved += move();
        if (!killed && moved >= kill_after) {
          EXPECT_EQ(vorn_io_kill(port_), VORN_OK);
          killed = true;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
    transfer();
    returned = true;
    other_end.join();
  }

  char dir_[32] = "/tmp/vorn-kill-XXXXXX";
  std::string path_;
  VORN_PORT port_ = nullptr;
  int other_end_ = -1;
};

TEST_F(PipePort, KillFromAnotherThreadEndsAWriteWithThePartialCount) {
  std::vector<uint8_t> data(8 << 20, 0x41);
  uint32_t done = 0;
  kill_while_running(
      [&] {
        EXPECT_EQ(vorn_io_write(port_, data.data(), 0, static_cast<uint32_t>(data.size()), &done),
                  VORN_OK);
      },
      [&] {
        uint8_t sink[4096];
        const ssize_t n = read(other_end_, sink, sizeof sink);
        return n > 0 ? static_cast<size_t>(n) : 0;
      },
      64 << 10);
  EXPECT_GT(done, 0u);
  EXPECT_LT(done, data.size());
}

TEST(PortThreads, PortsCreatedAndDestroyedOnManyThreadsKeepTheCount) {
  const char* texts[] = {"COM1,9600", "NET,192.168.1.100", "LPT1", "vorn:/dev/bus/LPT/LPT2"};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        VORN_PORT port = nullptr;
        ASSERT_EQ(vorn_io_port_creator(&port, texts[(t + i) % 4]), VORN_OK);
        vorn_io_kill(port);
        ASSERT_EQ(vorn_io_port_destroy(port), VORN_OK);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(vorn::io::port_count(), 0u);
  EXPECT_FALSE(vorn::io::port_lock_exists());
}

}  // namespace
