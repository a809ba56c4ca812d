// Port URI parsing, formatting, building from pieces, and the comma forms.
#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "io/comma_form.h"

namespace {

// "type|name|key=value|..." of a parsed record; every reference must lie
// inside the record's own text.
std::string dump(const vorn_uri& record) {
  auto inside = [&](const char* p) {
    return p >= record.text && p < record.text + sizeof record.text;
  };
  EXPECT_TRUE(inside(record.type) && inside(record.name));
  std::string out = std::string(record.type) + "|" + record.name;
  for (int32_t i = 0; i < record.option_count; ++i) {
    EXPECT_TRUE(inside(record.options[i].key) && inside(record.options[i].value));
    out += std::string("|") + record.options[i].key + "=" + record.options[i].value;
  }
  return out;
}

std::string formatted(const vorn_uri& record) {
  std::array<char, VORN_URI_MAX_TEXT + 1> buffer{};
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), buffer.size()), VORN_OK);
  return buffer.data();
}

constexpr int32_t kBad = VORN_ERR_PARAMETER;

struct ParseRow {
  const char* text;
  const char* fields;      // dump() of the parsed record
  const char* formats_as;  // null: the text itself
};

const ParseRow kParseRows[] = {
    {"vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9100",
     "NET|DEVICE|ip=192.168.1.100|port=9100"},
    {"vorn:/dev/bus/LPT//dev/usb/lp0", "LPT|/dev/usb/lp0"},  // the name may hold "/"
    {"vorn:/dev/bus/NET/?ip=10.0.0.5", "NET||ip=10.0.0.5"},
    {"vorn:/dev/bus//X", "|X"},
    // A trailing word without "=" names no option and is dropped.
    {"vorn:/dev/bus/NET/DEVICE?ip=1.2.3.4+x", "NET|DEVICE|ip=1.2.3.4",
     "vorn:/dev/bus/NET/DEVICE?ip=1.2.3.4"},
    // Keys run to the next "=", values to the next "+".
    {"vorn:/dev/bus/X/N?k=a=b?c+b+c=2", "X|N|k=a=b?c|b+c=2"},
};

// The last three would format to texts that do not parse.
const char* const kNotInGrammar[] = {"VORN:/dev/bus/COM/COM1",
                                     "",
                                     "vorn:/dev/bus/COM",
                                     "vorn:/dev/bus/COM/COM1?",
                                     "vorn:/dev/bus/COM/COM1?baudrate=9600+",
                                     "vorn:/dev/bus/LPT/LPT1?a=+b",
                                     "vorn:/dev/bus/LPT/LPT1?a=1+b=+c=2",
                                     "vorn:/dev/bus/NET/?x"};

TEST(UriParse, EachRowGivesItsFieldsAndFormatsBack) {
  for (const ParseRow& row : kParseRows) {
    SCOPED_TRACE(row.text);
    vorn_uri record;
    ASSERT_EQ(vorn_io_uri_from_str(&record, row.text), VORN_OK);
    EXPECT_EQ(dump(record), row.fields);
    EXPECT_EQ(formatted(record), row.formats_as ? row.formats_as : row.text);
  }
  vorn_uri record;
  for (const char* text : kNotInGrammar)
    EXPECT_EQ(vorn_io_uri_from_str(&record, text), kBad) << text;
}

TEST(UriParse, EightOptionsAtMost) {
  std::string text = "vorn:/dev/bus/NET/DEVICE";
  for (int i = 0; i < 8; ++i) text += (i == 0 ? "?k" : "+k") + std::to_string(i) + "=v";
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, text.c_str()), VORN_OK);
  EXPECT_EQ(record.option_count, 8);
  EXPECT_EQ(formatted(record), text);
  EXPECT_EQ(vorn_io_uri_from_str(&record, (text + "+k8").c_str()), VORN_OK) << "bare word";
  EXPECT_EQ(vorn_io_uri_from_str(&record, (text + "+k8=v").c_str()), kBad);
}

TEST(UriParse, TextsOver255BytesAreRefusedUnreadAndLeaveAClearedRecord) {
  const std::string head = "vorn:/dev/bus/COM/";
  const std::string at_limit = head + std::string(255 - head.size(), 'n');
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, at_limit.c_str()), VORN_OK);
  EXPECT_EQ(std::strlen(record.name), 255u - head.size());
  EXPECT_EQ(vorn_io_uri_from_str(&record, (at_limit + "n").c_str()), VORN_ERR_IO_INVALID_SETTING);
  EXPECT_EQ(record.type, nullptr);
  // 256 bytes without terminator: reading further would leave the array
  // (the sanitizer build catches that).
  std::array<char, 256> unterminated;
  unterminated.fill('v');
  EXPECT_EQ(vorn_io_uri_from_str(&record, unterminated.data()), VORN_ERR_IO_INVALID_SETTING);
}

