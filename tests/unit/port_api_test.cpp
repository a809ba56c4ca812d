// Port creation, the checks of every port operation, and the port lock's life.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "io/port.h"
#include "io/port_lock.h"
#include "support/fake_device.h"

namespace vorn::test {
namespace {

TEST(PortCreation, RefusedTextsHandOutNoPortAndKeepNoLock) {
  const struct {
    const char* uri;
    int32_t result;
  } rows[] = {
      {nullptr, VORN_ERR_IO_INVALID_SETTING},
      {"ab", VORN_ERR_IO_INVALID_SETTING},
      {"ABC,1", VORN_ERR_IO_INVALID_SETTING},
      {"vorn:/dev/bus/FILE/DEVICE?filename=out.prn", VORN_ERR_PRINTER_NOT_SUPPORTED},
      {"FILE,out.prn", VORN_ERR_PRINTER_NOT_SUPPORTED},
      {"vorn:/dev/bus/com/COM1?baudrate=9600", VORN_ERR_PRINTER_NOT_SUPPORTED},
      {"vorn:/dev/bus/COM/COM3?speed=9600", VORN_ERR_IO_INVALID_SETTING},  // driver refuses
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.uri ? row.uri : "null");
    VORN_PORT port = reinterpret_cast<VORN_PORT>(0x1234);
    EXPECT_EQ(vorn_io_port_creator(&port, row.uri), row.result);
    EXPECT_EQ(port, reinterpret_cast<VORN_PORT>(0x1234));
    EXPECT_FALSE(io::port_lock_exists());
  }
}

// A null port, one made by the second creator alone (marker unset), a
// destroyed one and one the library never made: none of them is followed.
TEST(PortApi, EveryOperationRefusesAPortThatIsNotALiveOne) {
  VORN_PORT unmarked = nullptr, destroyed = nullptr;
  ASSERT_EQ(vorn_io_port_creator2(&unmarked, VORN_PORT_PARALLEL), VORN_OK);
  ASSERT_EQ(vorn_io_port_creator(&destroyed, "LPT1"), VORN_OK);
  ASSERT_EQ(vorn_io_port_destroy(destroyed), VORN_OK);
  uint32_t foreign[64];
  std::fill(std::begin(foreign), std::end(foreign), io::kPortMarker);
  for (VORN_PORT port : {static_cast<VORN_PORT>(nullptr), unmarked, destroyed,
                         reinterpret_cast<VORN_PORT>(foreign)}) {
    uint8_t byte = 0;
    uint32_t count = 0, values[6] = {};
    char text[256];
    EXPECT_EQ(vorn_io_write(port, &byte, 0, 1, &count), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_read(port, &byte, 0, 1, &count), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_readexist(port, &byte, 0, 1, &count), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_open(port), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_close(port), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_kill(port), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_flush(port), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_set_uri(port, "vorn:/dev/bus/LPT/LPT1"), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_get_uri(port, text, sizeof text, &count), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_set_timeout(port, 1, 2, 3, 4, 5, 6), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_get_timeout(port, values), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_control(port, 1, 0, &byte, 1, nullptr, 0, nullptr), VORN_ERR_INVALID_HANDLE);
    EXPECT_EQ(vorn_io_port_destroy(port), VORN_ERR_INVALID_HANDLE);
  }
  // Such a port can only be released by the library itself.
  io::destroy_driver(unmarked->driver);
  delete unmarked;
  EXPECT_EQ(vorn_io_port_creator2(&unmarked, VORN_PORT_FILE), VORN_ERR_PRINTER_NOT_SUPPORTED);
}

TEST(PortApi, LockLivesFromTheFirstPortToTheLastDestroyed) {
  VORN_PORT a = nullptr, b = nullptr, c = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&a, "LPT1"), VORN_OK);
  ASSERT_EQ(vorn_io_port_creator(&b, "LPT2"), VORN_OK);
  EXPECT_EQ(vorn_io_port_destroy(a), VORN_OK);
  EXPECT_TRUE(io::port_lock_exists());
  EXPECT_EQ(vorn_io_port_destroy(b), VORN_OK);
  EXPECT_FALSE(io::port_lock_exists());
  ASSERT_EQ(vorn_io_port_creator(&c, "LPT3"), VORN_OK);
  EXPECT_TRUE(io::port_lock_exists());
  EXPECT_EQ(vorn_io_port_destroy(c), VORN_OK);
}

TEST(PortApi, CommaFormOverlongAndPlainUrisGiveTheirNormalisedText) {
  const std::string long_uri = "vorn:/dev/bus/LPT/" + std::string(300, 'n');
  const struct {
    std::string text, uri;
  } rows[] = {{" LPT1 ", "vorn:/dev/bus/LPT/LPT1"},
              {"vorn:/dev/bus/LPT/LPT1", "vorn:/dev/bus/LPT/LPT1"},
              {"NET,10.0.0.7", "vorn:/dev/bus/NET/DEVICE?ip=10.0.0.7+port=9100"},
              {long_uri, long_uri.substr(0, 255)}};  // cut to 255 bytes, parsed as cut
  for (const auto& row : rows) {
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, row.text.c_str()), VORN_OK) << row.text;
    char uri[257];
    std::fill(std::begin(uri), std::end(uri), '#');
    uint32_t length = 0;
    ASSERT_EQ(vorn_io_get_uri(port, uri, sizeof uri, &length), VORN_OK);
    EXPECT_EQ(uri, row.uri);
    EXPECT_EQ(length, row.uri.size());
    EXPECT_EQ(uri[length + 1], '#') << "nothing after the terminator";
    EXPECT_EQ(vorn_io_get_uri(port, uri, length, &length), VORN_ERR_BUFFER_TOO_SMALL);
    vorn_io_port_destroy(port);
  }
}

TEST(PortApi, SetUriTakesOnlyUriTextAndIsUsedAtTheNextOpen) {
  FakeDevice device;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "LPT1"), VORN_OK);
  EXPECT_EQ(vorn_io_set_uri(port, "LPT2"), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_set_uri(port, "vorn:/dev/bus/LPT/LPT1?a=+b"), VORN_ERR_PARAMETER);
  ASSERT_EQ(vorn_io_set_uri(port, "vorn:/dev/bus/LPT//tmp/printer"), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  EXPECT_EQ(device.opened_paths, std::vector<std::string>{"/tmp/printer"});
  uint8_t buffer[4];
  uint32_t count = 1;
  EXPECT_EQ(vorn_io_readexist(port, buffer, 5, 4, &count), VORN_ERR_PARAMETER) << "offset > size";
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(vorn_io_write(port, buffer, 0, 1, nullptr), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_write(port, nullptr, 0, 1, &count), VORN_ERR_PARAMETER);
  vorn_io_port_destroy(port);
  EXPECT_EQ(device.closes, 1) << "destroying an open port closes it";
}

}  // namespace
}  // namespace vorn::test
