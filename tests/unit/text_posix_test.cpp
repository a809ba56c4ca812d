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
#include <vector>

#include "platform/text.h"

namespace {

const vorn::platform::TextOps& native() {
  return vorn::platform::native_text();
}

// Starts each test with all locale variables unset and puts them back after.
class TextPosixTest : public ::testing::Test {
 protected:
  static constexpr const char* kVariables[] = {"LC_ALL", "LC_CTYPE", "LC_MESSAGES", "LANG"};

  void SetUp() override {
    for (const char* name : kVariables) {
      const char* value = std::getenv(name);
      saved_.push_back(value != nullptr ? std::optional<std::string>(value) : std::nullopt);
      unsetenv(name);
    }
  }
  void TearDown() override {
    for (size_t i = 0; i < std::size(kVariables); ++i) {
      if (saved_[i]) {
        setenv(kVariables[i], saved_[i]->c_str(), 1);
      } else {
        unsetenv(kVariables[i]);
      }
    }
  }

  // Sets the variables of one case; null leaves a variable unset.
  static void set_locale(const char* lc_all, const char* lc_category, const char* lang,
                         const char* category) {
    for (const char* name : kVariables) unsetenv(name);
    if (lc_all != nullptr) setenv("LC_ALL", lc_all, 1);
    if (lc_category != nullptr) setenv(category, lc_category, 1);
    if (lang != nullptr) setenv("LANG", lang, 1);
  }

  static std::string narrow(const std::u16string& text, int32_t* result = nullptr) {
    char out[64];
    size_t written = 99;
    const int32_t rc = native().to_narrow(text.data(), text.size(), out, sizeof out, &written);
    if (result != nullptr) *result = rc;
    return std::string(out, written);
  }

