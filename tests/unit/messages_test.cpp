// Message texts of result codes through the two exported functions: exact
// bytes per code and language, the region rules of the narrow and the wide
// function, and the hand-over of positive codes to the system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/text.h"
#include "support/wide_text.h"

namespace {

using ::testing::Each;

constexpr char kSentinel = 0x5A;

// A text family whose behaviour each test sets: the user's language, a
// byte-per-unit conversion, a canned system text.
struct FakeText {
  uint32_t user_language = 9;
  int32_t to_wide_error = 0;
  int32_t system_error = 0;
  uint32_t system_language = 0xFFFFFFFF;
} fake;

int32_t fake_to_wide(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written) {
  *written = 0;
  if (fake.to_wide_error != 0) return fake.to_wide_error;
  if (out != nullptr && units < bytes) return 122;
  for (size_t i = 0; out != nullptr && i < bytes; ++i) out[i] = static_cast<unsigned char>(text[i]);
  *written = bytes;
  return 0;
}

int32_t fake_system_message(int32_t, uint32_t language, char* out, size_t size) {
  fake.system_language = language;
  if (fake.system_error == 0 && size >= 4) std::memcpy(out, "sys", 4);
  return fake.system_error;
}

int32_t fake_system_message_wide(int32_t, uint32_t language, char16_t* out, size_t units) {
  fake.system_language = language;
  if (fake.system_error == 0 && units >= 4) std::memcpy(out, VW("sys"), 8);
  return fake.system_error;
}

const vorn::platform::TextOps kFakeText{vorn::platform::native_text().to_narrow,
                                        fake_to_wide,
                                        fake_system_message,
                                        fake_system_message_wide,
                                        [] { return fake.user_language; },
                                        22};

class FormatErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake = FakeText{};
    previous_ = vorn::platform::install_text(&kFakeText);
  }
  void TearDown() override { vorn::platform::install_text(previous_); }

 private:
  const vorn::platform::TextOps* previous_ = nullptr;
};

struct TextRow {
  int32_t code;
  std::string english;
  std::string chinese;  // code page 936 bytes
};

const char* const kUnknownEnglish = "Printer Unknown Error!";
const char* const kUnknownChinese = "\xCE\xB4\xD6\xAA\xB4\xED\xCE\xF3!";

// The texts keep their oddities: a full-width colon in English, two blanks.
const std::vector<TextRow> kTextRows = {
    {0, "The operation completed successfully.",
     "\xB2\xD9\xD7\xF7\xB3\xC9\xB9\xA6\xCD\xEA\xB3\xC9\xA1\xA3"},
    {-100, "VORN print error.", "VORN \xB4\xF2\xD3\xA1\xB4\xED\xCE\xF3\xA3\xA1"},
    {-1104, "LIBUSB\xA3\xBANo IO Device. Please confirm the deviced has connected.",
     "LIBUSB\xA3\xBA\xC3\xBB\xD3\xD0IO\xC9\xE8\xB1\xB8\xA1\xA3"},
    {-5, kUnknownEnglish, kUnknownChinese},
};

// A region of exactly the text's length is refused and left zeroed, one byte
// more takes text and terminator. Bytes outside the region stay untouched.
TEST_F(FormatErrorTest, NarrowTextsAreExactBytesInTheUsersLanguage) {
  for (const TextRow& row : kTextRows) {
    // Only the primary language value 4 is Chinese.
    for (uint32_t language : {9u, 4u, 0x0804u}) {
      SCOPED_TRACE(testing::Message() << "code " << row.code << ", language " << language);
      fake.user_language = language;
      const std::string& expected = language == 4 ? row.chinese : row.english;
      const uint32_t length = static_cast<uint32_t>(expected.size());
      std::vector<char> buffer(3 + length + 2, kSentinel);
      EXPECT_EQ(vorn_io_format_error(row.code, buffer.data(), 3, 3 + length), -2);
      EXPECT_THAT(std::vector<char>(buffer.begin() + 3, buffer.begin() + 3 + length), Each('\0'));
      EXPECT_EQ(buffer[3 + length], kSentinel);
      EXPECT_EQ(vorn_io_format_error(row.code, buffer.data(), 3, 3 + length + 1), 0);
      EXPECT_EQ(std::string(buffer.data() + 3), expected);
      EXPECT_EQ(buffer[2], kSentinel);
      EXPECT_EQ(buffer[3 + length + 1], kSentinel);
    }
  }
}

