// Port URI parsing, formatting, building from pieces, and the comma forms.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "io/comma_form.h"

namespace {

using Options = std::vector<std::pair<std::string, std::string>>;

bool points_into(const vorn_uri& record, const char* reference) {
  const char* begin = record.text;
  const char* end = record.text + sizeof record.text;
  return reference && !std::less<const char*>()(reference, begin) &&
         std::less<const char*>()(reference, end);
}

// Every reference of a successfully parsed record lies inside its own text.
void expect_references_inside(const vorn_uri& record, const std::string& context) {
  EXPECT_TRUE(points_into(record, record.type)) << context;
  EXPECT_TRUE(points_into(record, record.name)) << context;
  ASSERT_GE(record.option_count, 0) << context;
  ASSERT_LE(record.option_count, VORN_URI_MAX_OPTIONS) << context;
  for (int32_t i = 0; i < record.option_count; ++i) {
    EXPECT_TRUE(points_into(record, record.options[i].key)) << context << " key " << i;
    EXPECT_TRUE(points_into(record, record.options[i].value)) << context << " value " << i;
  }
}

Options options_of(const vorn_uri& record) {
  Options options;
  for (int32_t i = 0; i < record.option_count; ++i) {
    options.emplace_back(record.options[i].key, record.options[i].value);
  }
  return options;
}

std::string formatted(const vorn_uri& record) {
  std::array<char, VORN_URI_MAX_TEXT + 1> buffer{};
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), buffer.size()), VORN_OK);
  return buffer.data();
}

struct ParseCase {
  const char* text;
  int32_t code;
  const char* type;
  const char* name;
  Options options;
  const char* formats_as;  // the text formatting gives back
};

class UriParse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(UriParse, GivesCodeFieldsAndFormatsBack) {
  const ParseCase& row = GetParam();
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, row.text), row.code) << row.text;
  if (row.code != VORN_OK) return;
  expect_references_inside(record, row.text);
  EXPECT_STREQ(record.type, row.type);
  EXPECT_STREQ(record.name, row.name);
  EXPECT_EQ(options_of(record), row.options);
  EXPECT_EQ(formatted(record), row.formats_as);
}

constexpr int32_t kBad = VORN_ERR_PARAMETER;

