// Text printing through PrintText and PrintTextS: the layout commands, their
// order, page mode, the conversion to the narrow code page, and the rollback
// of a call that fails half-way.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "support/fake_session.h"

namespace vorn::test {
namespace {

// Sets the locale variables for one test and puts back what was there.
class LocaleEnvironment {
 public:
  explicit LocaleEnvironment(const char* lang) {
    for (size_t i = 0; i < kCount; ++i) {
      const char* value = std::getenv(kNames[i]);
      if (value != nullptr) saved_[i] = value;
      unsetenv(kNames[i]);
    }
    setenv("LANG", lang, 1);
  }
  ~LocaleEnvironment() {
    for (size_t i = 0; i < kCount; ++i) {
      if (saved_[i]) {
        setenv(kNames[i], saved_[i]->c_str(), 1);
      } else {
        unsetenv(kNames[i]);
      }
    }
  }

 private:
  static constexpr size_t kCount = 3;
  static constexpr const char* kNames[kCount] = {"LC_ALL", "LC_CTYPE", "LANG"};
  std::optional<std::string> saved_[kCount];
};

struct Case {
  const char* name;
  const char16_t* text;
  int32_t alignment;
  int32_t attributes;
  int32_t size;
  int32_t result;
  const char* bytes;
};

const Case kCases[] = {
    {"WorkedExample", u"AB", 1, 2, 0x11, 0,
     "1B 61 01 1B 4D 00 1B 45 01 1B 2D 00 1D 42 00 1B 47 00 1D 21 11 41 42"},
    {"NoAttributesResetsModes", u"A", 0, 0, 0, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 00 41"},
    {"EveryAttribute", u"A", 2, 0x1F, 0, 0,
     "1B 61 02 1B 4D 01 1B 45 01 1B 2D 01 1D 42 01 1B 47 01 1D 21 00 41"},
    {"FontAndReverse", u"A", 0, 0x09, 0, 0,
     "1B 61 00 1B 4D 01 1B 45 00 1B 2D 00 1D 42 01 1B 47 00 1D 21 00 41"},
    {"UnderlineAndDoubleStrike", u"A", 0, 0x14, 0, 0,
     "1B 61 00 1B 4D 00 1B 45 00 1B 2D 01 1D 42 00 1B 47 01 1D 21 00 41"},
    {"UndefinedBitSendsAllOff", u"A", 0, 32, 0, 0,
     "1B 61 00 1B 4D 00 1B 45 00 1B 2D 00 1D 42 00 1B 47 00 1D 21 00 41"},
    // Attributes are not cut: 256 is not the reset case.
    {"AttributesNotCut", u"A", 0, 256, 0, 0,
     "1B 61 00 1B 4D 00 1B 45 00 1B 2D 00 1D 42 00 1B 47 00 1D 21 00 41"},
    {"Alignment256IsLeft", u"A", 256, 0, 0, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 00 41"},
    {"AlignmentAscii", u"A", 50, 0, 0, 0, "1B 61 32 1B 21 00 1D 42 00 1D 21 00 41"},
    {"Alignment3", u"A", 3, 0, 0, -1, ""},
    {"Alignment259", u"A", 259, 0, 0, -1, ""},
    {"LargestSize", u"A", 0, 0, 0x77, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 77 41"},
    {"SizeCut", u"A", 0, 0, 0x111, 0, "1B 61 00 1B 21 00 1D 42 00 1D 21 11 41"},
    {"SizeBit3", u"A", 0, 0, 0x08, -1, ""},
    {"SizeBit7", u"A", 0, 2, 0x80, -1, ""},
    {"ControlBytesGoAsTheyAre", u"A\tB\n", 0, 0, 0, 0,
     "1B 61 00 1B 21 00 1D 42 00 1D 21 00 41 09 42 0A"},
    {"EmptyText", u"", 0, 0, 0, EINVAL, ""},
    {"NullText", nullptr, 0, 0, 0, EINVAL, ""},
};

class PrintTextTable : public ::testing::TestWithParam<Case> {};

TEST_P(PrintTextTable, SendsLayoutThenText) {
  const Case& c = GetParam();
  LocaleEnvironment ascii("C");
  FakeSession session;
  EXPECT_EQ(PrintText(session.handle(), c.text, c.alignment, c.attributes, c.size), c.result);
  EXPECT_EQ(session.take_written(), hex(c.bytes));
  EXPECT_TRUE(session.pending().empty());
}

INSTANTIATE_TEST_SUITE_P(Text, PrintTextTable, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintText, PageModeSendsNoJustificationAndIgnoresIt) {
  FakeSession session;
  session.context().page_mode = 1;
  EXPECT_EQ(PrintText(session.handle(), u"A", 3, 0, 0), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 21 00 1D 42 00 1D 21 00 41"));
}

struct LineFeedCase {
  const char* name;
  const char* model;
  uint8_t page_mode;
  const char16_t* text;
  const char* text_bytes;  // the bytes after GS ! n
};

const LineFeedCase kLineFeedCases[] = {
    {"PageModeOn1102Adds", "VR-M80A", 1, u"AB", "41 42 0A"},
    {"PageModeOn1102EndingInLineFeed", "VR-M80A", 1, u"A\n", "41 0A"},
    {"PageModeOn1102LineFeedInside", "VR-M80A", 1, u"A\nB", "41 0A 42 0A"},
    {"StandardModeOn1102", "VR-M80A", 0, u"AB", "41 42"},
    {"PageModeOnAnotherModel", "VR-T80A", 1, u"AB", "41 42"},
};

class PageModeLineFeed : public ::testing::TestWithParam<LineFeedCase> {};

TEST_P(PageModeLineFeed, OnlyThe1102ModelEndsPageModeTextWithALineFeed) {
  const LineFeedCase& c = GetParam();
  FakeSession session(c.model);
  session.context().page_mode = c.page_mode;
  EXPECT_EQ(PrintText(session.handle(), c.text, 0, 0, 0), VORN_OK);
  const std::string layout =
      c.page_mode ? "1B 21 00 1D 42 00 1D 21 00" : "1B 61 00 1B 21 00 1D 42 00 1D 21 00";
  EXPECT_EQ(session.take_written(), hex(layout + c.text_bytes));
}

INSTANTIATE_TEST_SUITE_P(Text, PageModeLineFeed, ::testing::ValuesIn(kLineFeedCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PrintText, LateFailureTakesBackEveryByteOfTheCall) {
  FakeSession session;
  session.device.write_script.push_back({.accept = 0, .error = EIO});
  ASSERT_EQ(FeedLine(session.handle(), 1), EIO);
  const std::vector<uint8_t> before = session.pending();

  // The size is the last layout command: justification and attributes were
  // already appended when it is refused.
  EXPECT_EQ(PrintText(session.handle(), u"ABC", 1, 0x1F, 0x88), VORN_ERR_PARAMETER);
  EXPECT_EQ(session.pending(), before);
  const auto& c = session.context();
  for (uint32_t i = c.length; i < c.length + 30; ++i) EXPECT_EQ(c.buffer[i], 0) << i;
  EXPECT_TRUE(session.take_written().empty());

  EXPECT_EQ(PrintText(session.handle(), u"A", 0, 0, 0), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 64 01 1B 61 00 1B 21 00 1D 42 00 1D 21 00 41"));
}

TEST(PrintText, ModelWithoutEscPosIsRefused) {
  FakeSession session("VR-L80A");
  EXPECT_EQ(PrintText(session.handle(), u"A", 0, 0, 0), VORN_ERR_COMMAND_NOT_SUPPORTED);
  EXPECT_TRUE(session.pending().empty());
  EXPECT_TRUE(session.take_written().empty());
}

TEST(PrintText, RoomIsTheTextPlusSixtyFour) {
  LocaleEnvironment ascii("C");
  FakeSession session;
  const std::u16string text(300, u'x');
  EXPECT_EQ(PrintTextS(session.handle(), text.c_str()), VORN_OK);
  // 300 + 64 rounded up to whole steps of 128.
  EXPECT_EQ(session.context().capacity, 256u + 384u);
  EXPECT_EQ(session.take_written(), std::vector<uint8_t>(300, 'x'));
}

TEST(PrintText, FrameChecksComeFirst) {
  EXPECT_EQ(PrintText(nullptr, u"A", 0, 0, 0), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(PrintTextS(nullptr, u""), VORN_ERR_INVALID_HANDLE);
  VORN_PRINTER handle = PrinterCreatorS("unknown");
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(PrintText(handle, u"", 0, 0, 0), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(PrintTextS(handle, u"A"), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(handle->context->length, 0u);
  PrinterDestroy(handle);
}

TEST(PrintTextS, SendsTheBytesAlone) {
  LocaleEnvironment ascii("C");
  FakeSession session("VR-M80A");
  session.context().page_mode = 1;
  EXPECT_EQ(PrintTextS(session.handle(), u"Hi"), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("48 69"));
}

TEST(PrintTextS, RawTextGoesToModelsWithoutEscPos) {
  FakeSession session("VR-L80A");
  EXPECT_EQ(PrintTextS(session.handle(), u"SIZE 40\r\n"), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("53 49 5A 45 20 34 30 0D 0A"));
}

TEST(PrintTextS, EmptyTextFailsInTheConversion) {
  FakeSession session;
  EXPECT_EQ(PrintTextS(session.handle(), u""), EINVAL);
  EXPECT_TRUE(session.take_written().empty());
}

TEST(TextConversion, GbkLocaleSendsGbkBytes) {
  LocaleEnvironment gbk("zh_CN.GBK");
  FakeSession session;
  EXPECT_EQ(PrintTextS(session.handle(), u"中文"), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("D6 D0 CE C4"));
  EXPECT_EQ(PrintText(session.handle(), u"中", 1, 0, 0x11), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 61 01 1B 21 00 1D 42 00 1D 21 11 D6 D0"));
}

TEST(TextConversion, UnrepresentableCharactersAreReplaced) {
  LocaleEnvironment ascii("C");
  FakeSession session;
  EXPECT_EQ(PrintTextS(session.handle(), u"a\u00e9b"), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("61 3F 62"));
}

TEST(TextConversion, ConvertedTextMayTakeTwoBytesPerCharacterAndTwoMore) {
  LocaleEnvironment utf8("en_US.UTF-8");
  FakeSession session;
  // Two characters of three bytes each: 6 of the 2 x 2 + 2 allowed.
  EXPECT_EQ(PrintTextS(session.handle(), u"中文"), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("E4 B8 AD E6 96 87"));
  // Three of them need 9 bytes, more than 2 x 3 + 2.
  EXPECT_EQ(PrintTextS(session.handle(), u"中文字"), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_TRUE(session.pending().empty());
}

}  // namespace
}  // namespace vorn::test
