// Status queries: the printer is asked about its paper, cover, line state,
// cash drawer and firmware version, and its answer is read back. Which
// question a model understands is told by the type flags in its capability
// word. Each question goes out through the command buffer like any command;
// the answer is read after a fixed wait that gives the printer time to
// answer.
#include <cstring>

#include "escpos/encoder.h"
#include "platform/clock.h"
#include "printer/session.h"

namespace vorn::printer {
namespace {

using escpos::emit;
using escpos::Target;
using escpos::with_room;

// Bits of the printer state word.
constexpr uint32_t kStatePaperEnd = 0x01;
constexpr uint32_t kStateCoverOpen = 0x02;
constexpr uint32_t kStatePaperNearEnd = 0x04;
constexpr uint32_t kStateQueryFailed = 0x20;
constexpr uint32_t kStateOffLine = 0x80;

constexpr uint32_t kStatusWaitMs = 100;
constexpr uint32_t kDrawerWaitMs = 500;
constexpr uint32_t kVersionAnswerSize = 32;

// DLE EOT n, real-time status.
int32_t encode_realtime_status(const Target& t, uint8_t n) {
  const bool valid = (n >= 1 && n <= 4) || n == 7;
  return emit(t, valid, {0x10, 0x04, n});
}

// ESC v, paper sensor status.
int32_t encode_paper_sensor_status(const Target& t) {
  return emit(t, true, {0x1B, 0x76});
}

// GS r n, status.
int32_t encode_status(const Target& t, uint8_t n) {
  const bool valid = n == 1 || n == 2 || n == 49 || n == 50;
  return emit(t, valid, {0x1D, 0x72, n});
}

// The firmware question in the form the model understands. Unlike every
// other command this one is also sent to models that do not take ESC/POS:
// their own query kind is what they answer, so only a model with none of the
// three kinds is refused.
int32_t encode_firmware_query(const Target& t) {
  Target query_target = t;
  query_target.capability |= kFlagEscPos;
  if (t.capability & kFlagEscPos) return emit(query_target, true, {0x1D, 0x49, 0x41});
  if (t.capability & kFlagVersionEscHash) {
    return emit(query_target, true, {0x1B, 0x23, 0x2A, 0x0A, 0x00});
  }
  if (t.capability & kFlagVersionText) {
    return emit(query_target, true,
                {'Z', 'Z', 'Z', 'G', 'E', 'T', 'V', 'E', 'R', 'S', 'I', 'O', 'N'});
  }
  return VORN_ERR_COMMAND_NOT_SUPPORTED;
}

// Builds one query with the command builder's room rule and sends it.
template <typename Encoder>
int32_t build_and_send(VORN_PRINTER handle, Encoder&& encoder) {
  const int32_t result = with_room(*handle->context, encoder);
  if (result != VORN_OK) return result;
  return send(handle);
}

// Asks one question whose answer is one byte. `answer` stays 0 when the read
// succeeds without delivering a byte.
template <typename Encoder>
int32_t ask_one_byte(VORN_PRINTER handle, Encoder&& encoder, uint8_t* answer) {
  const int32_t result = build_and_send(handle, encoder);
  if (result != VORN_OK) return result;
  platform::clock().sleep_ms(kStatusWaitMs);
  return raw_read(handle, answer, 1);
}

struct StatusFlags {
  bool off_line = false;
  bool cover_open = false;
  bool paper_near_end = false;
  bool paper_end = false;
};

// The answer to DLE EOT n. Every real-time status byte has bits 1 and 4 set
// and bits 0 and 7 clear; anything else (a zero byte when nothing came, or
// data the printer had queued) is not an answer.
int32_t decode_realtime_status(uint8_t n, uint8_t b, StatusFlags& flags) {
  if ((b & 0x93) != 0x12) return VORN_ERR_PARAMETER;
  switch (n) {
    case 1:
      flags.off_line = (b & 0x08) != 0;
      break;
    case 2:
      flags.cover_open = (b & 0x04) != 0;
      break;
    case 4:
      flags.paper_near_end = (b & 0x0C) == 0x0C;
      flags.paper_end = (b & 0x60) == 0x60;
      break;
    default:
      break;
  }
  return VORN_OK;
}

// Four questions; the most pressing condition found is reported.
int32_t query_four_statuses(VORN_PRINTER handle, uint32_t* state) {
  uint8_t answers[4] = {};
  for (uint8_t n = 1; n <= 4; ++n) {
    const int32_t result = ask_one_byte(
        handle, [n](const Target& t) { return encode_realtime_status(t, n); }, &answers[n - 1]);
    if (result != VORN_OK) return result;
  }
  StatusFlags flags;
  for (uint8_t n = 1; n <= 4; ++n) {
    const int32_t result = decode_realtime_status(n, answers[n - 1], flags);
    if (result != VORN_OK) return result;
  }
  if (flags.cover_open) {
    *state = kStateCoverOpen;
  } else if (flags.paper_end) {
    *state = kStatePaperEnd;
  } else if (flags.paper_near_end) {
    *state = kStatePaperNearEnd;
  } else if (flags.off_line) {
    *state = kStateOffLine;
  }
  return VORN_OK;
}

int32_t query_line_status(VORN_PRINTER handle, uint32_t* state) {
  uint8_t answer = 0;
  int32_t result = ask_one_byte(
      handle, [](const Target& t) { return encode_realtime_status(t, 1); }, &answer);
  if (result != VORN_OK) return result;
  StatusFlags flags;
  result = decode_realtime_status(1, answer, flags);
  if (result != VORN_OK) return result;
  if (flags.off_line) *state = kStateOffLine;
  return VORN_OK;
}

int32_t query_paper_sensor(VORN_PRINTER handle, uint32_t* state) {
  uint8_t answer = 0;
  const int32_t result = ask_one_byte(handle, encode_paper_sensor_status, &answer);
  if (result != VORN_OK) return result;
  // Bits 4 and 7 are never set in a paper sensor answer.
  if (answer & 0x90) return VORN_ERR_PARAMETER;
  if (answer & 0x01) {
    *state = kStatePaperEnd;
  } else if (answer & 0x02) {
    *state = kStateOffLine;
  }
  return VORN_OK;
}

// Decimal text between `begin` and `end`: optional blanks and sign, then
// digits up to the first other character; no digits give 0. Saturates
// instead of overflowing.
int64_t parse_decimal(const char* begin, const char* end) {
  const char* p = begin;
  while (p < end && (*p == ' ' || (*p >= '\t' && *p <= '\r'))) ++p;
  bool negative = false;
  if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  int64_t value = 0;
  for (; p < end && *p >= '0' && *p <= '9'; ++p) {
    if (value < INT32_MAX) value = value * 10 + (*p - '0');
  }
  return negative ? -value : value;
}

// "_major.minor.third " as sent by ESC/POS models. A piece without its
// separator is skipped; a number of 255 or more ends the decoding.
int32_t decode_dotted_version(const char* answer, int32_t* version, int32_t count) {
  if (answer[0] != '_') return VORN_ERR_BAD_ANSWER;
  const char* const end = answer + std::strlen(answer);
  const char* position = answer + 1;
  for (int32_t i = 0; i < 3; ++i) {
    const char separator = i < 2 ? '.' : ' ';
    const auto* found = static_cast<const char*>(std::memchr(position, separator, end - position));
    if (found != nullptr) {
      const int64_t number = parse_decimal(position, found);
      if (number >= 255) return VORN_OK;
      version[i] = static_cast<int32_t>(number);
      position = found + 1;
    }
    if (i >= count) break;
  }
  return VORN_OK;
}

// Models answering the text query send their version as raw bytes.
void decode_byte_version(const uint8_t* answer, int32_t* version, int32_t count) {
  for (int32_t i = 0; i < 3; ++i) {
    version[i] = static_cast<int8_t>(answer[i]);
    if (i >= count) break;
  }
}

}  // namespace
}  // namespace vorn::printer