INSTANTIATE_TEST_SUITE_P(
    Rows, UriParse,
    ::testing::Values(
        ParseCase{"vorn:/dev/bus/COM/COM1", 0, "COM", "COM1", {}, "vorn:/dev/bus/COM/COM1"},
        ParseCase{"vorn:/dev/bus/COM/COM1?baudrate=9600",
                  0,
                  "COM",
                  "COM1",
                  {{"baudrate", "9600"}},
                  "vorn:/dev/bus/COM/COM1?baudrate=9600"},
        ParseCase{"vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9100",
                  0,
                  "NET",
                  "DEVICE",
                  {{"ip", "192.168.1.100"}, {"port", "9100"}},
                  "vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9100"},
        ParseCase{"vorn:/dev/bus/USB/DEVICE", 0, "USB", "DEVICE", {}, "vorn:/dev/bus/USB/DEVICE"},
        ParseCase{"vorn:/dev/bus/LPT/LPT1", 0, "LPT", "LPT1", {}, "vorn:/dev/bus/LPT/LPT1"},
        ParseCase{"vorn:/dev/bus/NET/?ip=10.0.0.5",
                  0,
                  "NET",
                  "",
                  {{"ip", "10.0.0.5"}},
                  "vorn:/dev/bus/NET/?ip=10.0.0.5"},
        ParseCase{"vorn:/dev/bus//X", 0, "", "X", {}, "vorn:/dev/bus//X"},
        ParseCase{"vorn:/dev/bus/LPT//dev/usb/lp0",
                  0,
                  "LPT",
                  "/dev/usb/lp0",
                  {},
                  "vorn:/dev/bus/LPT//dev/usb/lp0"},
        // A word without "=" names no option and is dropped.
        ParseCase{"vorn:/dev/bus/USB/DEVICE?location",
                  0,
                  "USB",
                  "DEVICE",
                  {},
                  "vorn:/dev/bus/USB/DEVICE"},
        ParseCase{"vorn:/dev/bus/NET/DEVICE?ip=1.2.3.4+x",
                  0,
                  "NET",
                  "DEVICE",
                  {{"ip", "1.2.3.4"}},
                  "vorn:/dev/bus/NET/DEVICE?ip=1.2.3.4"},
        // Values run to the next "+", keys to the next "=".
        ParseCase{
            "vorn:/dev/bus/X/N?k=a=b", 0, "X", "N", {{"k", "a=b"}}, "vorn:/dev/bus/X/N?k=a=b"},
        ParseCase{
            "vorn:/dev/bus/X/N?k=a?b", 0, "X", "N", {{"k", "a?b"}}, "vorn:/dev/bus/X/N?k=a?b"},
        ParseCase{"vorn:/dev/bus/X/N?a=1+b+c=2",
                  0,
                  "X",
                  "N",
                  {{"a", "1"}, {"b+c", "2"}},
                  "vorn:/dev/bus/X/N?a=1+b+c=2"},
        ParseCase{"vorn:/dev/bus/X/N?=1", 0, "X", "N", {{"", "1"}}, "vorn:/dev/bus/X/N?=1"},
        // "=" directly before "+" is not at the end, so the value may be empty.
        ParseCase{"vorn:/dev/bus/X/N?a=+b=1",
                  0,
                  "X",
                  "N",
                  {{"a", ""}, {"b", "1"}},
                  "vorn:/dev/bus/X/N?a=+b=1"},
        ParseCase{"vorn:/dev/bus/X/N?a=+b", 0, "X", "N", {{"a", ""}}, "vorn:/dev/bus/X/N?a="},
        ParseCase{"VORN:/dev/bus/COM/COM1", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/COM", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/COM/", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/COM/COM1?", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/COM/COM1?baudrate=", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/COM/COM1?baudrate=9600+", kBad, nullptr, nullptr, {}, nullptr},
        ParseCase{"vorn:/dev/bus/COM/COM1?a=1+b=", kBad, nullptr, nullptr, {}, nullptr}));

std::string uri_with_options(int count) {
  std::string text = "vorn:/dev/bus/NET/DEVICE";
  for (int i = 0; i < count; ++i) {
    text += (i == 0 ? "?k" : "+k") + std::to_string(i) + "=v" + std::to_string(i);
  }
  return text;
}

TEST(UriParse, EightOptionsParseAndFormatBack) {
  const std::string text = uri_with_options(8);
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, text.c_str()), VORN_OK);
  ASSERT_EQ(record.option_count, 8);
  EXPECT_STREQ(record.options[7].key, "k7");
  EXPECT_STREQ(record.options[7].value, "v7");
  EXPECT_EQ(formatted(record), text);
}

TEST(UriParse, NinthOptionFailsButNinthBareWordIsDropped) {
  vorn_uri record;
  EXPECT_EQ(vorn_io_uri_from_str(&record, uri_with_options(9).c_str()), VORN_ERR_PARAMETER);
  const std::string bare_word = uri_with_options(8) + "+k8";
  ASSERT_EQ(vorn_io_uri_from_str(&record, bare_word.c_str()), VORN_OK);
  EXPECT_EQ(record.option_count, 8);
}

TEST(UriParse, LengthLimitIs255Bytes) {
  const std::string head = "vorn:/dev/bus/COM/";
  const std::string at_limit = head + std::string(VORN_URI_MAX_TEXT - head.size(), 'n');
  ASSERT_EQ(at_limit.size(), 255u);
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, at_limit.c_str()), VORN_OK);
  EXPECT_EQ(std::strlen(record.name), 255u - head.size());

  const std::string over = at_limit + "n";
  EXPECT_EQ(vorn_io_uri_from_str(&record, over.c_str()), VORN_ERR_IO_INVALID_SETTING);
  EXPECT_EQ(record.type, nullptr);  // nothing parsed
  const std::string over_and_bad = std::string(256, '?');
  EXPECT_EQ(vorn_io_uri_from_str(&record, over_and_bad.c_str()), VORN_ERR_IO_INVALID_SETTING);
}

TEST(UriParse, UnterminatedTextIsNotReadPastTheLimit) {
  // Exactly 256 bytes with no terminator: a reader that looked further would
  // run off this array (the sanitizer build catches that).
  std::array<char, VORN_URI_MAX_TEXT + 1> unterminated;
  unterminated.fill('v');
  vorn_uri record;
  EXPECT_EQ(vorn_io_uri_from_str(&record, unterminated.data()), VORN_ERR_IO_INVALID_SETTING);
}

TEST(UriParse, ReparseLeavesNothingOfTheEarlierRecord) {
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, uri_with_options(3).c_str()), VORN_OK);
  ASSERT_EQ(vorn_io_uri_from_str(&record, "vorn:/dev/bus/COM/COM2?baudrate=19200"), VORN_OK);
  EXPECT_EQ(record.option_count, 1);
  EXPECT_EQ(record.options[1].key, nullptr);
  EXPECT_EQ(vorn_io_uri_get_option(&record, "k1"), nullptr);
}

