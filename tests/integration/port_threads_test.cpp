// Ports used from several threads at once: a kill that stops a stalled write
// on another thread, and ports created and destroyed on many threads
// (the process-wide lock and count). Run under ThreadSanitizer too.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
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

using Clock = std::chrono::steady_clock;

// A pipe opened as a parallel port (an existing file) whose other end never
// reads: once the pipe is full a write waits for the device, and with a
// budget of minutes only a kill from another thread can end it soon.
class PipePort : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(mkdtemp(dir_), nullptr);
    path_ = std::string(dir_) + "/pipe";
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    ASSERT_EQ(vorn_io_port_creator(&port_, ("vorn:/dev/bus/LPT/" + path_).c_str()), VORN_OK);
    ASSERT_EQ(vorn_io_open(port_), VORN_OK);
    ASSERT_EQ(vorn_io_set_timeout(port_, 0, 0, 600000, 0, 120000, 1000), VORN_OK);
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

  char dir_[32] = "/tmp/vorn-kill-XXXXXX";
  std::string path_;
  VORN_PORT port_ = nullptr;
  int other_end_ = -1;
};

TEST_F(PipePort, KillFromAnotherThreadEndsAStalledWriteWithThePartialCount) {
  std::vector<uint8_t> data(8 << 20, 0x41);
  uint32_t done = 0;
  Clock::time_point killed_at;
  std::thread killer([&] {
    // Once bytes arrive the write runs; a moment later it waits on a full pipe.
    int queued = 0;
    while (ioctl(other_end_, FIONREAD, &queued) == 0 && queued == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    killed_at = Clock::now();
    EXPECT_EQ(vorn_io_kill(port_), VORN_OK);
  });
  EXPECT_EQ(vorn_io_write(port_, data.data(), 0, static_cast<uint32_t>(data.size()), &done),
            VORN_OK);
  const Clock::time_point returned_at = Clock::now();
  killer.join();
  EXPECT_LT(returned_at - killed_at, std::chrono::seconds(2));
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