 private:
  std::vector<std::optional<std::string>> saved_;
};

TEST_F(TextPosixTest, NarrowCharsetComesFromTheLocaleVariables) {
  struct Case {
    const char* lc_all;
    const char* lc_ctype;
    const char* lang;
    std::u16string text;
    std::string expected;
  } cases[] = {
      {nullptr, nullptr, "zh_CN.GBK", u"中文", "\xD6\xD0\xCE\xC4"},
      {nullptr, nullptr, "zh_CN.GB18030", u"A中", "A\xD6\xD0"},
      // A character outside the basic plane is one '?', not two.
      {nullptr, nullptr, "zh_CN.GBK", u"中\U0001F600", "\xD6\xD0?"},
      {"en_US.UTF-8", nullptr, "zh_CN.GBK", u"中", "\xE4\xB8\xAD"},
      {"", nullptr, "zh_CN.GBK", u"中", "\xD6\xD0"},  // empty counts as unset
      {nullptr, "zh_CN.GBK", "en_US.UTF-8", u"中", "\xD6\xD0"},
      {nullptr, nullptr, "de_DE.ISO-8859-1@euro", u"é", "\xE9"},
      {nullptr, nullptr, "en_US.UTF-8",
       u"a\xD800"
       u"b",
       "a?b"},  // lone surrogate
      {nullptr, nullptr, "C", u"aé中", "a??"},
      {nullptr, nullptr, "POSIX", u"x\U0001F600y", "x?y"},
      {nullptr, nullptr, nullptr, u"Ab\u00FC", "Ab?"},
      {nullptr, nullptr, "en_US", u"\u00FC!", "?!"},
      {nullptr, nullptr, "xx_XX.NO-SUCH-CHARSET", u"a中", "a?"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << "LC_ALL " << (c.lc_all ? c.lc_all : "-") << ", LC_CTYPE "
                 << (c.lc_ctype ? c.lc_ctype : "-") << ", LANG " << (c.lang ? c.lang : "-"));
    set_locale(c.lc_all, c.lc_ctype, c.lang, "LC_CTYPE");
    int32_t result = -1;
    EXPECT_EQ(narrow(c.text, &result), c.expected);
    EXPECT_EQ(result, 0);
  }
}

TEST_F(TextPosixTest, WideConversionReplacesInvalidBytes) {
  struct Case {
    const char* lang;
    std::string bytes;
    std::u16string expected;
  } cases[] = {
      {"zh_CN.GBK", "\xD6\xD0\xCE\xC4", u"中文"},
      {"zh_CN.GBK", "a\xD6", u"a\uFFFD"},  // lead byte cut off at the end
      {"en_US.UTF-8",
       "a\xFF"
       "b",
       u"a\uFFFDb"},
      {"C", "a\x80", u"a\uFFFD"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lang);
    set_locale(nullptr, nullptr, c.lang, "LC_CTYPE");
    char16_t out[16];
    size_t written = 99;
    EXPECT_EQ(native().to_wide(c.bytes.data(), c.bytes.size(), out, std::size(out), &written), 0);
    EXPECT_EQ(std::u16string(out, written), c.expected);
  }
}

TEST_F(TextPosixTest, NullOutputOnlyMeasures) {
  setenv("LANG", "zh_CN.GBK", 1);
  // Longer than any internal scratch buffer.
  const std::u16string text(1000, u'中');
  size_t written = 0;
  EXPECT_EQ(native().to_narrow(text.data(), text.size(), nullptr, 0, &written), 0);
  EXPECT_EQ(written, 2000u);

  const std::string bytes = "\xD6\xD0xy";
  EXPECT_EQ(native().to_wide(bytes.data(), bytes.size(), nullptr, 0, &written), 0);
  EXPECT_EQ(written, 3u);
}

TEST_F(TextPosixTest, TooSmallOutputAndEmptyInputFail) {
  setenv("LANG", "zh_CN.GBK", 1);
  char out[3];
  size_t written = 99;
  EXPECT_EQ(native().to_narrow(u"中文", 2, out, sizeof out, &written), E2BIG);
  EXPECT_EQ(written, 0u);
  char16_t wide[1];
  EXPECT_EQ(native().to_wide("ab", 2, wide, 1, &written), E2BIG);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(native().to_narrow(u"", 0, out, sizeof out, &written), EINVAL);
  EXPECT_EQ(native().to_wide("", 0, wide, 1, &written), EINVAL);
  EXPECT_EQ(native().invalid_parameter, EINVAL);
}

TEST_F(TextPosixTest, UserLanguageFollowsTheMessageVariables) {
  struct Case {
    const char* lc_all;
    const char* lc_messages;
    const char* lang;
    uint32_t expected;
  } cases[] = {
      {nullptr, nullptr, nullptr, 9},
      {nullptr, nullptr, "zh_CN.UTF-8", 4},
      {nullptr, nullptr, "zh", 4},
      {"en_US.UTF-8", nullptr, "zh_CN.UTF-8", 9},
      {"zh_TW.Big5", nullptr, "en_US.UTF-8", 4},
      {nullptr, "zh_TW", "en_US.UTF-8", 4},
      {nullptr, "de_DE.UTF-8", "zh_CN.UTF-8", 9},
      {"", "", "zh_HK", 4},
      {nullptr, nullptr, "C", 9},
      {nullptr, nullptr, "ZH_CN", 9},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (c.lc_all ? c.lc_all : "-") << " / " << (c.lc_messages ? c.lc_messages : "-")
                 << " / " << (c.lang ? c.lang : "-"));
    set_locale(c.lc_all, c.lc_messages, c.lang, "LC_MESSAGES");
    EXPECT_EQ(native().user_language(), c.expected);
  }
  // The category for the code page does not choose the language.
  set_locale(nullptr, "zh_CN.GBK", nullptr, "LC_CTYPE");
  EXPECT_EQ(native().user_language(), 9u);
}

// System texts differ between systems; only presence and the region rule are
// checked.
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
  EXPECT_LE(units, length);
  EXPECT_EQ(native().system_message_wide(ENOENT, 0, wide, units), ERANGE);
  EXPECT_EQ(native().system_message_wide(ENOENT, 0, wide, units + 1), 0);
  // A number the system does not know still has a text.
  EXPECT_EQ(native().system_message(123456, 0, out, sizeof out), 0);
  EXPECT_GT(std::strlen(out), 0u);
}

}  // namespace

#endif  // !defined(_WIN32)