// Two parsed records format to texts that do not parse again, both because a
// dropped bare word hid what would otherwise be a separator at the very end:
// "…/NET/" (empty name, nothing after it) and "…?a=" (empty last value).
bool formats_to_unparsable_text(const vorn_uri& record) {
  if (record.option_count == 0) return record.name[0] == '\0';
  return record.options[record.option_count - 1].value[0] == '\0';
}

TEST(UriParse, DroppedBareWordCanLeaveTextThatDoesNotParseAgain) {
  for (const char* text : {"vorn:/dev/bus/NET/?x", "vorn:/dev/bus/NET/N?a=+x"}) {
    vorn_uri record;
    ASSERT_EQ(vorn_io_uri_from_str(&record, text), VORN_OK) << text;
    ASSERT_TRUE(formats_to_unparsable_text(record)) << text;
    const std::string again = formatted(record);
    EXPECT_EQ(vorn_io_uri_from_str(&record, again.c_str()), VORN_ERR_PARAMETER) << again;
  }
}

TEST(UriNullArguments, AreRefused) {
  vorn_uri record;
  char buffer[64];
  EXPECT_EQ(vorn_io_uri_from_str(nullptr, "vorn:/dev/bus/COM/COM1"), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_uri_from_str(&record, nullptr), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_uri_to_str(nullptr, buffer, sizeof buffer), VORN_ERR_PARAMETER);
  ASSERT_EQ(vorn_io_uri_from_str(&record, "vorn:/dev/bus/COM/COM1"), VORN_OK);
  EXPECT_EQ(vorn_io_uri_to_str(&record, nullptr, 64), VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_uri_get_option(nullptr, "baudrate"), nullptr);
  EXPECT_EQ(vorn_io_uri_get_option(&record, nullptr), nullptr);
  EXPECT_EQ(vorn_io_uri_get_str(buffer, sizeof buffer, nullptr, "N", nullptr, nullptr, 0),
            VORN_ERR_PARAMETER);
  EXPECT_EQ(vorn_io_uri_get_str(buffer, sizeof buffer, "USB", nullptr, nullptr, nullptr, 1),
            VORN_ERR_PARAMETER);
}

TEST(UriGetOption, ComparesKeysExactly) {
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, "vorn:/dev/bus/COM/COM1?baudrate=9600+baudrate=4800"),
            VORN_OK);
  EXPECT_STREQ(vorn_io_uri_get_option(&record, "baudrate"), "9600");  // the first one wins
  EXPECT_EQ(vorn_io_uri_get_option(&record, "Baudrate"), nullptr);
  EXPECT_EQ(vorn_io_uri_get_option(&record, "baud"), nullptr);
}

TEST(UriClear, ZeroesTheWholeRecord) {
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, "vorn:/dev/bus/COM/COM1?baudrate=9600"), VORN_OK);
  vorn_io_uri_clear(&record);
  const vorn_uri zero{};
  EXPECT_EQ(std::memcmp(&record, &zero, sizeof record), 0);
  EXPECT_EQ(vorn_io_uri_get_option(&record, "baudrate"), nullptr);
}

TEST(UriToStr, NeedsRoomForTheTerminator) {
  vorn_uri record;
  const std::string text = "vorn:/dev/bus/COM/COM1?baudrate=9600";
  ASSERT_EQ(vorn_io_uri_from_str(&record, text.c_str()), VORN_OK);
  std::vector<char> buffer(text.size() + 1, 'x');
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), text.size()), VORN_ERR_BUFFER_TOO_SMALL);
  // The head fitted; the option did not and is not half-written.
  EXPECT_STREQ(buffer.data(), "vorn:/dev/bus/COM/COM1");
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), text.size() + 1), VORN_OK);
  EXPECT_EQ(std::string(buffer.data()), text);
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), 22), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), 0), VORN_ERR_BUFFER_TOO_SMALL);
}

struct PiecesCase {
  const char* type;
  const char* name;
  std::vector<const char*> keys;
  std::vector<const char*> values;
  const char* expected;
};

class UriGetStr : public ::testing::TestWithParam<PiecesCase> {};

