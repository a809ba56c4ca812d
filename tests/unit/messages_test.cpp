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

namespace {

using ::testing::Each;

constexpr char kSentinel = 0x5A;
constexpr int32_t kFakeNoRoom = 122;

// A text family whose behaviour each test sets: the user's language, a
// byte-per-unit conversion that records its input, a canned system text.
struct FakeText {
  uint32_t user_language = 9;
  int32_t to_wide_error = 0;
  std::string to_wide_input;
  int32_t system_error = 0;
  uint32_t system_language = 0xFFFFFFFF;
};
FakeText fake;

int32_t fake_to_narrow(const char16_t*, size_t, char*, size_t, size_t* written) {
  *written = 0;
  return kFakeNoRoom;
}

int32_t fake_to_wide(const char* text, size_t bytes, char16_t* out, size_t units, size_t* written) {
  *written = 0;
  if (fake.to_wide_error != 0) return fake.to_wide_error;
  fake.to_wide_input.assign(text, bytes);
  if (out != nullptr) {
    if (units < bytes) return kFakeNoRoom;
    for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<unsigned char>(text[i]);
  }
  *written = bytes;
  return 0;
}

int32_t fake_system_message(int32_t, uint32_t language, char* out, size_t size) {
  fake.system_language = language;
  if (fake.system_error != 0) return fake.system_error;
  if (size < 4) return kFakeNoRoom;
  std::memcpy(out, "sys", 4);
  return 0;
}

int32_t fake_system_message_wide(int32_t, uint32_t language, char16_t* out, size_t units) {
  fake.system_language = language;
  if (fake.system_error != 0) return fake.system_error;
  if (units < 4) return kFakeNoRoom;
  std::memcpy(out, u"sys", 8);
  return 0;
}

uint32_t fake_user_language() {
  return fake.user_language;
}

const vorn::platform::TextOps kFakeText{fake_to_narrow,      fake_to_wide,
                                        fake_system_message, fake_system_message_wide,
                                        fake_user_language,  22};

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

const TextRow kUnknown{0, "Printer Unknown Error!", "\xCE\xB4\xD6\xAA\xB4\xED\xCE\xF3!"};

const std::vector<TextRow> kTextRows = {
    {0, "The operation completed successfully.",
     "\xB2\xD9\xD7\xF7\xB3\xC9\xB9\xA6\xCD\xEA\xB3\xC9\xA1\xA3"},
    {-1, "Parameter is error. Please check the parameter is corrected.",
     "\xB2\xCE\xCA\xFD\xB4\xED\xCE\xF3\xA1\xA3\xC7\xEB\xBC\xEC\xB2\xE9\xB2\xCE\xCA\xFD\xCA\xC7\xB7"
     "\xF1"
     "\xD5\xFD\xC8\xB7\xA3\xA1"},
    {-6,
     "The handle value specified is incorrect. Please confirm the handle value is initialed "
     "correctly and not been destroied.",
     "\xD6\xB8\xB6\xA8\xBE\xE4\xB1\xFA\xB7\xA2\xC9\xFA\xB4\xED\xCE\xF3\xA1\xA3\xC7\xEB\xC8\xB7\xC8"
     "\xCF"
     "\xBE\xE4\xB1\xFA\xD6\xB5\xCA\xC7\xB7\xF1\xD5\xFD\xC8\xB7\xBA\xCD\xBE\xE4\xB1\xFA\xCA\xC7\xB7"
     "\xF1"
     "\xB1\xBB\xB9\xD8\xB1\xD5\xA3\xA1"},
    {-100, "VORN print error.", "VORN \xB4\xF2\xD3\xA1\xB4\xED\xCE\xF3\xA3\xA1"},
    {-102, "Drive printer state error.\nPlease check printer state.",
     "\xC7\xFD\xB6\xAF\xB4\xF2\xD3\xA1\xBB\xFA\xD7\xB4\xCC\xAC\xB4\xED\xCE\xF3\xA1\xA3\n\xC7\xEB"
     "\xBC\xEC"
     "\xB2\xE9\xB4\xF2\xD3\xA1\xBB\xFA\xD7\xB4\xCC\xAC\xA3\xA1"},
    {-308, "IO invalid handle.", "IO\xB4\xED\xCE\xF3\xA3\xBA\xCE\xDE\xD0\xA7\xBE\xE4\xB1\xFA"},
    {-1100, "The LIBUSB operation completed successfully.",
     "LIBUSB\xD6\xB4\xD0\xD0\xB3\xC9\xB9\xA6\xA1\xA3"},
    {-1103,
     "LIBUSB\xA3\xBA"
     "IO Access Error. Please confirm have assigned access right.",
     "LIBUSB\xA3\xBA"
     "IO\xB7\xC3\xCE\xCA\xB4\xED\xCE\xF3\xA1\xA3\xC7\xEB\xC8\xB7\xC8\xCF\xB7\xC3\xCE\xCA\xC8\xA8"
     "\xCF\xDE"
     "\xA3\xA1"},
    {-1104, "LIBUSB\xA3\xBANo IO Device. Please confirm the deviced has connected.",
     "LIBUSB\xA3\xBA\xC3\xBB\xD3\xD0IO\xC9\xE8\xB1\xB8\xA1\xA3"},
    {-1107,
     "LIBUSB: IO Timeout.Please check the device is operating normally and the timeout setting "
     "is correct.",
     "LIBUSB\xA3\xBA\xB3\xAC\xCA\xB1\xB4\xED\xA1\xA3\xC7\xEB\xB2\xE9\xBF\xB4\xB4\xF2\xD3\xA1\xBB"
     "\xFA\xCA"
     "\xC7\xB7\xF1\xD5\xFD\xB3\xA3\xD2\xD4\xBC\xB0\xB3\xAC\xCA\xB1\xC9\xE8\xD6\xC3\xCA\xC7\xB7\xF1"
     "\xD5"
     "\xFD\xC8\xB7\xA3\xA1"},
    {-1110, "LIBUSB error:  Operate interrupted.Please try again.",
     "LIBUSB\xB4\xED\xCE\xF3\xA3\xBA\xB2\xD9\xD7\xF7\xD6\xD0\xB6\xCF\xA1\xA3\xC7\xEB\xD6\xD8\xD0"
     "\xC2\xB2"
     "\xD9\xD7\xF7\xA3\xA1"},
    {-1199, "LIBUSB Unknow Error.", "LIBUSB\xCE\xB4\xD6\xAA\xB4\xED\xCE\xF3\xA1\xA3"},
    {-5, kUnknown.english, kUnknown.chinese},
    {-12, kUnknown.english, kUnknown.chinese},
    {-20, kUnknown.english, kUnknown.chinese},
    {-30, kUnknown.english, kUnknown.chinese},
    {-103, kUnknown.english, kUnknown.chinese},
    {-510, kUnknown.english, kUnknown.chinese},
    {-1113, kUnknown.english, kUnknown.chinese},
    {INT32_MIN, kUnknown.english, kUnknown.chinese},
};

// The narrow function with the user's language set to `language`: a region
// of exactly the text's length is refused and left zeroed, one byte more
// takes text and terminator. Bytes outside the region stay untouched.
void expect_narrow_text(int32_t code, uint32_t language, const std::string& expected) {
  SCOPED_TRACE(testing::Message() << "code " << code << ", language " << language);
  fake.user_language = language;
  constexpr uint32_t kPosition = 3;
  const uint32_t length = static_cast<uint32_t>(expected.size());
  std::vector<char> buffer(kPosition + length + 2, kSentinel);

  EXPECT_EQ(vorn_io_format_error(code, buffer.data(), kPosition, kPosition + length), -2);
  EXPECT_THAT(std::vector<char>(buffer.begin() + kPosition, buffer.begin() + kPosition + length),
              Each('\0'));
  EXPECT_EQ(buffer[kPosition - 1], kSentinel);
  EXPECT_EQ(buffer[kPosition + length], kSentinel);

  EXPECT_EQ(vorn_io_format_error(code, buffer.data(), kPosition, kPosition + length + 1), 0);
  EXPECT_EQ(std::string(buffer.data() + kPosition, length), expected);
  EXPECT_EQ(buffer[kPosition + length], '\0');
  EXPECT_EQ(buffer[kPosition - 1], kSentinel);
  EXPECT_EQ(buffer[kPosition + length + 1], kSentinel);
}

TEST_F(FormatErrorTest, NarrowTextsAreExactBytesInBothLanguages) {
  for (const TextRow& row : kTextRows) {
    expect_narrow_text(row.code, 9, row.english);
    expect_narrow_text(row.code, 4, row.chinese);
    // Only the primary language value 4 is Chinese.
    expect_narrow_text(row.code, 0x0804, row.english);
  }
}

// FormatError through the byte-per-unit fake: which narrow text reached the
// conversion shows which language was chosen.
TEST_F(FormatErrorTest, WideLanguageIsTheCallersUnlessZero) {
  const TextRow& row = kTextRows[3];  // -100
  struct Case {
    int32_t language;
    uint32_t user_language;
    const std::string& expected;
  } cases[] = {
      {0x0804, 4, row.english}, {4, 9, row.chinese}, {0, 4, row.chinese},
      {0, 9, row.english},      {9, 4, row.english},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "language " << c.language);
    fake.user_language = c.user_language;
    std::vector<char16_t> buffer(64, u'\x5A5A');
    ASSERT_EQ(FormatError(row.code, c.language, buffer.data(), 0, 128), 0);
    EXPECT_EQ(fake.to_wide_input, c.expected);
    std::u16string expected_units(c.expected.begin(), c.expected.end());
    for (char16_t& unit : expected_units) unit &= 0xFF;
    EXPECT_EQ(std::u16string(buffer.data()), expected_units);
  }
}

