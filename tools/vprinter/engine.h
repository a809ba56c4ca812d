// The virtual printer's engine: it reads ESC/POS bytes with the command
// reader, keeps the printer's state, draws what a thermal printer would
// print and answers the queries a printer answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bitmap.h"
#include "escpos_reader.h"
#include "fonts.h"
#include "symbols.h"

namespace vorn::vprinter {

using Bytes = std::span<const uint8_t>;

// What the printer reports about itself.
struct Conditions {
  bool paper_near_end = false;
  bool paper_out = false;
  bool cover_open = false;
  bool drawer_open = false;
  bool offline = false;
};

struct EngineOptions {
  int dots_per_line = 576;
  uint32_t model_id = 0;    // catalogue model identifier; its own command forms apply
  uint32_t type_flags = 1;  // catalogue type flags: which firmware query it answers
  // Page mode's vertical positions and sizes come in fine motion units;
  // models with a unit of half a dot take 2 a dot.
  int vertical_units_per_dot = 1;
  Conditions conditions;
};

struct EngineOutput {
  // A finished picture: "receipt" up to a cut, "page" for a page printed in
  // page mode.
  std::function<void(const Bitmap&, const char* kind)> picture;
  // Bytes the printer sends back.
  std::function<void(std::vector<uint8_t>)> answer;
  // What the printer did besides drawing, and what it skipped.
  std::function<void(const std::string&)> log;
};

// Bounds that keep memory in check whatever the bytes say.
inline constexpr uint64_t kMaxCommandBytes = 4u << 20;
inline constexpr int kMaxPictureRows = 32768;
inline constexpr int kMaxPageRows = 8192;
inline constexpr size_t kMaxStoredBytes = 16u << 20;

class Engine {
 public:
  Engine(Fonts& fonts, const EngineOptions& options, EngineOutput output);

  // Executes every complete command; a command cut short by the end of
  // `bytes` waits for the next call.
  void feed(Bytes bytes);
  // The sender is gone: a command still cut short is dropped.
  void end_of_stream();
  // Prints what is held and hands over the last picture, as a cut would.
  void finish();

  const Conditions& conditions() const { return options_.conditions; }

 private:
  using Handler = void (Engine::*)(Bytes);
  struct LineItem {
    Bitmap dots;
    int x;
  };
  struct TextMode {
    bool font_b = false;
    bool bold = false;
    bool double_strike = false;
    int underline = 0;
    bool reverse = false;
    int width = 1;
    int height = 1;
    int spacing = 0;
  };
  struct Page {
    bool active = false;
    int x = 0, y = 0, width = 0, height = 0;  // print area on the paper
    int direction = 0;                        // quarter turns of ESC T
    Bitmap dots;                              // in the direction's own axes
    bool area_set = false;                    // else the whole width, cut to what was drawn
    int pos_y = 0;                            // where the next line's top goes
  };

  static Handler handler_for(std::string_view prefix);
  void execute(const cli::EscposItem& item, Bytes command);
  size_t text(Bytes run, bool more_may_come);
  void log(const std::string& what);
  uint64_t offset_ = 0;  // of the next pending byte in this stream

  // Text and lines (engine_text.cpp).
  void character(const Bitmap& glyph, bool wide_glyph);
  void print_line(bool feed);
  void feed_dots(int dots);
  void place_block(const Bitmap& block);
  int area_width() const;
  int line_spacing() const { return line_spacing_; }

  // Paper and pages (engine_paper.cpp).
  void draw_on_paper(const Bitmap& dots, int x, int height);
  void finish_picture(const char* kind);
  void print_page();
  void clear_page();
  Bitmap& page_dots();

  // Command handlers.
  void ignore(Bytes) {}
  void initialise(Bytes);
  void line_feed(Bytes);
  void form_feed(Bytes);
  void tab(Bytes);
  void cancel(Bytes);
  void print_mode(Bytes);
  void set_spacing(Bytes);
  void set_bold(Bytes);
  void set_double_strike(Bytes);
  void set_font(Bytes);
  void set_underline(Bytes);
  void set_justification(Bytes);
  void absolute_position(Bytes);
  void default_line_spacing(Bytes);
  void set_line_spacing(Bytes);
  void feed_lines(Bytes);
  void feed_units(Bytes);
  void drawer_pulse(Bytes);
  void code_table(Bytes);
  void page_mode(Bytes);
  void standard_mode(Bytes);
  void print_area(Bytes);
  void print_direction(Bytes);
  void print_page_data(Bytes);
  void vertical_position(Bytes);
  void character_size(Bytes);
  void set_reverse(Bytes);
  void cut(Bytes);
  void next_label(Bytes);
  void left_margin(Bytes);
  void area_width_command(Bytes);
  void chinese_on(Bytes);
  void chinese_off(Bytes);
  void user_setting(Bytes);
  void real_time(Bytes);
  void buzzer(Bytes);
  // Barcodes and symbols (engine_symbols.cpp).
  void module_width(Bytes);
  void barcode_height(Bytes);
  void hri_position(Bytes);
  void hri_font(Bytes);
  void barcode(Bytes);
  void symbol(Bytes);
  void print_qr();
  void print_pdf417();
  // Images (engine_images.cpp).
  void raster(Bytes);
  void column_image(Bytes);
  void graphics(Bytes);
  void graphics_long(Bytes);
  void graphics_function(Bytes body, size_t data_offset);
  void define_bit_image(Bytes);
  void print_bit_image(Bytes);
  void define_nv_bit_images(Bytes);
  void print_nv_bit_image(Bytes);
  bool store_allowed(size_t bytes);
  void print_picture(const Bitmap& picture, int scale);
  // Answers (engine_answers.cpp).
  void status(Bytes);
  void paper_sensor(Bytes);
  void transmit_status(Bytes);
  void printer_id(Bytes);
  void firmware_query(Bytes);
  void send(std::vector<uint8_t> bytes);

  Fonts& fonts_;
  EngineOptions options_;
  EngineOutput output_;
  std::vector<uint8_t> pending_;
  uint64_t discard_ = 0;  // bytes of a command too long to hold, still to skip

  // Printer state, reset by ESC @ except where said.
  TextMode mode_;
  int justification_ = 0;
  int line_spacing_ = 30;
  int left_margin_ = 0;
  int area_width_ = 0;  // 0: to the right edge
  uint8_t code_table_ = 0;
  std::optional<uint8_t> user_code_table_;  // kept by ESC @, like a user setting
  bool user_setting_mode_ = false;
  bool chinese_ = false;
  int barcode_module_ = 3;
  int barcode_height_ = 162;
  int hri_position_ = 0;
  bool hri_font_b_ = false;
  // Two-dimensional symbol settings and stored data.
  int qr_module_ = 3;
  int qr_level_ = 0;
  std::vector<uint8_t> qr_data_;
  Pdf417Settings pdf417_;
  std::vector<uint8_t> pdf417_data_;

  // The line being composed: items with their x from the area's left edge.
  std::vector<LineItem> line_;
  int line_x_ = 0;

  // The paper drawn so far since the last cut; y is where the next line goes.
  Bitmap paper_;
  int paper_y_ = 0;
  bool paper_used_ = false;

  Page page_;

  // Stored pictures: in NV memory and volatile memory they outlive ESC @
  // and connections; NV pictures last as long as the printer runs.
  std::map<uint16_t, Bitmap> nv_graphics_;
  std::map<uint16_t, Bitmap> download_graphics_;
  Bitmap buffered_graphic_;
  std::vector<Bitmap> nv_bit_images_;
  Bitmap downloaded_bit_image_;
};

}  // namespace vorn::vprinter
