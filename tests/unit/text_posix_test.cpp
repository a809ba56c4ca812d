// The POSIX text family: the narrow charset and the user's language come from
// the locale variables of the environment, read at each call.
#if !defined(_WIN32)

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>

#include "platform/text.h"
#include "support/wide_text.h"

namespace {

const vorn::platform::TextOps& native() {
  return vorn::platform::native_text();
}

constexpr const char* kVariables[] = {"LC_ALL", "LC_CTYPE", "LC_MESSAGES", "LANG", "VORN_CODEPAGE"};

// Starts each test with all locale variables and VORN_CODEPAGE unset and puts them back after.
class TextPosixTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (size_t i = 0; i < std::size(kVariables); ++i) {
      if (const char* value = std::getenv(kVariables[i])) saved_[i] = value;
    }
  }
  void TearDown() override {
    for (size_t i = 0; i < std::size(kVariables); ++i) {
      saved_[i] ? setenv(kVariables[i], saved_[i]->c_str(), 1) : unsetenv(kVariables[i]);
    }
  }
  // LC_ALL, the category's own variable, LANG; null leaves one unset.
  static void set_locale(const char* all, const char* own, const char* lang, const char* category) {
    for (const char* name : kVariables) unsetenv(name);
    if (all != nullptr) setenv("LC_ALL", all, 1);
    if (own != nullptr) setenv(category, own, 1);
    if (lang != nullptr) setenv("LANG", lang, 1);
  }

 private:
  std::optional<std::string> saved_[std::size(kVariables)];
};

// The code page a Windows system with the same locale would use, unless
// VORN_CODEPAGE names one; what a code page lacks becomes '?'.
TEST_F(TextPosixTest, NarrowCharsetComesFromTheEnvironment) {
  const struct {
    const char *all, *ctype, *lang, *codepage;
    WideString text;
    std::string expected;
    int32_t error = 0;
  } cases[] = {
      {nullptr, nullptr, "zh_CN.GBK", nullptr, VW("中文"), "\xD6\xD0\xCE\xC4"},
      // A character outside the basic plane is one '?', not two.
      {nullptr, nullptr, "zh_CN.GBK", nullptr, VW("中\U0001F600"), "\xD6\xD0?"},
      {"en_US.UTF-8", nullptr, "zh_CN.GBK", nullptr, VW("中é"), "?\xE9"},
      {"", nullptr, "zh_CN.GBK", nullptr, VW("中"), "\xD6\xD0"},  // empty counts as unset
      {nullptr, "zh_CN.GBK", "en_US.UTF-8", nullptr, VW("中"), "\xD6\xD0"},
      {nullptr, nullptr, "de_DE.ISO-8859-15@euro", nullptr, VW("€"), "\xA4"},
      {nullptr, nullptr, "en_US.UTF-8", nullptr, WideString(VW("a\xD800")) + VW("b"), "a?b"},
      // UTF-8 locales and those without a charset: by language and territory.
      {nullptr, nullptr, "C.UTF-8", nullptr, VW("é€"), "\xE9\x80"},
      {nullptr, nullptr, "en_US", nullptr, VW("\u00FC!"), "\xFC!"},
      {nullptr, nullptr, "zh_CN.UTF-8", nullptr, VW("中文"), "\xD6\xD0\xCE\xC4"},
      {nullptr, nullptr, "zh_TW.UTF-8", nullptr, VW("中文"), "\xA4\xA4\xA4\xE5"},
      {nullptr, nullptr, "zh_MO.UTF-8", nullptr, VW("中文"), "\xA4\xA4\xA4\xE5"},
      {nullptr, nullptr, "ja_JP.utf8", nullptr, VW("日本"), "\x93\xFA\x96\x7B"},
      {nullptr, nullptr, "ru_RU.UTF-8", nullptr, VW("Жé"), "\xC6?"},
      {nullptr, nullptr, "sr_RS.UTF-8", nullptr, VW("Жč"), "\xC6?"},
      {nullptr, nullptr, "sr_RS.UTF-8@latin", nullptr, VW("Жč"), "?\xE8"},
      {nullptr, nullptr, "uz_UZ.UTF-8@cyrillic", nullptr, VW("Ж"), "\xC6"},
      {nullptr, nullptr, "tr_TR.UTF-8", nullptr, VW("ğ"), "\xF0"},
      // No locale, C or POSIX, or a charset iconv does not know: ASCII.
      {nullptr, nullptr, nullptr, nullptr, VW("Ab\u00FC"), "Ab?"},
      {nullptr, nullptr, "C", nullptr, VW("é"), "?"},
      {nullptr, nullptr, "xx_XX.NO-SUCH-CHARSET", nullptr, VW("a中"), "a?"},
      // Named outright, over any locale; an unknown name is an error.
      {"zh_CN.UTF-8", nullptr, nullptr, "CP437", VW("é中"), "\x82?"},
      {nullptr, nullptr, "zh_CN.UTF-8", "UTF-8", VW("中"), "\xE4\xB8\xAD"},
      {nullptr, nullptr, "zh_CN.UTF-8", "", VW("中"), "\xD6\xD0"},
      {nullptr, nullptr, "zh_CN.UTF-8", "bogus", VW("a"), "", EINVAL},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (c.all ? c.all : "-") << " / " << (c.ctype ? c.ctype : "-") << " / "
                 << (c.lang ? c.lang : "-") << " / " << (c.codepage ? c.codepage : "-"));
    set_locale(c.all, c.ctype, c.lang, "LC_CTYPE");
    if (c.codepage != nullptr) setenv("VORN_CODEPAGE", c.codepage, 1);
    char out[64];
    size_t written = 99;
    EXPECT_EQ(native().to_narrow(c.text.data(), c.text.size(), out, sizeof out, &written), c.error);
    EXPECT_EQ(std::string(out, written), c.expected);
  }
}