// The byte-per-unit conversion shows which narrow text was chosen.
TEST_F(FormatErrorTest, WideLanguageIsTheCallersUnlessZero) {
  const TextRow& row = kTextRows[1];  // -100
  const struct {
    int32_t language;
    uint32_t user_language;
    const std::string& expected;
  } cases[] = {
      {0x0804, 4, row.english}, {4, 9, row.chinese}, {0, 4, row.chinese}, {9, 4, row.english}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "language " << c.language);
    fake.user_language = c.user_language;
    std::vector<VORN_WCHAR> buffer(64, VW('\x5A5A'));
    ASSERT_EQ(FormatError(row.code, c.language, buffer.data(), 0, 128), 0);
    WideString units;
    for (char byte : c.expected) units += static_cast<VORN_WCHAR>(static_cast<unsigned char>(byte));
    EXPECT_EQ(WideString(buffer.data()), units);
  }
}

// "VORN print error." is 17 units. The region holds (size - position) / 2
// units; an odd byte left over is not touched, and a text that fills the
// region exactly has no terminator.
TEST_F(FormatErrorTest, WideRegionHoldsHalfTheBytesAndTakesNoTerminatorWhenFull) {
  const WideString text = VW("VORN print error.");
  const struct {
    uint32_t position, bytes;  // bytes = size - position
    int32_t result;
  } cases[] = {{4, 35, 0}, {4, 34, 0}, {5, 35, 0}, {4, 33, -2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "position " << c.position << ", bytes " << c.bytes);
    std::vector<VORN_WCHAR> storage(40, VW('\x5A5A'));
    char* raw = reinterpret_cast<char*>(storage.data());
    EXPECT_EQ(FormatError(-100, 9, storage.data(), c.position, c.position + c.bytes), c.result);
    const uint32_t used = c.bytes / 2 * 2;
    std::vector<char> expected(used, '\0');
    if (c.result == 0) std::memcpy(expected.data(), text.data(), text.size() * 2);
    EXPECT_EQ(std::vector<char>(raw + c.position, raw + c.position + used), expected);
    EXPECT_EQ(raw[c.position - 1], kSentinel);
    EXPECT_EQ(raw[c.position + used], kSentinel);
  }
}

// A null area, or a position beyond the size, is refused with nothing written.
TEST_F(FormatErrorTest, RegionOutsideTheBufferIsRefused) {
  const struct {
    bool null;
    uint32_t position, size;
  } rows[] = {{true, 0, 64}, {false, 9, 8}, {false, 0xFFFFFFFF, 0}};
  for (const auto& row : rows) {
    for (int32_t code : {-1, 2}) {
      SCOPED_TRACE(testing::Message() << row.position << " " << row.size << " code " << code);
      std::vector<VORN_WCHAR> buffer(8, VW('\x5A5A'));
      char* narrow = row.null ? nullptr : reinterpret_cast<char*>(buffer.data());
      VORN_WCHAR* wide = row.null ? nullptr : buffer.data();
      EXPECT_EQ(vorn_io_format_error(code, narrow, row.position, row.size), -1);
      EXPECT_EQ(FormatError(code, 9, wide, row.position, row.size), -1);
      EXPECT_THAT(buffer, Each(VW('\x5A5A')));
    }
  }
}

TEST_F(FormatErrorTest, WideConversionFailureIsTheConvertersNumber) {
  fake.to_wide_error = 42;
  std::vector<VORN_WCHAR> buffer(64, VW('\x5A5A'));
  EXPECT_EQ(FormatError(-1, 9, buffer.data(), 0, 128), 42);
  EXPECT_THAT(buffer, Each(VW('\0')));
}

// Positive codes go to the system with the caller's language, or 0: the
// user's language is not looked up for them.
TEST_F(FormatErrorTest, PositiveCodesGoToTheSystemWithTheCallersLanguage) {
  fake.user_language = 4;
  char narrow[16];
  EXPECT_EQ(vorn_io_format_error(2, narrow, 0, sizeof narrow), 0);
  EXPECT_STREQ(narrow, "sys");
  EXPECT_EQ(fake.system_language, 0u);
  VORN_WCHAR wide[16];
  EXPECT_EQ(FormatError(2, 7, wide, 2, sizeof wide), 0);
  EXPECT_EQ(WideString(wide + 1), VW("sys"));
  EXPECT_EQ(fake.system_language, 7u);
  EXPECT_EQ(FormatError(2, 0, wide, 0, sizeof wide), 0);
  EXPECT_EQ(fake.system_language, 0u);

  fake.system_error = 1815;
  EXPECT_EQ(vorn_io_format_error(2, narrow, 0, sizeof narrow), 1815);
  EXPECT_EQ(FormatError(2, 0, wide, 0, sizeof wide), 1815);
}

}  // namespace