// "VORN print error." is 17 units. The region holds (size - position) / 2
// units; an odd byte left over is not touched, and a text that fills the
// region exactly has no terminator.
TEST_F(FormatErrorTest, WideRegionHoldsHalfTheBytesAndTakesNoTerminatorWhenFull) {
  const std::u16string text = u"VORN print error.";
  struct Case {
    uint32_t position;
    uint32_t bytes;  // size - position
    int32_t result;
  } cases[] = {{4, 36, 0},  {4, 35, 0},  {4, 34, 0}, {5, 35, 0},
               {4, 33, -2}, {4, 32, -2}, {4, 0, -2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "position " << c.position << ", bytes " << c.bytes);
    std::vector<char16_t> storage(40, u'\x5A5A');
    char* raw = reinterpret_cast<char*>(storage.data());
    const int32_t result = FormatError(-100, 9, storage.data(), c.position, c.position + c.bytes);
    EXPECT_EQ(result, c.result);

    const uint32_t used = c.bytes / 2 * 2;
    std::vector<char> expected(used, '\0');
    if (c.result == 0) std::memcpy(expected.data(), text.data(), text.size() * 2);
    EXPECT_EQ(std::vector<char>(raw + c.position, raw + c.position + used), expected);
    EXPECT_EQ(raw[c.position - 1], kSentinel);
    EXPECT_EQ(raw[c.position + used], kSentinel);
  }
}