TEST_F(TextPosixTest, WideConversionReplacesInvalidBytes) {
  const struct {
    const char* lang;
    std::string bytes;
    WideString expected;
  } cases[] = {
      {"zh_CN.GBK", "\xD6\xD0\xCE\xC4", VW("中文")},
      {"zh_CN.GBK", "a\xD6", VW("a\uFFFD")},  // lead byte cut off at the end
      {"zh_CN.GBK", std::string("a\xFF") + "b", VW("a\uFFFDb")},
  };
  for (const auto& c : cases) {
    set_locale(nullptr, nullptr, c.lang, "LC_CTYPE");
    char16_t out[16];
    size_t written = 99;
    EXPECT_EQ(native().to_wide(c.bytes.data(), c.bytes.size(), out, std::size(out), &written), 0);
    EXPECT_EQ(WideString(out, written), c.expected) << c.lang;
  }
}

TEST_F(TextPosixTest, NullOutputMeasuresAndShortOutputFails) {
  set_locale(nullptr, nullptr, "zh_CN.GBK", "LC_CTYPE");
  // Longer than any internal scratch buffer.
  const WideString text(1000, VW('中'));
  size_t written = 0;
  EXPECT_EQ(native().to_narrow(text.data(), text.size(), nullptr, 0, &written), 0);
  EXPECT_EQ(written, 2000u);
  EXPECT_EQ(native().to_wide("\xD6\xD0xy", 4, nullptr, 0, &written), 0);
  EXPECT_EQ(written, 3u);

  char out[3];
  EXPECT_EQ(native().to_narrow(VW("中文"), 2, out, sizeof out, &written), E2BIG);
  EXPECT_EQ(written, 0u);
  char16_t wide[1];
  EXPECT_EQ(native().to_wide("ab", 2, wide, 1, &written), E2BIG);
  EXPECT_EQ(native().to_narrow(VW(""), 0, out, sizeof out, &written), EINVAL);
  EXPECT_EQ(native().to_wide("", 0, wide, 1, &written), EINVAL);
}

TEST_F(TextPosixTest, UserLanguageFollowsTheMessageVariables) {
  const struct {
    const char *all, *messages, *lang;
    uint32_t expected;
  } cases[] = {
      {nullptr, nullptr, nullptr, 9},    {nullptr, nullptr, "zh_CN.UTF-8", 4},
      {"en_US.UTF-8", nullptr, "zh", 9}, {nullptr, "zh_TW", "en_US.UTF-8", 4},
      {nullptr, "de_DE", "zh_CN", 9},    {"", "", "zh_HK", 4},
      {nullptr, nullptr, "ZH_CN", 9},
  };
  for (const auto& c : cases) {
    set_locale(c.all, c.messages, c.lang, "LC_MESSAGES");
    EXPECT_EQ(native().user_language(), c.expected) << (c.lang ? c.lang : "-");
  }
  // The category of the code page does not choose the language.
  set_locale(nullptr, "zh_CN.GBK", nullptr, "LC_CTYPE");
  EXPECT_EQ(native().user_language(), 9u);
}

// System texts differ between systems; only presence and the region rule are
// checked: a region without room for text and terminator gets ERANGE.
TEST_F(TextPosixTest, SystemMessagesFillTheRegionOrRefuseIt) {
  char out[256] = {};
  EXPECT_EQ(native().system_message(ENOENT, 0, out, sizeof out), 0);
  const size_t length = std::strlen(out);
  EXPECT_GT(length, 0u);
  char exact[256] = {};
  EXPECT_EQ(native().system_message(ENOENT, 0, exact, length), ERANGE);
  EXPECT_EQ(exact[0], '\0');
  EXPECT_EQ(native().system_message(ENOENT, 0, exact, length + 1), 0);
  EXPECT_STREQ(exact, out);

  char16_t wide[256];
  EXPECT_EQ(native().system_message_wide(ENOENT, 0, wide, std::size(wide)), 0);
  const size_t units = std::char_traits<char16_t>::length(wide);
  EXPECT_GT(units, 0u);
  EXPECT_EQ(native().system_message_wide(ENOENT, 0, wide, units), ERANGE);
  EXPECT_EQ(native().system_message_wide(ENOENT, 0, wide, units + 1), 0);

  // A code the system has no text for gets nothing.
  char kept[] = "kept";
  EXPECT_EQ(native().system_message(99999, 0, kept, sizeof kept), EINVAL);
  EXPECT_STREQ(kept, "kept");
  EXPECT_EQ(native().system_message_wide(99999, 0, wide, std::size(wide)), EINVAL);
}

}  // namespace

#endif  // !defined(_WIN32)
