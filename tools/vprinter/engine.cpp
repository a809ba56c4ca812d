#include "engine.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <unordered_map>

#include "codepages.h"

namespace vorn::vprinter {
namespace {

using namespace std::string_view_literals;
using cli::byte_at;
using cli::choice;
using cli::u16_at;

std::string hex_offset(uint64_t offset) {
  char text[32];
  std::snprintf(text, sizeof text, "offset 0x%04llX", static_cast<unsigned long long>(offset));
  return text;
}

}  // namespace

Engine::Engine(Fonts& fonts, const EngineOptions& options, EngineOutput output)
    : fonts_(fonts), options_(options), output_(std::move(output)) {
  options_.dots_per_line = std::clamp(options_.dots_per_line, 8, 4096);
  paper_ = Bitmap(options_.dots_per_line, 0);
}

void Engine::log(const std::string& what) {
  if (output_.log) output_.log(what);
}

Engine::Handler Engine::handler_for(std::string_view prefix) {
  // clang-format off
  static const std::unordered_map<std::string_view, Handler> kHandlers = {
      {"\x09"sv, &Engine::tab}, {"\x0a"sv, &Engine::line_feed}, {"\x0c"sv, &Engine::form_feed},
      {"\x18"sv, &Engine::cancel},
      {"\x1b@"sv, &Engine::initialise}, {"\x1b!"sv, &Engine::print_mode},
      {"\x1b "sv, &Engine::set_spacing}, {"\x1b" "E"sv, &Engine::set_bold},
      {"\x1bG"sv, &Engine::set_double_strike}, {"\x1bM"sv, &Engine::set_font},
      {"\x1b-"sv, &Engine::set_underline}, {"\x1b" "a"sv, &Engine::set_justification},
      {"\x1b$"sv, &Engine::absolute_position}, {"\x1b" "2"sv, &Engine::default_line_spacing},
      {"\x1b" "3"sv, &Engine::set_line_spacing}, {"\x1b" "d"sv, &Engine::feed_lines},
      {"\x1bJ"sv, &Engine::feed_units}, {"\x1bp"sv, &Engine::drawer_pulse},
      {"\x1bt"sv, &Engine::code_table}, {"\x1bL"sv, &Engine::page_mode},
      {"\x1bS"sv, &Engine::standard_mode}, {"\x1bW"sv, &Engine::print_area},
      {"\x1bT"sv, &Engine::print_direction}, {"\x1b\x0c"sv, &Engine::print_page_data},
      {"\x1bv"sv, &Engine::paper_sensor}, {"\x1b#*\x0a\x00"sv, &Engine::firmware_query},
      {"\x1b*"sv, &Engine::column_image},
      {"\x1d!"sv, &Engine::character_size}, {"\x1d" "B"sv, &Engine::set_reverse},
      {"\x1dV"sv, &Engine::cut}, {"\x1dw"sv, &Engine::module_width},
      {"\x1dh"sv, &Engine::barcode_height}, {"\x1dH"sv, &Engine::hri_position},
      {"\x1d" "f"sv, &Engine::hri_font}, {"\x1dk"sv, &Engine::barcode},
      {"\x1d(k"sv, &Engine::symbol}, {"\x1d(L"sv, &Engine::graphics},
      {"\x1d" "8L"sv, &Engine::graphics_long}, {"\x1d(E"sv, &Engine::user_setting},
      {"\x1dv0"sv, &Engine::raster}, {"\x1d*"sv, &Engine::define_bit_image},
      {"\x1d/"sv, &Engine::print_bit_image}, {"\x1d$"sv, &Engine::vertical_position},
      {"\x1d\x0c"sv, &Engine::next_label}, {"\x1dI"sv, &Engine::printer_id},
      {"\x1dr"sv, &Engine::transmit_status}, {"\x1dL"sv, &Engine::left_margin},
      {"\x1dW"sv, &Engine::area_width_command},
      {"\x10\x04"sv, &Engine::status}, {"\x10\x14"sv, &Engine::real_time},
      {"\x1c&"sv, &Engine::chinese_on}, {"\x1c."sv, &Engine::chinese_off},
      {"\x1cq"sv, &Engine::define_nv_bit_images}, {"\x1cp"sv, &Engine::print_nv_bit_image},
      {"\x12'w\x10"sv, &Engine::buzzer},
  };
  // clang-format on
  auto found = kHandlers.find(prefix);
  return found == kHandlers.end() ? &Engine::ignore : found->second;
}

void Engine::feed(Bytes bytes) {
  if (discard_ > 0) {
    const size_t skipped = static_cast<size_t>(std::min<uint64_t>(discard_, bytes.size()));
    discard_ -= skipped;
    offset_ += skipped;
    bytes = bytes.subspan(skipped);
  }
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  size_t at = 0;
  while (at < pending_.size()) {
    const Bytes rest = Bytes(pending_).subspan(at);
    const cli::EscposItem item = cli::read_escpos_item(rest, options_.model_id);
    if (item.kind == cli::EscposItem::kTruncated) {
      const uint64_t needed = std::max<uint64_t>(item.needed, rest.size());
      if (needed <= kMaxCommandBytes) break;  // wait for the rest
      log(hex_offset(offset_ + at) + ": " + std::string(item.shape->name) + " of " +
          std::to_string(needed) + " bytes is too long, skipped");
      discard_ = needed - rest.size();
      at = pending_.size();
      break;
    }
    if (item.kind == cli::EscposItem::kText && !user_setting_mode_) {
      const size_t used = text(rest.first(item.length), at + item.length == pending_.size());
      if (used == 0) break;
      at += used;
      continue;
    }
    execute(item, rest.first(item.length));
    at += item.length;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(at));
  offset_ += at;
}

void Engine::execute(const cli::EscposItem& item, Bytes command) {
  // In user setting mode the printer takes only user settings and
  // real-time commands; everything else is left unread.
  if (user_setting_mode_ && (item.shape == nullptr ||
                             (item.shape->prefix != "\x1d(E"sv && item.shape->prefix[0] != 0x10))) {
    return;
  }
  if (item.kind == cli::EscposItem::kUnknown) {
    char text[64];
    if (item.introducer == nullptr) {
      std::snprintf(text, sizeof text, ": unknown byte 0x%02X skipped", command[0]);
    } else {
      std::snprintf(text, sizeof text, ": unknown command %s 0x%02X skipped", item.introducer,
                    command[1]);
    }
    log(hex_offset(offset_ + (command.data() - pending_.data())) + text);
    return;
  }
  (this->*handler_for(item.shape->prefix))(command);
}

void Engine::end_of_stream() {
  if (!pending_.empty()) {
    const Bytes rest(pending_);
    if (cli::is_text_byte(rest[0])) {
      text(rest, false);
    } else {
      log(hex_offset(offset_) + ": command cut short after " + std::to_string(rest.size()) +
          (rest.size() == 1 ? " byte" : " bytes") + ", dropped");
    }
  }
  pending_.clear();
  discard_ = 0;
  offset_ = 0;
}

void Engine::finish() {
  end_of_stream();
  if (page_.active) print_page();
  print_line(false);
  finish_picture("receipt");
}

// Text: characters of the code table in force, or GBK pairs in Chinese
// mode. Returns the bytes used; a lead byte whose partner may still come
// waits for it, and so does the start of the version question, which a
// connection may deliver in pieces.
size_t Engine::text(Bytes run, bool more_may_come) {
  static constexpr std::string_view kVersionQuery = "ZZZGETVERSION";
  size_t i = 0;
  while (i < run.size()) {
    const uint8_t b = run[i];
    if ((options_.type_flags & 0x2) != 0 && b == 'Z') {
      const std::string_view rest(reinterpret_cast<const char*>(run.data() + i),
                                  std::min(run.size() - i, kVersionQuery.size()));
      if (rest == kVersionQuery) {
        firmware_query(run.subspan(i, kVersionQuery.size()));
        i += kVersionQuery.size();
        continue;
      }
      if (more_may_come && kVersionQuery.starts_with(rest)) return i;
    }
    if (chinese_ && b >= 0x81 && b <= 0xFE) {
      if (i + 1 >= run.size()) {
        if (more_may_come) return i;
        break;
      }
      const uint16_t code = static_cast<uint16_t>(b << 8 | run[i + 1]);
      character(fonts_.chinese(code, mode_.font_b), true);
      i += 2;
      continue;
    }
    const uint8_t table = user_code_table_.value_or(code_table_);
    character(fonts_.latin(code_page_character(table, b), mode_.font_b, mode_.bold), false);
    ++i;
  }
  return run.size();
}

void Engine::initialise(Bytes) {
  line_.clear();
  line_x_ = 0;
  mode_ = TextMode{};
  justification_ = 0;
  line_spacing_ = 30;
  left_margin_ = 0;
  area_width_ = 0;
  code_table_ = 0;
  chinese_ = false;
  barcode_module_ = 3;
  barcode_height_ = 162;
  hri_position_ = 0;
  hri_font_b_ = false;
  qr_module_ = 3;
  qr_level_ = 0;
  pdf417_ = Pdf417Settings{};
  // The print area and direction go back to their defaults too.
  page_ = Page{};
}

void Engine::line_feed(Bytes) {
  print_line(true);
}

void Engine::form_feed(Bytes) {
  if (page_.active) {
    print_page();
    page_.active = false;
  } else {
    print_line(true);
  }
}

void Engine::tab(Bytes) {
  const int stop = (mode_.font_b ? kFontB.width : kFontA.width) * 8;
  line_x_ = (line_x_ / stop + 1) * stop;
}

void Engine::cancel(Bytes) {
  if (page_.active) clear_page();
}

void Engine::print_mode(Bytes c) {
  const unsigned n = c[2];
  mode_.font_b = (n & 0x01) != 0;
  mode_.bold = (n & 0x08) != 0;
  mode_.height = (n & 0x10) != 0 ? 2 : 1;
  mode_.width = (n & 0x20) != 0 ? 2 : 1;
  mode_.underline = (n & 0x80) != 0 ? 1 : 0;
}

void Engine::set_spacing(Bytes c) {
  mode_.spacing = c[2];
}
void Engine::set_bold(Bytes c) {
  mode_.bold = (c[2] & 1) != 0;
}
void Engine::set_double_strike(Bytes c) {
  mode_.double_strike = (c[2] & 1) != 0;
}
void Engine::set_font(Bytes c) {
  if (choice(c[2]) >= 0) mode_.font_b = choice(c[2]) == 1;
}
void Engine::set_underline(Bytes c) {
  if (choice(c[2]) >= 0 && choice(c[2]) <= 2) mode_.underline = choice(c[2]);
}
void Engine::set_justification(Bytes c) {
  if (choice(c[2]) >= 0 && choice(c[2]) <= 2) justification_ = choice(c[2]);
}
void Engine::absolute_position(Bytes c) {
  const int x = static_cast<int>(u16_at(c, 2));
  if (page_.active || x < area_width()) {
    line_x_ = x;
  }
}
void Engine::default_line_spacing(Bytes) {
  line_spacing_ = 30;
}
void Engine::set_line_spacing(Bytes c) {
  line_spacing_ = c[2];
}
void Engine::feed_lines(Bytes c) {
  print_line(false);
  feed_dots(line_spacing_ * c[2]);
}
void Engine::feed_units(Bytes c) {
  print_line(false);
  feed_dots(c[2]);
}

void Engine::drawer_pulse(Bytes c) {
  log("drawer pulse on pin " + std::string(choice(c[2]) == 1 ? "5" : "2") + ", " +
      std::to_string(c[3] * 2) + " ms");
}

void Engine::buzzer(Bytes c) {
  log("buzzer mode " + std::to_string(c[4]));
}

void Engine::code_table(Bytes c) {
  code_table_ = c[2];
  user_code_table_.reset();
  if (!code_page_known(c[2])) log("code table " + std::to_string(c[2]) + " unknown, PC437 used");
}

void Engine::chinese_on(Bytes) {
  chinese_ = true;
}
void Engine::chinese_off(Bytes) {
  chinese_ = false;
}

// GS ( E: user settings. Setting 8 of function 5 is the code table the
// printer starts with; it stays over ESC @.
void Engine::user_setting(Bytes c) {
  if (byte_at(c, 5) == 1) user_setting_mode_ = true;
  if (byte_at(c, 5) == 2) user_setting_mode_ = false;
  if (user_setting_mode_ && byte_at(c, 5) == 5 && byte_at(c, 6) == 8) {
    user_code_table_ = static_cast<uint8_t>(byte_at(c, 7));
    log("user setting: code table " + std::to_string(byte_at(c, 7)));
  }
}

void Engine::real_time(Bytes c) {
  switch (c[2]) {
    case 1:
      log("drawer pulse on pin " + std::string(c[3] == 0 ? "2" : "5") + ", " +
          std::to_string(c[4] * 100) + " ms");
      break;
    case 8:
      line_.clear();
      line_x_ = 0;
      if (page_.active) clear_page();
      break;
    default:
      break;
  }
}

void Engine::character_size(Bytes c) {
  mode_.width = (c[2] >> 4 & 7) + 1;
  mode_.height = (c[2] & 7) + 1;
}

void Engine::set_reverse(Bytes c) {
  mode_.reverse = (c[2] & 1) != 0;
}

void Engine::cut(Bytes c) {
  print_line(false);
  const unsigned m = c[2];
  if (m == 65 || m == 66 || m == 97 || m == 98 || m == 103 || m == 104) feed_dots(byte_at(c, 3));
  const bool partial = m == 1 || m == 49 || m == 66 || m == 98 || m == 104;
  log(std::string(partial ? "partial" : "full") + " cut");
  finish_picture("receipt");
}

void Engine::next_label(Bytes) {
  print_line(false);
  finish_picture("receipt");
}

void Engine::left_margin(Bytes c) {
  left_margin_ = std::min<int>(static_cast<int>(u16_at(c, 2)), options_.dots_per_line - 1);
}

void Engine::area_width_command(Bytes c) {
  area_width_ = static_cast<int>(u16_at(c, 2));
}

}  // namespace vorn::vprinter
