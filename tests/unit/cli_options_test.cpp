#include "cli_options.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace vorn::cli {
namespace {

TEST(CliOptions, ParseNumber) {
  struct Row {
    const char* text;
    std::optional<int32_t> expected;
  };
  const Row rows[] = {
      {"0", 0},
      {"17", 17},
      {"0x11", 0x11},
      {"0X1f", 0x1F},
      {"-1", -1},
      {"+5", 5},
      {"-0x10", -16},
      {"2147483647", 2147483647},
      {"-2147483648", INT32_MIN},
      {"2147483648", std::nullopt},
      {"0x100000000", std::nullopt},
      {"99999999999999999999999", std::nullopt},
      {"", std::nullopt},
      {"-", std::nullopt},
      {"0x", std::nullopt},
      {"0x-1", std::nullopt},
      {"--1", std::nullopt},
      {"12a", std::nullopt},
      {" 1", std::nullopt},
      {"1.5", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(parse_number(row.text), row.expected) << row.text;
}

TEST(CliOptions, ParseHex) {
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(parse_hex("1b 40,0A:ff", &bytes));
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0x1B, 0x40, 0x0A, 0xFF}));
  std::vector<uint8_t> odd;
  EXPECT_FALSE(parse_hex("1b 4", &odd));
  std::vector<uint8_t> bad;
  EXPECT_FALSE(parse_hex("1g", &bad));
}

TEST(CliOptions, ParseCommandLine) {
  const OptionSyntax text_syntax{1, {"--align", "--size", "--model", "--port"}, {"--bold"}};
  struct Row {
    const char* name;
    std::vector<std::string> words;
    std::string error;  // empty: parsing succeeds
    std::vector<std::string> arguments;
    std::map<std::string, std::string, std::less<>> values;
    std::set<std::string, std::less<>> switches;
  };
  const Row rows[] = {
      {"options around the argument",
       {"--align", "1", "Hello", "--bold"},
       "",
       {"Hello"},
       {{"--align", "1"}},
       {"--bold"}},
      {"value after equals sign", {"--size=0x11", "Hi"}, "", {"Hi"}, {{"--size", "0x11"}}, {}},
      {"negative value", {"Hi", "--align", "-1"}, "", {"Hi"}, {{"--align", "-1"}}, {}},
      {"argument after the end of options", {"--", "--bold"}, "", {"--bold"}, {}, {}},
      {"single dash is an argument", {"-5"}, "", {"-5"}, {}, {}},
      {"later value wins",
       {"x", "--align", "1", "--align", "2"},
       "",
       {"x"},
       {{"--align", "2"}},
       {}},
      {"value missing", {"Hi", "--align"}, "--align needs a value", {}, {}, {}},
      {"unknown option", {"Hi", "--nope", "1"}, "unknown option --nope", {}, {}, {}},
      {"switch given a value", {"Hi", "--bold=1"}, "unknown option --bold", {}, {}, {}},
      {"argument missing", {"--bold"}, "expected 1 argument(s), got 0", {}, {}, {}},
      {"argument too many", {"a", "b"}, "expected 1 argument(s), got 2", {}, {}, {}},
  };
  for (const Row& row : rows) {
    CommandLine line;
    EXPECT_EQ(parse_command_line(row.words, text_syntax, &line), row.error) << row.name;
    if (!row.error.empty()) continue;
    EXPECT_EQ(line.arguments, row.arguments) << row.name;
    EXPECT_EQ(line.values, row.values) << row.name;
    EXPECT_EQ(line.switches, row.switches) << row.name;
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
