// The USB backend's transfers on a real overlapped handle: a named pipe
// stands in for a printer's interface path, since Wine has no USB devices.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "platform/usb.h"

namespace vorn::test {
namespace {

using platform::Attempt;
using platform::native_usb;

class UsbTransfer : public testing::Test {
 protected:
  void SetUp() override {
    const std::string name = "\\\\.\\pipe\\vorn-usb-" + std::to_string(GetCurrentProcessId());
    server_ = CreateNamedPipeA(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                               4096, 4096, 0, nullptr);
    ASSERT_NE(server_, INVALID_HANDLE_VALUE);
    ASSERT_EQ(native_usb().open(name.c_str(), &printer_), 0);
  }
  void TearDown() override {
    if (printer_ != platform::kNoDevice) native_usb().close(printer_);
    CloseHandle(server_);
  }
  void answer(const std::string& bytes) {
    DWORD done = 0;
    ASSERT_TRUE(WriteFile(server_, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr));
  }
  Attempt read(char* buffer, uint32_t wait_ms) {
    return native_usb().read(printer_, reinterpret_cast<uint8_t*>(buffer), 8, wait_ms);
  }

  HANDLE server_ = INVALID_HANDLE_VALUE;
  platform::DeviceHandle printer_ = platform::kNoDevice;
};

TEST_F(UsbTransfer, BytesMoveBothWaysAndASilentDeviceTimesOut) {
  const Attempt written =
      native_usb().write(printer_, reinterpret_cast<const uint8_t*>("abc"), 3, 1000);
  EXPECT_EQ(written.error, 0);
  EXPECT_EQ(written.done, 3u);
  char got[8] = {};
  DWORD done = 0;
  ASSERT_TRUE(ReadFile(server_, got, 3, &done, nullptr));
  EXPECT_EQ(std::string(got, done), "abc");

  char buffer[8] = {};
  Attempt silent = read(buffer, 20);
  EXPECT_EQ(silent.error, 0);
  EXPECT_EQ(silent.done, 0u);
  EXPECT_TRUE(silent.timed_out);

  answer("xy");
  const Attempt answered = read(buffer, 1000);
  EXPECT_EQ(answered.error, 0);
  EXPECT_FALSE(answered.timed_out);
  EXPECT_EQ(std::string(buffer, answered.done), "xy");
}

// A cancel ends a read that would wait 60 s, and every later transfer ends
// at once with nothing moved and no error.
TEST_F(UsbTransfer, CancelEndsTheRunningTransferAndEveryLaterOne) {
  char buffer[8] = {};
  Attempt waiting;
  const auto start = std::chrono::steady_clock::now();
  std::atomic<bool> reading{false};
  std::thread reader([&] {
    reading = true;
    waiting = read(buffer, 60000);
  });
  // Gives the reader time to be inside its wait, so that the cancel meets a
  // running transfer (one that comes first is covered by the later reads).
  while (!reading) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  native_usb().cancel(printer_);
  reader.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(waiting.error, 0);
  EXPECT_EQ(waiting.done, 0u);
  EXPECT_FALSE(waiting.timed_out);

  answer("late");
  const Attempt later = read(buffer, 1000);
  const Attempt write =
      native_usb().write(printer_, reinterpret_cast<const uint8_t*>("z"), 1, 1000);
  for (const Attempt& attempt : {later, write}) {
    EXPECT_EQ(attempt.error, 0);
    EXPECT_EQ(attempt.done, 0u);
    EXPECT_FALSE(attempt.timed_out);
  }
}

}  // namespace
}  // namespace vorn::test