using namespace vorn::printer;

extern "C" {

VORN_API int32_t VORN_CALL GetPrinterState(VORN_PRINTER handle, uint32_t* state) {
  if (state != nullptr) *state = 0;
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  if (state == nullptr) return VORN_ERR_PARAMETER;
  const uint32_t capability = handle->context->capability_word;
  if (capability & kFlagStatusDleEot4) {
    result = query_four_statuses(handle, state);
  } else if (capability & kFlagStatusDleEot1) {
    result = query_line_status(handle, state);
  } else if (capability & kFlagStatusEscV) {
    result = query_paper_sensor(handle, state);
  }
  if (result != VORN_OK) *state |= kStateQueryFailed;
  return result;
}

VORN_API int32_t VORN_CALL GetCashDrawerState(VORN_PRINTER handle, uint32_t* state) {
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  if (state == nullptr) return VORN_ERR_PARAMETER;
  result = with_room(*handle->context, [](const Target& t) { return encode_status(t, 2); });
  if (result != VORN_OK) return result;
  // Unlike the other questions, this one waits before it is sent.
  vorn::platform::clock().sleep_ms(kDrawerWaitMs);
  result = send(handle);
  if (result != VORN_OK) return result;
  uint8_t answer = 0;
  result = raw_read(handle, &answer, 1);
  if (result != VORN_OK) return result;
  *state = answer == 0x01 ? 1 : 0;
  return VORN_OK;
}

VORN_API int32_t VORN_CALL GetFirmwareVersion(VORN_PRINTER handle, int32_t* version,
                                              int32_t count) {
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  if (version == nullptr) return VORN_ERR_PARAMETER;
  result = build_and_send(handle, encode_firmware_query);
  if (result != VORN_OK) return result;
  // One byte more than the read may store keeps the answer terminated.
  char answer[kVersionAnswerSize + 1] = {};
  uint32_t received = 0;
  result = delimited_read(handle, reinterpret_cast<uint8_t*>(answer), 0, kVersionAnswerSize, 0, 0,
                          &received);
  if (result != VORN_OK) return result;
  const uint32_t capability = handle->context->capability_word;
  if (capability & kFlagEscPos) return decode_dotted_version(answer, version, count);
  // The ESC # answer carries nothing the version array can hold.
  if (capability & kFlagVersionEscHash) return VORN_OK;
  decode_byte_version(reinterpret_cast<const uint8_t*>(answer), version, count);
  return VORN_OK;
}

}  // extern "C"
