// Narrow text in UTF-8 for the lifetime of the object, whatever the
// platform's own code page: for tests of text that takes three bytes a
// character, which only a UTF-8 charset produces.
#pragma once

#include "platform/text.h"

namespace vorn::test {

class Utf8NarrowText {
 public:
  Utf8NarrowText();
  ~Utf8NarrowText();
  Utf8NarrowText(const Utf8NarrowText&) = delete;
  Utf8NarrowText& operator=(const Utf8NarrowText&) = delete;

 private:
  const platform::TextOps* previous_;
};

}  // namespace vorn::test
