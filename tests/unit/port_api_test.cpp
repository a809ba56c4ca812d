// Port creation, the checks of every port operation, and the port lock's life.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <string>

#include "io/port.h"
#include "io/port_lock.h"
#include "support/fake_device.h"

namespace vorn::test {
namespace {

struct CreationCase {
  const char* uri;
  int32_t result;
};

class PortCreationRefused : public ::testing::TestWithParam<CreationCase> {};

TEST_P(PortCreationRefused, HandsOutNoPort) {
  VORN_PORT port = reinterpret_cast<VORN_PORT>(0x1234);
  EXPECT_EQ(vorn_io_port_creator(&port, GetParam().uri), GetParam().result);
  EXPECT_EQ(port, reinterpret_cast<VORN_PORT>(0x1234));
  EXPECT_FALSE(io::port_lock_exists()) << "a failed creation must not keep the lock alive";
}

INSTANTIATE_TEST_SUITE_P(
    Uris, PortCreationRefused,
    ::testing::Values(
        CreationCase{nullptr, VORN_ERR_IO_INVALID_SETTING},
        CreationCase{"ab", VORN_ERR_IO_INVALID_SETTING},
        CreationCase{"", VORN_ERR_IO_INVALID_SETTING},
        CreationCase{"ABC,1", VORN_ERR_IO_INVALID_SETTING},
        CreationCase{"vorn:/dev/bus/FILE/DEVICE?filename=out.prn", VORN_ERR_PRINTER_NOT_SUPPORTED},
        CreationCase{"FILE,out.prn", VORN_ERR_PRINTER_NOT_SUPPORTED},
        CreationCase{"vorn:/dev/bus/com/COM1?baudrate=9600", VORN_ERR_PRINTER_NOT_SUPPORTED},
        CreationCase{"vorn:/dev/bus//X", VORN_ERR_PRINTER_NOT_SUPPORTED},
        // No USB driver in this build yet.
        CreationCase{"USB", VORN_ERR_PRINTER_NOT_SUPPORTED}));

TEST(PortApi, EveryOperationRefusesANullPort) {
  uint8_t byte = 0;
  uint32_t count = 0, values[6] = {};
  char text[256];
  EXPECT_EQ(vorn_io_write(nullptr, &byte, 0, 1, &count), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_read(nullptr, &byte, 0, 1, &count), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_readexist(nullptr, &byte, 0, 1, &count), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_open(nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_close(nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_kill(nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_flush(nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_set_uri(nullptr, "vorn:/dev/bus/LPT/LPT1"), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_get_uri(nullptr, text, sizeof text, &count), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_set_timeout(nullptr, 1, 2, 3, 4, 5, 6), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_get_timeout(nullptr, values), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_control(nullptr, 1, 0, &byte, 1, nullptr, 0, nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_port_destroy(nullptr), VORN_ERR_INVALID_HANDLE);
}

TEST(PortApi, PortMadeWithoutUriIsRefusedEverywhere) {
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator2(&port, VORN_PORT_PARALLEL), VORN_OK);
  EXPECT_EQ(vorn_io_open(port), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_ERR_INVALID_HANDLE);
  // Such a port can only be released by the library itself.
  io::destroy_driver(port->driver);
  delete port;
  EXPECT_EQ(vorn_io_port_creator2(&port, VORN_PORT_FILE), VORN_ERR_PRINTER_NOT_SUPPORTED);
  EXPECT_EQ(vorn_io_port_creator2(&port, 99), VORN_ERR_PRINTER_NOT_SUPPORTED);
}

TEST(PortApi, LockLivesFromTheFirstPortToTheLastDestroyed) {
  ASSERT_FALSE(io::port_lock_exists());
  VORN_PORT a = nullptr, b = nullptr, c = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&a, "LPT1"), VORN_OK);
  ASSERT_EQ(vorn_io_port_creator(&b, "LPT2"), VORN_OK);
  EXPECT_EQ(io::port_count(), 2u);
  EXPECT_EQ(vorn_io_port_destroy(a), VORN_OK);
  EXPECT_TRUE(io::port_lock_exists());
  EXPECT_EQ(vorn_io_port_destroy(b), VORN_OK);
  EXPECT_FALSE(io::port_lock_exists());
  ASSERT_EQ(vorn_io_port_creator(&c, "LPT3"), VORN_OK);
  EXPECT_TRUE(io::port_lock_exists());
  EXPECT_EQ(vorn_io_port_destroy(c), VORN_OK);
}

TEST(PortApi, CommaFormAndUriGiveTheSameNormalisedPort) {
  for (const char* text : {"LPT1", " LPT1 ", "vorn:/dev/bus/LPT/LPT1"}) {
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, text), VORN_OK) << text;
    char uri[256] = {};
    uint32_t length = 0;
    ASSERT_EQ(vorn_io_get_uri(port, uri, sizeof uri, &length), VORN_OK);
    EXPECT_STREQ(uri, "vorn:/dev/bus/LPT/LPT1") << text;
    EXPECT_EQ(length, 22u);
    vorn_io_port_destroy(port);
  }
}

TEST(PortApi, OverlongUriIsCutTo255BytesAndParsedAsCut) {
  std::string name(300, 'n');
  std::string uri = "vorn:/dev/bus/LPT/" + name;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, uri.c_str()), VORN_OK);
  char text[256] = {};
  uint32_t length = 0;
  ASSERT_EQ(vorn_io_get_uri(port, text, sizeof text, &length), VORN_OK);
  EXPECT_EQ(length, 255u);
  EXPECT_EQ(std::string(text), uri.substr(0, 255));
  vorn_io_port_destroy(port);
}

TEST(PortApi, SetUriTakesOnlyUriTextAndIsUsedAtTheNextOpen) {
  FakeDevice device;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "LPT1"), VORN_OK);
  EXPECT_EQ(vorn_io_set_uri(port, "LPT2"), VORN_ERR_PARAMETER);
  ASSERT_EQ(vorn_io_set_uri(port, "vorn:/dev/bus/LPT//tmp/printer"), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  ASSERT_EQ(device.opened_paths.size(), 1u);
  EXPECT_EQ(device.opened_paths[0], "/tmp/printer");
  vorn_io_port_destroy(port);
  EXPECT_EQ(device.closes, 1) << "destroying an open port closes it";
}

TEST(PortApi, ReadexistRefusesAnOffsetPastTheSize) {
  FakeDevice device;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "LPT1"), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  uint8_t buffer[4];
  uint32_t count = 1;
  EXPECT_EQ(vorn_io_readexist(port, buffer, 5, 4, &count), VORN_ERR_PARAMETER);
  EXPECT_EQ(count, 0u);
  vorn_io_port_destroy(port);
}

}  // namespace
}  // namespace vorn::test
