// What the printer answers: real-time status, paper sensor and drawer
// status, printer information and firmware version, from the conditions it
// was told to report.
#include "engine.h"

namespace vorn::vprinter {
namespace {

// Firmware version 1.2.3, in each query's own form.
constexpr const char kVersionText[] = "1.2.3";
// Every real-time status byte has bits 1 and 4 set and bits 0 and 7 clear.
constexpr uint8_t kStatusFixed = 0x12;

}  // namespace

void Engine::send(std::vector<uint8_t> bytes) {
  if (output_.answer) output_.answer(std::move(bytes));
}

void Engine::status(Bytes c) {
  const Conditions& s = options_.conditions;
  uint8_t b = kStatusFixed;
  switch (c[2]) {
    case 1:  // printer: drawer connector pin 3, off line
      if (s.drawer_open) b |= 0x04;
      // A printer with its cover open or out of paper stops: it is off line.
      if (s.offline || s.cover_open || s.paper_out) b |= 0x08;
      break;
    case 2:  // off-line cause: cover, printing stopped at paper end
      if (s.cover_open) b |= 0x04;
      if (s.paper_out) b |= 0x20;
      break;
    case 3:  // error cause: none
      break;
    case 4:  // paper sensors: near end, end
      if (s.paper_near_end || s.paper_out) b |= 0x0C;
      if (s.paper_out) b |= 0x60;
      break;
    default:
      return;
  }
  send({b});
}

// ESC v: bit 0 paper end, bit 1 off line.
void Engine::paper_sensor(Bytes) {
  const Conditions& s = options_.conditions;
  uint8_t b = 0;
  if (s.paper_out) b |= 0x01;
  if (s.offline || s.cover_open) b |= 0x02;
  send({b});
}

// GS r: 1 or 49 paper sensors, 2 or 50 the drawer connector.
void Engine::transmit_status(Bytes c) {
  const Conditions& s = options_.conditions;
  switch (c[2]) {
    case 1:
    case 49: {
      uint8_t b = 0;
      if (s.paper_near_end || s.paper_out) b |= 0x03;
      if (s.paper_out) b |= 0x0C;
      send({b});
      break;
    }
    case 2:
    case 50:
      send({static_cast<uint8_t>(s.drawer_open ? 0x01 : 0x00)});
      break;
    default:
      break;
  }
}

// GS I: 1 to 3 (or 49 to 51) answer one byte; 65 to 69 a text between "_"
// and NUL.
void Engine::printer_id(Bytes c) {
  const unsigned n = c[2];
  if ((n >= 1 && n <= 3) || (n >= 49 && n <= 51)) {
    static constexpr uint8_t kIds[] = {0x20, 0x02, 0x12};  // model, type, version
    send({kIds[(n - 1) % 48]});
    return;
  }
  std::string text;
  switch (n) {
    case 65:
      text = std::string(kVersionText) + " VORN";
      break;
    case 66:
      text = "VORN";
      break;
    case 67:
      text = "VIRTUAL PRINTER";
      break;
    case 68:
      text = "000001";
      break;
    case 69:
      text = "ANK";
      break;
    default:
      return;
  }
  std::vector<uint8_t> answer{'_'};
  answer.insert(answer.end(), text.begin(), text.end());
  answer.push_back(0);
  send(std::move(answer));
}

// ESC # * LF NUL and the text query "ZZZGETVERSION": the version as text or
// as bytes, ended by NUL.
void Engine::firmware_query(Bytes c) {
  if (c[0] == 'Z') {
    send({1, 2, 3, 0});
    return;
  }
  std::vector<uint8_t> answer(kVersionText, kVersionText + sizeof kVersionText);
  send(std::move(answer));
}

}  // namespace vorn::vprinter
