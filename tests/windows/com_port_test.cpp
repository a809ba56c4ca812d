// The serial driver on a COM port of Wine whose other end echoes every byte
// (com_port_peer.py). Without such a port (VORN_COM_PORT unset) the tests
// have nothing to talk to and are skipped.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace vorn::test {
namespace {

TEST(ComPort, BytesGoOutAndComeBackThroughTheLine) {
  const char* name = std::getenv("VORN_COM_PORT");
  if (name == nullptr) GTEST_SKIP() << "no COM port with an echoing peer";
  VORN_PORT port = nullptr;
  const std::string uri = std::string("vorn:/dev/bus/COM/") + name + "?baudrate=9600";
  ASSERT_EQ(vorn_io_port_creator(&port, uri.c_str()), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  uint32_t timeouts[6] = {};
  ASSERT_EQ(vorn_io_get_timeout(port, timeouts), VORN_OK);
  EXPECT_EQ(timeouts[4], 2000u) << "the write constant computed for 9600 baud";

  const uint8_t hello[] = {'\x1B', '@', 'h', 'e', 'l', 'l', 'o', '\n'};
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_write(port, hello, 0, sizeof hello, &transferred), VORN_OK);
  EXPECT_EQ(transferred, sizeof hello);
  uint8_t buffer[16] = {};
  EXPECT_EQ(vorn_io_read(port, buffer, 1, sizeof hello, &transferred), VORN_OK);
  EXPECT_EQ(std::string(buffer + 1, buffer + 1 + transferred),
            std::string(hello, hello + sizeof hello));
  // Nothing more waits: the quick read ends at once with nothing.
  EXPECT_EQ(vorn_io_readexist(port, buffer, 0, sizeof buffer, &transferred), VORN_OK);
  EXPECT_EQ(transferred, 0u);
  // The quick read put the line's own timeouts back.
  ASSERT_EQ(vorn_io_get_timeout(port, timeouts), VORN_OK);
  EXPECT_EQ(timeouts[4], 2000u);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

// A read the line's timeouts let wait forever ends with the bytes so far
// when another thread kills the port.
TEST(ComPort, KillEndsAReadThatWaits) {
  const char* name = std::getenv("VORN_COM_PORT");
  if (name == nullptr) GTEST_SKIP() << "no COM port with an echoing peer";
  VORN_PORT port = nullptr;
  const std::string uri = std::string("vorn:/dev/bus/COM/") + name + "?baudrate=9600";
  ASSERT_EQ(vorn_io_port_creator(&port, uri.c_str()), VORN_OK);
  ASSERT_EQ(vorn_io_set_timeout(port, 0, 0, 0, 0, 2000, 2000), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  const uint8_t two[] = {'a', 'b'};
  uint32_t transferred = 0;
  ASSERT_EQ(vorn_io_write(port, two, 0, sizeof two, &transferred), VORN_OK);
  uint8_t buffer[16] = {};
  int32_t result = -1;
  std::atomic<bool> returned{false};
  const auto start = std::chrono::steady_clock::now();
  std::thread reader([&] {
    result = vorn_io_read(port, buffer, 0, sizeof buffer, &transferred);
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_FALSE(returned) << "the read should still be waiting for its 16 bytes";
  EXPECT_EQ(vorn_io_kill(port), VORN_OK);
  reader.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(result, VORN_OK);
  EXPECT_EQ(std::string(buffer, buffer + transferred), "ab");
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

TEST(ComPort, MissingPortIsTheSystemsNumber) {
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/COM/COM77?baudrate=9600"), VORN_OK);
  EXPECT_GT(vorn_io_open(port), 0);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

}  // namespace
}  // namespace vorn::test
