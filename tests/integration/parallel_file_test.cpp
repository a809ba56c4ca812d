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

namespace {

class TempFile {
 public:
  TempFile() {
    char name[] = "/tmp/vorn-lpt-XXXXXX";
    int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    close(fd);
    path_ = name;
  }
  ~TempFile() { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }
  std::vector<uint8_t> contents() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

 private:
  std::string path_;
};

std::u16string wide(const std::string& text) {
  return {text.begin(), text.end()};
}

TEST(ParallelFile, PortReceivesExactlyTheBytesWritten) {
  TempFile file;
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, ("vorn:/dev/bus/LPT/" + file.path()).c_str()), 0);
  ASSERT_EQ(vorn_io_open(port), 0);
  std::vector<uint8_t> data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + 3);
  uint32_t transferred = 0;
  EXPECT_EQ(vorn_io_write(port, data.data(), 0, static_cast<uint32_t>(data.size()), &transferred),
            0);
  EXPECT_EQ(transferred, data.size());
  EXPECT_EQ(vorn_io_port_destroy(port), 0);
  EXPECT_EQ(file.contents(), data);
}

TEST(ParallelFile, MissingFileFailsAtOpenWithTheSystemErrorAndIsNotCreated) {
  std::string path = "/tmp/vorn-no-such-file-" + std::to_string(getpid());
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

TEST(ParallelFile, PrinterSessionWritesThroughToTheFile) {
  TempFile file;
  VORN_PRINTER printer = nullptr;
  ASSERT_EQ(PrinterCreator(&printer, u"unknown"), 0);
  ASSERT_EQ(PortOpen(printer, wide("vorn:/dev/bus/LPT/" + file.path()).c_str()), 0);
  const uint8_t bytes[] = {0x1B, 0x40, 'h', 'i', 0x0A};
  EXPECT_EQ(WriteData(printer, bytes, sizeof bytes), 0);
  EXPECT_EQ(PortClose(printer), 0);
  EXPECT_EQ(PrinterDestroy(printer), 0);
  EXPECT_EQ(file.contents(), std::vector<uint8_t>(std::begin(bytes), std::end(bytes)));
}

}  // namespace