TEST_F(FormatErrorTest, WideConversionFailureIsTheConvertersNumber) {
  fake.to_wide_error = 42;
  std::vector<char16_t> buffer(64, u'\x5A5A');
  EXPECT_EQ(FormatError(-1, 9, buffer.data(), 0, 128), 42);
  EXPECT_THAT(buffer, Each(u'\0'));
}

// Positive codes go to the system with the caller's language, or 0: the
// user's language is not looked up for them.
TEST_F(FormatErrorTest, PositiveCodesGoToTheSystemWithTheCallersLanguage) {
  fake.user_language = 4;
  char narrow[16];
  EXPECT_EQ(vorn_io_format_error(2, narrow, 0, sizeof narrow), 0);
  EXPECT_STREQ(narrow, "sys");
  EXPECT_EQ(fake.system_language, 0u);

  char16_t wide[16];
  EXPECT_EQ(FormatError(2, 7, wide, 2, sizeof wide), 0);
  EXPECT_EQ(std::u16string(wide + 1), u"sys");
  EXPECT_EQ(fake.system_language, 7u);
  EXPECT_EQ(FormatError(2, 0, wide, 0, sizeof wide), 0);
  EXPECT_EQ(fake.system_language, 0u);

  fake.system_error = 1815;
  EXPECT_EQ(vorn_io_format_error(2, narrow, 0, sizeof narrow), 1815);
  EXPECT_EQ(FormatError(2, 0, wide, 0, sizeof wide), 1815);
}

// The real system texts differ between systems, so only their presence is
// checked.
TEST_F(FormatErrorTest, PositiveCodesGetTheNativeSystemText) {
  vorn::platform::install_text(nullptr);
  char narrow[256];
  EXPECT_EQ(vorn_io_format_error(2, narrow, 0, sizeof narrow), 0);
  EXPECT_GT(std::strlen(narrow), 0u);
  EXPECT_GT(vorn_io_format_error(2, narrow, 0, 1), 0);
  EXPECT_EQ(narrow[0], '\0');

  char16_t wide[256];
  EXPECT_EQ(FormatError(2, 0, wide, 1, sizeof wide), 0);
  char16_t first;
  std::memcpy(&first, reinterpret_cast<char*>(wide) + 1, sizeof first);
  EXPECT_NE(first, u'\0');
  EXPECT_GT(FormatError(2, 0, wide, 0, 2), 0);
}

}  // namespace
