// The parallel driver against real files: an existing file is written like a
// printer, a missing one is never created.
#include <gtest/gtest.h>
#include <unistd.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/wide_text.h"

namespace {

TEST(ParallelFile, PrinterSessionWritesExactlyItsBytesIntoAnExistingFile) {
  char name[] = "/tmp/vorn-lpt-XXXXXX";
  close(mkstemp(name));
  const std::string uri = std::string("vorn:/dev/bus/LPT/") + name;
  VORN_PRINTER printer = nullptr;
  ASSERT_EQ(PrinterCreator(&printer, VW("unknown")), 0);
  ASSERT_EQ(PortOpen(printer, WideString(uri.begin(), uri.end()).c_str()), 0);
  std::vector<uint8_t> data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + 3);
  EXPECT_EQ(WriteData(printer, data.data(), static_cast<uint32_t>(data.size())), 0);
  EXPECT_EQ(PortClose(printer), 0);
  EXPECT_EQ(PrinterDestroy(printer), 0);
  std::ifstream in(name, std::ios::binary);
  EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}), data);
  unlink(name);
}

TEST(ParallelFile, MissingFileFailsAtOpenWithTheSystemErrorAndIsNotCreated) {
  const std::string path = "/tmp/vorn-no-such-file-" + std::to_string(getpid());
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, ("vorn:/dev/bus/LPT/" + path).c_str()), 0)
      << "creation only stores the name; the device is looked at by open";
  EXPECT_EQ(vorn_io_open(port), ENOENT);
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  uint32_t transferred = 99;
  uint8_t byte = 0;
  EXPECT_EQ(vorn_io_write(port, &byte, 0, 1, &transferred), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(transferred, 0u);
  EXPECT_EQ(vorn_io_port_destroy(port), 0);
}

}  // namespace
