// The PackBits row coder of the compressed raster command.
#include "image/packbits.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

std::vector<uint8_t> pack(const std::vector<uint8_t>& row) {
  std::vector<uint8_t> out(2 * row.size() + 1, 0xEE);
  const size_t written = image::pack_row(row, out.data());
  EXPECT_LE(written, 2 * row.size()) << "a coded row never exceeds twice its length";
  out.resize(written);
  return out;
}

TEST(PackRow, CodesTheWorkedRows) {
  const struct {
    std::vector<uint8_t> row;
    const char* coded;
  } cases[] = {
      {{0x41, 0x41, 0x41, 0x42}, "FE 41 00 42"},     // a run, then the last byte alone
      {{0x41, 0x42, 0x43, 0x43}, "03 41 42 43 43"},  // a closing pair widens the literal
      {{0x41, 0x41, 0x42, 0x42}, "FF 41 FF 42"},
      {{0x41, 0x42, 0x42, 0x43, 0x44}, "00 41 FF 42 01 43 44"},  // a pair inside is a repeat
      {std::vector<uint8_t>(48, 0x00), "D1 00"},
      {{0x7F}, "00 7F"},
      {{0x41, 0x41}, "FF 41"},
      {{0x41, 0x41, 0x41, 0x42, 0x42}, "FE 41 FF 42"},  // after a run a closing pair repeats
      {{0x41, 0x42, 0x43, 0x43, 0x43}, "01 41 42 FE 43"},
      {std::vector<uint8_t>(128, 0xAA), "81 AA"},
  };
  for (const auto& c : cases) EXPECT_EQ(pack(c.row), hex(c.coded)) << c.coded;
}

// Decodes PackBits; 0x80 and runs past the end fail the test.
std::vector<uint8_t> unpack(const std::vector<uint8_t>& coded) {
  std::vector<uint8_t> row;
  for (size_t i = 0; i < coded.size();) {
    const uint8_t header = coded[i++];
    const size_t count = header < 0x80 ? header + 1u : 257u - header;
    const size_t taken = header < 0x80 ? count : 1;
    if (header == 0x80 || i + taken > coded.size()) {
      ADD_FAILURE() << "malformed header at " << i - 1;
      break;
    }
    if (header < 0x80) row.insert(row.end(), coded.begin() + i, coded.begin() + i + count);
    if (header > 0x80) row.insert(row.end(), count, coded[i]);
    i += taken;
  }
  return row;
}

TEST(PackRow, RandomRowsDecodeToThemselves) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 20000; ++round) {
    // Few distinct bytes give runs of every length; 256 of them give long
    // literals. Rows past 128 bytes need both split.
    const size_t length = 1 + random() % (round % 10 == 0 ? 400 : 128);
    const uint32_t alphabet = round % 7 == 0 ? 256 : 1 + random() % 4;
    std::vector<uint8_t> row(length);
    for (uint8_t& byte : row) byte = static_cast<uint8_t>(random() % alphabet);
    ASSERT_EQ(unpack(pack(row)), row) << "round " << round << ", length " << length;
  }
}

}  // namespace
}  // namespace vorn::test
