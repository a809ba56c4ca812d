// The command reader of `vorn annotate` on any bytes, as any model reads
// them: the entries cover the bytes in order without gaps, and the printed
// form has one line per entry.
#include <algorithm>
#include <string>

#include "escpos_annotate.h"
#include "fuzz_support.h"
#include "printer/catalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const auto rows = vorn::printer::catalogue();
  const uint32_t model = data[0] < rows.size() ? rows[data[0]].model_id : vorn::cli::kAnyModel;
  const std::span<const uint8_t> bytes(data + 1, size - 1);
  const auto commands = vorn::cli::annotate_escpos(bytes, model);
  size_t offset = 0;
  for (const auto& command : commands) {
    FUZZ_CHECK(command.offset == offset && command.length >= 1);
    offset += command.length;
  }
  FUZZ_CHECK(offset == bytes.size());
  const std::string text = vorn::cli::format_annotation(bytes, commands);
  FUZZ_CHECK(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) >= commands.size());
  return 0;
}