TEST_P(UriGetStr, BuildsTextFromPieces) {
  const PiecesCase& row = GetParam();
  std::array<char, VORN_URI_MAX_TEXT + 1> buffer{};
  const auto count = static_cast<int32_t>(row.keys.size());
  ASSERT_EQ(vorn_io_uri_get_str(buffer.data(), buffer.size(), row.type, row.name, row.keys.data(),
                                row.values.data(), count),
            VORN_OK);
  EXPECT_STREQ(buffer.data(), row.expected);

  const std::size_t length = std::strlen(row.expected);
  EXPECT_EQ(vorn_io_uri_get_str(buffer.data(), length, row.type, row.name, row.keys.data(),
                                row.values.data(), count),
            VORN_ERR_BUFFER_TOO_SMALL);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, UriGetStr,
    ::testing::Values(
        PiecesCase{"USB",
                   nullptr,
                   {"location", "portnum"},
                   {nullptr, "USB001"},
                   "vorn:/dev/bus/USB/DEVICE?portnum=USB001"},
        PiecesCase{"USB",
                   nullptr,
                   {"location", "portnum"},
                   {nullptr, nullptr},
                   "vorn:/dev/bus/USB/DEVICE"},
        PiecesCase{"NET",
                   "",
                   {"ip", "port"},
                   {"10.0.0.5", "9100"},
                   "vorn:/dev/bus/NET/?ip=10.0.0.5+port=9100"},
        PiecesCase{"X", "N", {"a", "b", "c"}, {"1", nullptr, "3"}, "vorn:/dev/bus/X/N?a=1+c=3"},
        PiecesCase{"LPT", "LPT1", {}, {}, "vorn:/dev/bus/LPT/LPT1"}));

struct CommaCase {
  const char* text;
  const char* expected;  // null: the form is refused
};

class CommaForm : public ::testing::TestWithParam<CommaCase> {};

TEST_P(CommaForm, ConvertsToUriText) {
  const CommaCase& row = GetParam();
  std::array<char, VORN_URI_MAX_TEXT + 1> out{};
  const int32_t code = vorn::io::comma_form_to_uri(row.text, out.data(), VORN_URI_MAX_TEXT);
  if (!row.expected) {
    EXPECT_EQ(code, VORN_ERR_IO_INVALID_SETTING) << row.text;
    return;
  }
  ASSERT_EQ(code, VORN_OK) << row.text;
  EXPECT_STREQ(out.data(), row.expected) << row.text;
}

const std::string kLongFileName(230, 'f');
const std::string kTooLongForUri = "FILE," + kLongFileName;
const std::string kOverlongLpt = "LPT1," + std::string(400, 'x');
const std::string kOverlongFirstField = "LPT" + std::string(400, 'x');

INSTANTIATE_TEST_SUITE_P(
    Rows, CommaForm,
    ::testing::Values(
        CommaCase{"COM1,9600", "vorn:/dev/bus/COM/COM1?baudrate=9600"},
        CommaCase{"COM1,baudrate_9600", "vorn:/dev/bus/COM/COM1?baudrate=9600"},
        CommaCase{" COM1 , 9600 ", "vorn:/dev/bus/COM/COM1?baudrate=9600"},
        CommaCase{"com1,9600", "vorn:/dev/bus/COM/com1?baudrate=9600"},
        CommaCase{"COM1,rate=baudrate_19200", "vorn:/dev/bus/COM/COM1?baudrate=19200"},
        CommaCase{"BSP2,115200", "vorn:/dev/bus/BSP/BSP2?baudrate=115200"},
        CommaCase{",COM1,9600", "vorn:/dev/bus/COM/COM1?baudrate=9600"},
        CommaCase{"NET,192.168.1.100", "vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9100"},
        CommaCase{"NET,192.168.1.100,9101", "vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9101"},
        CommaCase{"net,10.0.0.5,", "vorn:/dev/bus/NET/DEVICE?ip=10.0.0.5+port=9100"},
        CommaCase{"USB", "vorn:/dev/bus/USB/DEVICE"},
        CommaCase{"USB,USB001", "vorn:/dev/bus/USB/DEVICE?portnum=USB001"},
        CommaCase{"USB,port_#0002.hub_#0001",
                  "vorn:/dev/bus/USB/DEVICE?location=PORT_#0002.HUB_#0001"},
        CommaCase{"usb,usb002,myprinter,port_1",
                  "vorn:/dev/bus/USB/MYPRINTER?location=PORT_1+portnum=USB002"},
        CommaCase{"USB,USB001,USB002", "vorn:/dev/bus/USB/DEVICE?portnum=USB002"},
        CommaCase{"USB,A,B,C,USB009", "vorn:/dev/bus/USB/C"},
        CommaCase{"USB,USB001,PORT_2,X,5,6,7,8,9,10,11,12,13,14,15",
                  "vorn:/dev/bus/USB/X?location=PORT_2+portnum=USB001"},
        CommaCase{"LPT1", "vorn:/dev/bus/LPT/LPT1"},
        CommaCase{"lpt1,ignored", "vorn:/dev/bus/LPT/lpt1"},
        CommaCase{"FILE,out.prn", "vorn:/dev/bus/FILE/DEVICE?filename=out.prn"},
        CommaCase{"fil,x.prn", "vorn:/dev/bus/FILE/DEVICE?filename=x.prn"},
        CommaCase{kOverlongLpt.c_str(), "vorn:/dev/bus/LPT/LPT1"}, CommaCase{"ABC,1", nullptr},
        CommaCase{"FOO,1", nullptr}, CommaCase{"US", nullptr}, CommaCase{" US ,1", nullptr},
        CommaCase{"", nullptr}, CommaCase{",", nullptr}, CommaCase{",,COM1,9600", nullptr},
        CommaCase{"COM1", nullptr}, CommaCase{"NET", nullptr}, CommaCase{"FILE", nullptr},
        CommaCase{kTooLongForUri.c_str(), nullptr},
        CommaCase{kOverlongFirstField.c_str(), nullptr}));

