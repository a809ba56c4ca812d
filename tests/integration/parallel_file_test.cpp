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

// Runs in a fresh directory of its own, so that names relative to the working
// directory can be tried, and removes it afterwards.
class ParallelFile : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(getcwd(old_, sizeof old_), nullptr);
    ASSERT_NE(mkdtemp(dir_), nullptr);
    ASSERT_EQ(chdir(dir_), 0);
  }
  void TearDown() override {
    EXPECT_EQ(chdir(old_), 0);
    for (const char* name : {"out.prn", "null", "lpt1"})
      unlink((std::string(dir_) + "/" + name).c_str());
    rmdir(dir_);
  }
  char old_[4096] = {};
  char dir_[32] = "/tmp/vorn-lpt-XXXXXX";
};

// A name that names an existing file opens that file, relative or absolute,
// even where a device node of the same name exists (/dev/null, /dev/lp0).
TEST_F(ParallelFile, PrinterSessionWritesExactlyItsBytesIntoAnExistingFile) {
  std::vector<uint8_t> data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + 3);
  const std::string names[] = {"out.prn", "null", "lpt1", std::string(dir_) + "/out.prn"};
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    std::ofstream(name, std::ios::trunc).flush();
    const std::string uri = "vorn:/dev/bus/LPT/" + name;
    VORN_PRINTER printer = nullptr;
    ASSERT_EQ(PrinterCreator(&printer, VW("unknown")), 0);
    ASSERT_EQ(PortOpen(printer, WideString(uri.begin(), uri.end()).c_str()), 0);
    EXPECT_EQ(WriteData(printer, data.data(), static_cast<uint32_t>(data.size())), 0);
    EXPECT_EQ(PortClose(printer), 0);
    EXPECT_EQ(PrinterDestroy(printer), 0);
    std::ifstream in(name, std::ios::binary);
    EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}), data);
  }
  // The serial driver shares the rule: it finds the file, then fails to set
  // up a line on it.
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/COM/out.prn?baudrate=9600"), 0);
  EXPECT_EQ(vorn_io_open(port), VORN_ERR_IO_GET_ATTRIBUTES);
  EXPECT_EQ(vorn_io_port_destroy(port), 0);
}

TEST_F(ParallelFile, MissingFileFailsAtOpenWithTheSystemErrorAndIsNotCreated) {
  const std::string path = std::string(dir_) + "/out.prn";
  const std::string names[] = {path, "out.prn"};
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    VORN_PORT port = nullptr;
    ASSERT_EQ(vorn_io_port_creator(&port, ("vorn:/dev/bus/LPT/" + name).c_str()), 0)
        << "creation only stores the name; the device is looked at by open";
    EXPECT_EQ(vorn_io_open(port), ENOENT);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    uint32_t transferred = 99;
    uint8_t byte = 0;
    EXPECT_EQ(vorn_io_write(port, &byte, 0, 1, &transferred), VORN_ERR_IO_NOT_OPEN);
    EXPECT_EQ(transferred, 0u);
    // The name is looked up again at each open.
    std::ofstream(path).flush();
    EXPECT_EQ(vorn_io_open(port), 0);
    EXPECT_EQ(vorn_io_port_destroy(port), 0);
    unlink(path.c_str());
  }
}

}  // namespace
