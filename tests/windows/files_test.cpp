// The parallel driver on real files under Windows: a port name that is a
// file path, absolute or relative to the working directory, is written like
// a printer; a missing file is never created; the port holds the file alone.
#include <gtest/gtest.h>
#include <vorn/vorn.h>
#include <windows.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/wide_text.h"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("vorn-files-" + std::to_string(GetCurrentProcessId()));
    fs::create_directories(dir_);
    fs::current_path(dir_);
  }
  void TearDown() override {
    fs::current_path(fs::temp_directory_path());
    fs::remove_all(dir_);
  }
  static std::vector<uint8_t> contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  fs::path dir_;
};

TEST_F(Files, PrinterSessionWritesItsBytesIntoAnExistingFileByAnyName) {
  std::vector<uint8_t> data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + 3);
  for (const std::string& name : {(dir_ / "absolute.prn").string(), std::string("relative.prn")}) {
    SCOPED_TRACE(name);
    std::ofstream(dir_ / fs::path(name).filename()) << "old";
    VORN_PRINTER printer = PrinterCreatorS("unknown");
    ASSERT_NE(printer, nullptr);
    const std::string uri = "vorn:/dev/bus/LPT/" + name;
    const WideString port(uri.begin(), uri.end());
    ASSERT_EQ(PortOpen(printer, port.c_str()), VORN_OK);
    EXPECT_EQ(WriteData(printer, data.data(), static_cast<uint32_t>(data.size())), VORN_OK);
    EXPECT_EQ(PrinterDestroy(printer), VORN_OK);
    // The file's old bytes are overwritten from the start, not appended to.
    EXPECT_EQ(contents(dir_ / fs::path(name).filename()), data);
  }
}

TEST_F(Files, MissingFileFailsAtOpenAndIsNotCreated) {
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, "vorn:/dev/bus/LPT/missing.prn"), VORN_OK);
  EXPECT_EQ(vorn_io_open(port), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(fs::exists(dir_ / "missing.prn"));
  uint32_t transferred = 99;
  EXPECT_EQ(vorn_io_write(port, reinterpret_cast<const uint8_t*>("x"), 0, 1, &transferred),
            VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
}

TEST_F(Files, SecondPortOnTheSameFileIsRefused) {
  std::ofstream(dir_ / "shared.prn") << "";
  VORN_PORT first = nullptr;
  VORN_PORT second = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&first, "vorn:/dev/bus/LPT/shared.prn"), VORN_OK);
  ASSERT_EQ(vorn_io_port_creator(&second, "vorn:/dev/bus/LPT/shared.prn"), VORN_OK);
  EXPECT_EQ(vorn_io_open(first), VORN_OK);
  EXPECT_EQ(vorn_io_open(second), ERROR_SHARING_VIOLATION);
  vorn_io_port_destroy(first);
  vorn_io_port_destroy(second);
}

// A device that takes nothing (a pipe nobody reads) holds a synchronous
// write for the whole budget; a kill from another thread ends it with the
// bytes so far.
TEST_F(Files, KillEndsAWriteTheDeviceDoesNotTake) {
  const std::string pipe = "\\\\.\\pipe\\vorn-lpt-" + std::to_string(GetCurrentProcessId());
  HANDLE server = CreateNamedPipeA(pipe.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                                   4096, 4096, 0, nullptr);
  ASSERT_NE(server, INVALID_HANDLE_VALUE);
  VORN_PORT port = nullptr;
  ASSERT_EQ(vorn_io_port_creator(&port, ("vorn:/dev/bus/LPT/" + pipe).c_str()), VORN_OK);
  ASSERT_EQ(vorn_io_open(port), VORN_OK);
  ASSERT_EQ(vorn_io_set_timeout(port, 10, 5, 2000, 0, 120000, 2000), VORN_OK);
  const std::vector<uint8_t> job(1 << 20, 0x41);
  uint32_t transferred = 0;
  int32_t result = -1;
  const auto start = std::chrono::steady_clock::now();
  std::thread writer([&] {
    result = vorn_io_write(port, job.data(), 0, static_cast<uint32_t>(job.size()), &transferred);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(vorn_io_kill(port), VORN_OK);
  writer.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(result, VORN_OK);
  EXPECT_LT(transferred, job.size());
  EXPECT_EQ(vorn_io_port_destroy(port), VORN_OK);
  CloseHandle(server);
}

}  // namespace
}  // namespace vorn::test