TEST(CommaForm, NeverWritesPastTheGivenSize) {
  std::array<char, 64> out;
  out.fill('#');
  EXPECT_EQ(vorn::io::comma_form_to_uri("NET,192.168.1.100", out.data(), 40),
            VORN_ERR_IO_INVALID_SETTING);
  for (std::size_t i = 40; i < out.size(); ++i) ASSERT_EQ(out[i], '#') << i;
  EXPECT_EQ(vorn::io::comma_form_to_uri(nullptr, out.data(), 40), VORN_ERR_IO_INVALID_SETTING);
}

// Random short texts over the separators and a few letters, with and without
// the URI prefix: the parser and the comma-form reader must hold their
// invariants on anything.
TEST(UriRobustness, RandomTextsKeepTheInvariants) {
  static constexpr char kAlphabet[] = "/?=+, ,abUSBNETCOMfil";
  static constexpr const char* kStarts[] = {"vorn:/dev/bus/", "",     "COM1,", " usb",
                                            "NET,",           "fil,", "LPT",   "bsp"};
  std::mt19937 random(20240611u);
  int parsed = 0;
  int converted = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string text = kStarts[random() % std::size(kStarts)];
    const std::size_t length = (round % 100 == 0) ? 250 + random() % 20 : random() % 24;
    for (std::size_t i = 0; i < length; ++i) text += kAlphabet[random() % (sizeof kAlphabet - 1)];

    vorn_uri record;
    const int32_t code = vorn_io_uri_from_str(&record, text.c_str());
    if (text.size() > VORN_URI_MAX_TEXT) {
      EXPECT_EQ(code, VORN_ERR_IO_INVALID_SETTING) << text;
    } else if (code == VORN_OK) {
      ++parsed;
      expect_references_inside(record, text);
      const std::string again = formatted(record);
      EXPECT_LE(again.size(), text.size()) << text;
      vorn_uri reparsed;
      const int32_t second = vorn_io_uri_from_str(&reparsed, again.c_str());
      if (formats_to_unparsable_text(record)) {
        EXPECT_EQ(second, VORN_ERR_PARAMETER) << text;
      } else {
        ASSERT_EQ(second, VORN_OK) << text;
        EXPECT_STREQ(reparsed.type, record.type) << text;
        EXPECT_STREQ(reparsed.name, record.name) << text;
        EXPECT_EQ(options_of(reparsed), options_of(record)) << text;
      }
    } else {
      EXPECT_EQ(code, VORN_ERR_PARAMETER) << text;
    }

    std::array<char, VORN_URI_MAX_TEXT + 8> out;
    out.fill('#');
    if (vorn::io::comma_form_to_uri(text.c_str(), out.data(), VORN_URI_MAX_TEXT) == VORN_OK) {
      ++converted;
      EXPECT_EQ(std::strncmp(out.data(), "vorn:/dev/bus/", 14), 0) << text;
      EXPECT_LT(std::strlen(out.data()), std::size_t{VORN_URI_MAX_TEXT}) << text;
    }
    for (std::size_t i = VORN_URI_MAX_TEXT; i < out.size(); ++i) ASSERT_EQ(out[i], '#') << text;
  }
  // The generator does reach the interesting paths of both readers.
  EXPECT_GT(parsed, 100);
  EXPECT_GT(converted, 100);
}

}  // namespace
