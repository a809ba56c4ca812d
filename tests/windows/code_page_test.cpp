// Text through the system's ANSI code page and the system's messages, as the
// library sees them under Wine. The code page is the process's: CTest runs
// this program once as it comes (1252) and once with LC_ALL=zh_CN.UTF-8
// (936), and VORN_EXPECT_ACP says which one this run must see.
#include <gtest/gtest.h>
#include <vorn/vorn.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/fake_session.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

UINT expected_code_page() {
  const char* value = std::getenv("VORN_EXPECT_ACP");
  return value != nullptr ? static_cast<UINT>(std::atoi(value)) : 1252;
}

TEST(CodePage, ProcessRunsUnderTheExpectedCodePage) {
  EXPECT_EQ(GetACP(), expected_code_page());
}

// The same call sends the code page's own bytes; what it lacks becomes '?'.
TEST(CodePage, PrintTextSendsTheAnsiBytes) {
  const struct {
    UINT code_page;
    const VORN_WCHAR* text;
    const char* bytes;
  } rows[] = {
      {1252, VW("\u00E9\u20AC"), "E9 80"},
      {1252, VW("\u4E2D\u6587"), "3F 3F"},
      {936, VW("\u4E2D\u6587"), "D6 D0 CE C4"},
      {936, VW("A\u00E9"), "41 A8 A6"},
  };
  for (const auto& row : rows) {
    if (row.code_page != GetACP()) continue;
    SCOPED_TRACE(row.bytes);
    FakeSession session;
    ASSERT_EQ(PrintTextS(session.handle(), row.text), VORN_OK);
    EXPECT_EQ(session.take_written(), hex(row.bytes));
  }
  FakeSession session;
  EXPECT_EQ(PrintTextS(session.handle(), VW("")), ERROR_INVALID_PARAMETER);
}

// The user's language follows the locale: Chinese texts for language 0
// under zh_CN, converted to UTF-16 through code page 936.
TEST(Messages, LibraryTextsFollowTheUsersLanguage) {
  const bool chinese = GetACP() == 936;
  char narrow[64];
  ASSERT_EQ(vorn_io_format_error(-100, narrow, 0, sizeof narrow), VORN_OK);
  EXPECT_STREQ(narrow,
               chinese ? "VORN \xB4\xF2\xD3\xA1\xB4\xED\xCE\xF3\xA3\xA1" : "VORN print error.");
  VORN_WCHAR wide[64];
  ASSERT_EQ(FormatError(-100, 0, wide, 0, sizeof wide), VORN_OK);
  EXPECT_EQ(WideString(wide), chinese ? WideString(VW("VORN \u6253\u5370\u9519\u8BEF\uFF01"))
                                      : WideString(VW("VORN print error.")));
}

// System texts are the system's own (their wording is not compared): a
// known code gives a text, an unknown one the system's "no message" number,
// and a region too small for the text the system's refusal.
TEST(Messages, SystemTextsComeFromTheSystemTable) {
  char narrow[256];
  EXPECT_EQ(vorn_io_format_error(ERROR_FILE_NOT_FOUND, narrow, 0, sizeof narrow), VORN_OK);
  EXPECT_GT(std::strlen(narrow), 0u);
  VORN_WCHAR wide[256];
  EXPECT_EQ(FormatError(ERROR_FILE_NOT_FOUND, 0, wide, 0, sizeof wide), VORN_OK);
  EXPECT_GT(WideString(wide).size(), 0u);
  EXPECT_EQ(vorn_io_format_error(0x7FFF1234, narrow, 0, sizeof narrow), ERROR_MR_MID_NOT_FOUND);
  EXPECT_GT(vorn_io_format_error(ERROR_FILE_NOT_FOUND, narrow, 0, 2), 0);
}

}  // namespace
}  // namespace vorn::test