TEST(Uri, NullArgumentsAreRefused) {
  vorn_uri record;
  char buffer[64];
  EXPECT_EQ(vorn_io_uri_from_str(nullptr, "vorn:/dev/bus/COM/COM1"), kBad);
  EXPECT_EQ(vorn_io_uri_from_str(&record, nullptr), kBad);
  EXPECT_EQ(vorn_io_uri_to_str(nullptr, buffer, sizeof buffer), kBad);
  EXPECT_EQ(vorn_io_uri_get_option(&record, nullptr), nullptr);
}

TEST(Uri, OptionLookupIsExactFirstWinsAndClearZeroesAll) {
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, "vorn:/dev/bus/COM/COM1?baudrate=9600+baudrate=4800"),
            VORN_OK);
  EXPECT_STREQ(vorn_io_uri_get_option(&record, "baudrate"), "9600");
  EXPECT_EQ(vorn_io_uri_get_option(&record, "baud"), nullptr);
  vorn_io_uri_clear(&record);
  const vorn_uri zero{};
  EXPECT_EQ(std::memcmp(&record, &zero, sizeof record), 0);
}

TEST(Uri, FormattingWritesWholePiecesAndNeedsRoomForTheTerminator) {
  const std::string text = "vorn:/dev/bus/COM/COM1?baudrate=9600";
  vorn_uri record;
  ASSERT_EQ(vorn_io_uri_from_str(&record, text.c_str()), VORN_OK);
  std::array<char, 64> buffer;
  buffer.fill('x');
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), text.size()), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer.data(), "vorn:/dev/bus/COM/COM1") << "the option is not half-written";
  EXPECT_EQ(vorn_io_uri_to_str(&record, nullptr, 0), VORN_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(vorn_io_uri_to_str(&record, nullptr, 64), kBad);
  EXPECT_EQ(vorn_io_uri_to_str(&record, buffer.data(), text.size() + 1), VORN_OK);
  EXPECT_EQ(buffer.data(), text);
}

TEST(Uri, BuildingFromPiecesSkipsNullValuesAndNamesNoNameDevice) {
  const char* keys[] = {"location", "portnum"};
  const char* values[] = {nullptr, "USB001"};
  char buffer[64] = {};
  ASSERT_EQ(vorn_io_uri_get_str(buffer, 64, "USB", nullptr, keys, values, 2), VORN_OK);
  EXPECT_STREQ(buffer, "vorn:/dev/bus/USB/DEVICE?portnum=USB001");
  EXPECT_EQ(vorn_io_uri_get_str(buffer, 64, "U", nullptr, nullptr, nullptr, 1), kBad);
  values[0] = "v", keys[0] = nullptr;
  EXPECT_EQ(vorn_io_uri_get_str(buffer, 64, "U", nullptr, keys, values, 1), kBad);
}

const struct {
  std::string text, uri;
} kCommaRows[] = {
    {" com1 , rate=baudrate_19200 ", "vorn:/dev/bus/COM/com1?baudrate=19200"},
    {",BSP2,115200", "vorn:/dev/bus/BSP/BSP2?baudrate=115200"},
    {"NET,192.168.1.100", "vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9100"},
    {"NET,192.168.1.100,9101", "vorn:/dev/bus/NET/DEVICE?ip=192.168.1.100+port=9101"},
    {"usb,usb002,myprinter,port_1", "vorn:/dev/bus/USB/MYPRINTER?location=PORT_1+portnum=USB002"},
    {"USB,USB001,USB002", "vorn:/dev/bus/USB/DEVICE?portnum=USB002"},
    // Only fields 2 to 4 count for USB, and only ten fields are read at all.
    {"USB,A,B,C,USB009,6,7,8,9,10,11,12", "vorn:/dev/bus/USB/C"},
    {"LPT1," + std::string(400, 'x'), "vorn:/dev/bus/LPT/LPT1"},
    {"fil,x.prn", "vorn:/dev/bus/FILE/DEVICE?filename=x.prn"},
};

// The last one would not fit the URI area.
const std::string kRefusedCommaForms[] = {
    "ABC,1", " US ,1", ",", ",,COM1,9600", "COM1", "NET", "FILE", "FILE," + std::string(230, 'f')};

TEST(CommaForm, EachRowConvertsOrIsRefused) {
  std::array<char, VORN_URI_MAX_TEXT + 1> out{};
  for (const auto& row : kCommaRows) {
    ASSERT_EQ(vorn::io::comma_form_to_uri(row.text.c_str(), out.data(), 255), VORN_OK) << row.text;
    EXPECT_EQ(out.data(), row.uri);
  }
  for (const std::string& text : kRefusedCommaForms) {
    EXPECT_EQ(vorn::io::comma_form_to_uri(text.c_str(), out.data(), 255),
              VORN_ERR_IO_INVALID_SETTING)
        << text;
  }
}

}  // namespace
