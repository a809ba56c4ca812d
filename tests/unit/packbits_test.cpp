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
  EXPECT_LE(written, 2 * row.size());
  out.resize(written);
  return out;
}

struct PackCase {
  const char* name;
  std::vector<uint8_t> row;
  const char* coded;
};

std::vector<uint8_t> filled(size_t count, uint8_t byte) {
  return std::vector<uint8_t>(count, byte);
}

std::vector<uint8_t> counting(size_t count) {
  std::vector<uint8_t> row(count);
  for (size_t i = 0; i < count; ++i) row[i] = static_cast<uint8_t>(i);
  return row;
}

class PackRowTest : public testing::TestWithParam<PackCase> {};

TEST_P(PackRowTest, CodesAsDescribed) {
  EXPECT_EQ(pack(GetParam().row), hex(GetParam().coded));
}

const PackCase kPackCases[] = {
    {"run_then_single", {0x41, 0x41, 0x41, 0x42}, "FE 41 00 42"},
    {"closing_pair_widens_literal", {0x41, 0x42, 0x43, 0x43}, "03 41 42 43 43"},
    {"two_pairs", {0x41, 0x41, 0x42, 0x42}, "FF 41 FF 42"},
    {"pair_inside_row", {0x41, 0x42, 0x42, 0x43, 0x44}, "00 41 FF 42 01 43 44"},
    {"forty_eight_zeros", filled(48, 0x00), "D1 00"},
    {"one_byte", {0x7F}, "00 7F"},
    {"pair_only", {0x41, 0x41}, "FF 41"},
    {"two_different", {0x41, 0x42}, "01 41 42"},
    {"run_then_closing_pair", {0x41, 0x41, 0x41, 0x42, 0x42}, "FE 41 FF 42"},
    {"literal_then_closing_run", {0x41, 0x42, 0x43, 0x43, 0x43}, "01 41 42 FE 43"},
    {"pair_then_last_byte", {0x41, 0x42, 0x42, 0x43}, "00 41 FF 42 00 43"},
    {"widest_repeat", filled(128, 0xAA), "81 AA"},
};

INSTANTIATE_TEST_SUITE_P(Rows, PackRowTest, testing::ValuesIn(kPackCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PackRow, WidestLiteralIsOneHeaderAndTheBytes) {
  const std::vector<uint8_t> row = counting(128);
  const std::vector<uint8_t> coded = pack(row);
  ASSERT_EQ(coded.size(), 129u);
  EXPECT_EQ(coded[0], 0x7F);
  EXPECT_EQ(std::vector<uint8_t>(coded.begin() + 1, coded.end()), row);
}

// Decodes PackBits; fails the test on a malformed header (0x80 or a run past
// the end of the input).
std::vector<uint8_t> unpack(const std::vector<uint8_t>& coded) {
  std::vector<uint8_t> row;
  size_t i = 0;
  while (i < coded.size()) {
    const uint8_t header = coded[i++];
    if (header < 0x80) {
      const size_t count = header + 1u;
      if (i + count > coded.size()) {
        ADD_FAILURE() << "literal runs past the end";
        break;
      }
      row.insert(row.end(), coded.begin() + i, coded.begin() + i + count);
      i += count;
    } else if (header > 0x80) {
      if (i >= coded.size()) {
        ADD_FAILURE() << "repeat without its byte";
        break;
      }
      row.insert(row.end(), 257u - header, coded[i++]);
    } else {
      ADD_FAILURE() << "header 0x80 is never emitted";
    }
  }
  return row;
}

TEST(PackRow, RandomRowsDecodeToThemselves) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 20000; ++round) {
    // Rows up to the raster command's 128 bytes, and longer ones that need
    // runs split; few distinct bytes so that runs of every length occur.
    const size_t length = 1 + random() % (round % 10 == 0 ? 400 : 128);
    const uint32_t alphabet = 1 + random() % 4;
    std::vector<uint8_t> row(length);
    for (uint8_t& byte : row) byte = static_cast<uint8_t>(0x3C + random() % alphabet);
    const std::vector<uint8_t> coded = pack(row);
    ASSERT_EQ(unpack(coded), row) << "round " << round << ", length " << length;
  }
}

TEST(PackRow, RowsNeverShareARun) {
  // Two rows coded back to back decode separately: the second row's first
  // byte starts a fresh run even when it equals the first row's last byte.
  const std::vector<uint8_t> first = {0x41, 0x42, 0x42};
  const std::vector<uint8_t> second = {0x42, 0x42, 0x43};
  std::vector<uint8_t> both = pack(first);
  const std::vector<uint8_t> next = pack(second);
  both.insert(both.end(), next.begin(), next.end());
  EXPECT_EQ(both, hex("02 41 42 42  FF 42 00 43"));
}

}  // namespace
}  // namespace vorn::test
