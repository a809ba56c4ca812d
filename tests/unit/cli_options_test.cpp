#include "cli_options.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace vorn::cli {
namespace {

TEST(CliOptions, ParseNumber) {
  EXPECT_EQ(parse_number("0X1f"), 0x1F);
  EXPECT_EQ(parse_number("-0x10"), -16);
  EXPECT_EQ(parse_number("+5"), 5);
  EXPECT_EQ(parse_number("2147483647"), INT32_MAX);
  EXPECT_EQ(parse_number("-2147483648"), INT32_MIN);
  for (const char* text : {"2147483648", "0x100000000", "99999999999999999999", "", "-", "0x",
                           "0x-1", "--1", "12a", " 1"}) {
    EXPECT_EQ(parse_number(text), std::nullopt) << text;
  }
}

TEST(CliOptions, UsbCommaFormWithAPortPathSelectsByLocation) {
  const struct {
    const char* port;
    const char* description;
  } rows[] = {
      {"USB,1-1.4", "vorn:/dev/bus/USB/DEVICE?location=1-1.4"},
      {"usb , usb1-2 ", "usb , usb1-2 "},
      {" usb , 1-2.3b ", "vorn:/dev/bus/USB/DEVICE?location=1-2.3B"},
      {"USB,Port_#0002.Hub_#0001", "USB,Port_#0002.Hub_#0001"},
      {"USB,USB001", "USB,USB001"},
      {"USB,1-1,x", "USB,1-1,x"},
      {"NET,1.2.3.4", "NET,1.2.3.4"},
      {"USB", "USB"},
  };
  for (const auto& row : rows) EXPECT_EQ(port_description(row.port), row.description) << row.port;
}

TEST(CliOptions, ParseHex) {
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(parse_hex("1b 40,0A:ff", &bytes));
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0x1B, 0x40, 0x0A, 0xFF}));
  EXPECT_FALSE(parse_hex("1b 4", &bytes));
  EXPECT_FALSE(parse_hex("1g", &bytes));
}

TEST(CliOptions, ParseCommandLine) {
  const OptionSyntax syntax{1, {"--align", "--size"}, {"--bold"}};
  CommandLine line;
  EXPECT_EQ(parse_command_line({"--align", "1", "Hi", "--bold", "--size=0x11", "--align", "-1"},
                               syntax, &line),
            "");
  EXPECT_EQ(line.arguments, std::vector<std::string>{"Hi"});
  EXPECT_EQ(line.text("--align", ""), "-1");  // the later value wins
  EXPECT_EQ(line.text("--size", ""), "0x11");
  EXPECT_TRUE(line.has_switch("--bold"));

  // After "--" and with a single dash, words are arguments.
  CommandLine ended;
  EXPECT_EQ(parse_command_line({"--", "--bold"}, syntax, &ended), "");
  EXPECT_EQ(ended.arguments, std::vector<std::string>{"--bold"});
  CommandLine dash;
  EXPECT_EQ(parse_command_line({"-5"}, syntax, &dash), "");

  const std::pair<std::vector<std::string>, std::string> errors[] = {
      {{"Hi", "--align"}, "--align needs a value"},
      {{"Hi", "--nope", "1"}, "unknown option --nope"},
      {{"Hi", "--bold=1"}, "unknown option --bold"},
      {{"--bold"}, "expected 1 argument(s), got 0"},
      {{"a", "b"}, "expected 1 argument(s), got 2"},
  };
  for (const auto& [words, error] : errors) {
    CommandLine refused;
    EXPECT_EQ(parse_command_line(words, syntax, &refused), error);
  }
}

TEST(CliOptions, NumberOptionFallsBackOrNamesTheBadValue) {
  CommandLine line;
  line.values["--size"] = "big";
  line.values["--align"] = "0x32";
  std::string error;
  EXPECT_EQ(line.number("--feed", 3, &error), 3);
  EXPECT_EQ(line.number("--align", 0, &error), 0x32);
  EXPECT_TRUE(error.empty());
  EXPECT_EQ(line.number("--size", 0, &error), std::nullopt);
  EXPECT_EQ(error, "--size takes a number, not \"big\"");
}

}  // namespace
}  // namespace vorn::cli
