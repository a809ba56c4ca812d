// Image files through GDI+: the decoder's pixels and failures as the image
// commands see them.
#include <gtest/gtest.h>
#include <vorn/vorn.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/bmp_file.h"
#include "support/fake_session.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

class Images : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("vorn-images-" + std::to_string(GetCurrentProcessId()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  WideString write(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::ofstream(dir_ / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    const std::wstring path = (dir_ / name).wstring();
    return WideString(path.begin(), path.end());
  }
  fs::path dir_;
};

TEST_F(Images, PrintImageTakesTheDecodedDots) {
  const uint32_t k = 0x000000, w = 0xFFFFFF;
  // 1-bit rows: 1111 0000, then 0000 1111.
  const std::vector<uint32_t> bits = {1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1};
  const struct {
    const char* name;
    std::vector<uint8_t> file;
    const char* command;
  } rows[] = {
      // 24 bits, 8 x 2: black on every second pixel of the top row.
      {"colour.bmp",
       make_bmp(8, 2, 24, false, {}, {k, w, k, w, k, w, k, w, w, w, w, w, w, w, w, w}),
       "1D 76 30 00 01 00 02 00 AA 00"},
      // 1 bit with white as entry 0 and black as entry 1: the colour table
      // decides which bits print.
      {"one-bit.bmp", make_bmp(8, 2, 1, false, {w, k}, bits), "1D 76 30 00 01 00 02 00 F0 0F"},
      // The same bits with the entries swapped print the other dots.
      {"inverted.bmp", make_bmp(8, 2, 1, false, {k, w}, bits), "1D 76 30 00 01 00 02 00 0F F0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    FakeSession session("VR-T82B");
    ASSERT_EQ(PrintImage(session.handle(), write(row.name, row.file).c_str(), 0), VORN_OK);
    EXPECT_EQ(session.take_written(), hex(row.command));
  }
}

// Failures are positive system numbers and leave the buffer as it was.
TEST_F(Images, UnloadableFilesGiveTheirSystemNumber) {
  const struct {
    const char* name;
    std::vector<uint8_t> file;  // empty: no file at all
    int32_t result;
  } rows[] = {
      {"missing.bmp", {}, ERROR_FILE_NOT_FOUND},
      {"corrupt.bmp", {'B', 'M', 1, 2, 3, 4, 5, 6, 7, 8, 9}, ERROR_INVALID_DATA},
      {"text.png",
       {'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'},
       ERROR_INVALID_DATA},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    FakeSession session("VR-T82B");
    WideString path;
    if (row.file.empty()) {
      const std::wstring missing = (dir_ / row.name).wstring();
      path.assign(missing.begin(), missing.end());
    } else {
      path = write(row.name, row.file);
    }
    EXPECT_EQ(PrintImage(session.handle(), path.c_str(), 0), row.result);
    EXPECT_TRUE(session.take_written().empty());
    EXPECT_TRUE(session.pending().empty());
  }
}

}  // namespace
}  // namespace vorn::test
