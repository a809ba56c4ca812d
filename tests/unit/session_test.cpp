// Printer handles and the frame every printing call takes, on a fake device.
#include "printer/session.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "support/fake_session.h"
#include "support/platform_expect.h"
#include "support/wide_text.h"

namespace vorn::test {
namespace {

// A builder that appends the given bytes, as a command builder would.
auto appending(std::vector<uint8_t> bytes) {
  return [bytes](printer::CommandContext& context) {
    if (printer::ensure_room(&context, static_cast<uint32_t>(bytes.size())) != VORN_OK) {
      return static_cast<int32_t>(VORN_ERR_NO_MEMORY);
    }
    for (uint8_t b : bytes) context.buffer[context.length++] = b;
    return static_cast<int32_t>(VORN_OK);
  };
}

TEST(PrinterCreator, FindsExactNamesOnlyAndChecksTheNameLengthFirst) {
  VORN_PRINTER printer = nullptr;
  ASSERT_EQ(PrinterCreator(&printer, VW("unknown")), VORN_OK);
  EXPECT_EQ(printer->context->capability_word, 0xFFFFFFFFu);
  EXPECT_EQ(printer->context->capacity, 256u);
  EXPECT_EQ(PrinterDestroy(printer), VORN_OK);
  EXPECT_EQ(PrinterCreator(&printer, VW("UNKNOWN")), VORN_ERR_UNKNOWN_MODEL);
  EXPECT_EQ(printer, nullptr);
  EXPECT_EQ(PrinterCreator(&printer, VW("")), VORN_ERR_UNKNOWN_MODEL);
  // 32 characters do not fit the 31-byte name area: refused before lookup,
  // so even a null handle pointer is not noticed.
  EXPECT_EQ(PrinterCreator(nullptr, VW("unknownunknownunknownunknownunkn")),
            VORN_ERR_UNKNOWN_MODEL);
  EXPECT_EQ(PrinterCreator(nullptr, VW("unknown")), VORN_ERR_PARAMETER);
  EXPECT_EQ(PrinterCreatorS(nullptr), nullptr);
}

// A null, destroyed or foreign handle is refused by every kind of call
// without being followed.
TEST(Session, OnlyLiveHandlesAreFollowed) {
  FakeClock clock;
  FakeDevice device;
  VORN_PRINTER destroyed = PrinterCreatorS("unknown");
  ASSERT_EQ(PortOpen(destroyed, VW("LPT1")), VORN_OK);
  ASSERT_EQ(PrinterDestroy(destroyed), VORN_OK);
  uint32_t foreign[64];
  std::fill(std::begin(foreign), std::end(foreign), printer::kPrinterTag);
  uint8_t byte = 0;
  uint32_t count = 0;
  int32_t version = 0;
  using Call = int32_t (*)(VORN_PRINTER, uint8_t*, uint32_t*, int32_t*);
  const Call calls[] = {
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t*) { return PrinterDestroy(h); },
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t*) { return PortOpen(h, VW("LPT1")); },
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t*) { return PortClose(h); },
      [](VORN_PRINTER h, uint8_t* b, uint32_t*, int32_t*) { return WriteData(h, b, 1); },
      [](VORN_PRINTER h, uint8_t* b, uint32_t* n, int32_t*) { return ReadData(h, b, 1, n); },
      [](VORN_PRINTER h, uint8_t* b, uint32_t* n, int32_t*) { return DirectIO(h, b, 1, b, 1, n); },
      [](VORN_PRINTER h, uint8_t* b, uint32_t* n, int32_t*) {
        return ReadDataEOF(h, b, 0, 1, 0, 0, n);
      },
      [](VORN_PRINTER h, uint8_t*, uint32_t* n, int32_t*) { return GetPrinterState(h, n); },
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t* v) { return GetFirmwareVersion(h, v, 1); },
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t*) { return CutPaper(h, 0, 0); },
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t*) { return PrintText(h, VW("x"), 0, 0, 0); },
      [](VORN_PRINTER h, uint8_t*, uint32_t*, int32_t*) {
        return PrintTwoQRCode(h, VW("a"), 3, 0, 0, VW("b"), 3, 200, 0);
      },
  };
  for (VORN_PRINTER handle :
       {static_cast<VORN_PRINTER>(nullptr), destroyed, reinterpret_cast<VORN_PRINTER>(foreign)}) {
    for (size_t i = 0; i < std::size(calls); ++i) {
      EXPECT_EQ(calls[i](handle, &byte, &count, &version), VORN_ERR_INVALID_HANDLE) << i;
    }
  }
  EXPECT_EQ(DirectIO(nullptr, nullptr, 0, nullptr, 0, nullptr), VORN_OK) << "nothing to move";
  EXPECT_TRUE(device.written.empty());
  EXPECT_EQ(device.opened_paths.size(), 1u);
}

TEST(Session, HandleAndPortChecksComeFirst) {
  VORN_PRINTER printer = PrinterCreatorS("unknown");
  ASSERT_NE(printer, nullptr);
  uint8_t byte = 0x41;
  uint32_t count = 0;
  EXPECT_EQ(ReadData(printer, &byte, 1, &count), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(DirectIO(printer, &byte, 1, nullptr, 0, nullptr), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(printer::run_printing_call(printer, appending({1, 2})), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(printer->context->length, 0u);
  // A port text that is empty or names no usable port leaves no port behind.
  EXPECT_EQ(PortOpen(printer, VW("")), VORN_ERR_PARAMETER);
  EXPECT_EQ(PortOpen(printer, VW("FILE,out.prn")), VORN_ERR_PRINTER_NOT_SUPPORTED);
  EXPECT_EQ(printer->port, nullptr);
  EXPECT_EQ(WriteData(printer, &byte, 1), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(PortClose(printer), VORN_ERR_IO_NOT_OPEN);
  PrinterDestroy(printer);
}

TEST(Session, PortThatFailsToOpenStaysAttachedButClosedUntilReplaced) {
  FakeDevice device;
  device.open_error = 2;
  VORN_PRINTER printer = PrinterCreatorS("unknown");
  EXPECT_EQ(PortOpen(printer, VW("LPT1")), 2);
  EXPECT_NE(printer->port, nullptr);
  EXPECT_EQ(printer->port_open, 0);
  device.open_error = 0;
  EXPECT_EQ(PortOpen(printer, VW("LPT2")), VORN_OK);
  EXPECT_EQ(device.opened_paths.back(), on_platform("/dev/lp1", "LPT2"));
  EXPECT_EQ(PortClose(printer), VORN_OK);
  EXPECT_EQ(PortClose(printer), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(device.closes, 1);
  PrinterDestroy(printer);
}

TEST(Session, FailedWriteKeepsTheBytesForTheNextCallsOneWrite) {
  FakeSession session;
  session.device.write_script = {{.accept = 0, .error = 5}};
  EXPECT_EQ(printer::run_printing_call(session.handle(), appending({0xAA, 0xBB})), 5);
  EXPECT_EQ(session.pending(), hex("AA BB"));
  auto failing = [](printer::CommandContext&) { return static_cast<int32_t>(-1); };
  EXPECT_EQ(printer::run_printing_call(session.handle(), failing), -1);
  EXPECT_EQ(session.device.write_requests.size(), 1u) << "a failing builder writes nothing";
  EXPECT_EQ(printer::run_printing_call(session.handle(), appending({0xCC})), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("AA BB CC"));
  EXPECT_EQ(session.device.write_requests, (std::vector<uint32_t>{2, 3}));
  EXPECT_TRUE(session.pending().empty());
}

TEST(Session, RawDataBypassesTheCommandBuffer) {
  FakeSession session;
  session.device.write_script = {{.accept = 0, .error = 5}};
  ASSERT_EQ(printer::run_printing_call(session.handle(), appending({7})), 5);
  const uint8_t raw[] = {0x10, 0x04, 0x01};
  EXPECT_EQ(WriteData(session.handle(), raw, 3), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("10 04 01"));
  EXPECT_EQ(session.pending(), hex("07"));

  session.device.read_script = {{.bytes = {0x12}}};
  uint8_t answer[4] = {};
  uint32_t count = 9;
  EXPECT_EQ(DirectIO(session.handle(), raw, 3, answer, 1, &count), VORN_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(answer[0], 0x12);
  EXPECT_EQ(session.take_written(), hex("10 04 01"));
  session.device.read_script = {{.bytes = {0x34}}};
  EXPECT_EQ(ReadData(session.handle(), answer + 1, 0, &count), VORN_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(answer[1], 0) << "a read of nothing stores nothing";
  session.device.write_script = {{.accept = 0, .error = 6}};
  count = 9;
  EXPECT_EQ(DirectIO(session.handle(), raw, 3, answer, 1, &count), 6);
  EXPECT_EQ(count, 9u) << "a failed write reads nothing";
}

TEST(Session, GrowsByWholeStepsOnlyWhenRoomIsShort) {
  FakeSession session;
  printer::CommandContext& context = session.context();
  context.length = 256 - 32;
  EXPECT_EQ(printer::ensure_room(&context, 32), VORN_OK);
  EXPECT_EQ(context.capacity, 256u);
  context.length = 256 - 31;
  EXPECT_EQ(printer::ensure_room(&context, 32), VORN_OK);
  EXPECT_EQ(context.capacity, 384u);
  EXPECT_EQ(context.buffer[383], 0);
  EXPECT_EQ(printer::ensure_room(&context, 300), VORN_OK);
  EXPECT_EQ(context.capacity, 384u + 384u) << "300 rounds up to 384";
  context.length = 0;
}

TEST(Session, DelimitedReadStoresFromStartUpToTheEndByte) {
  constexpr int32_t kSilent = VORN_ERR_IO_READ_TIMEOUT;
  const struct {
    std::vector<ReadStep> answer;
    uint32_t start, end;
    uint8_t begin, finish;
    int32_t result;
    std::vector<uint8_t> stored;
    size_t sleeps;
  } rows[] = {
      {{{.bytes = hex("41 02 42 43 03 44")}}, 2, 20, 0x02, 0x03, VORN_OK, hex("42 43 03"), 0},
      {{{}, {}, {.bytes = hex("31 32 33 00 34")}}, 0, 32, 0, 0, VORN_OK, hex("31 32 33 00"), 2},
      {{}, 0, 32, 0, 0, kSilent, {}, 11},
      // The room is full without the end byte: the remaining polls still run.
      {{{.bytes = hex("01 02 03 04 05")}}, 1, 4, 0, 0, kSilent, hex("01 02 03"), 11},
      // A failing poll ends the read; what it brought is not stored.
      {{{}, {.bytes = hex("05")}, {.error = 13}}, 0, 8, 0, 0, 13, {}, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.result);
    FakeSession session;
    session.device.read_script.assign(row.answer.begin(), row.answer.end());
    std::vector<uint8_t> buffer(40, 0xEE);
    uint32_t count = 99;
    EXPECT_EQ(ReadDataEOF(session.handle(), buffer.data(), row.start, row.end, row.begin,
                          row.finish, &count),
              row.result);
    ASSERT_EQ(count, row.stored.size());
    EXPECT_EQ(std::vector<uint8_t>(buffer.begin() + row.start, buffer.begin() + row.start + count),
              row.stored);
    EXPECT_EQ(buffer[row.start + count], 0xEE) << "nothing stored past the count";
    EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>(row.sleeps, 20));
  }
  FakeSession session;
  uint8_t buffer[8];
  uint32_t count = 0;
  EXPECT_EQ(ReadDataEOF(session.handle(), buffer, 5, 4, 0, 0, &count), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.device.read_requests.empty());
}

}  // namespace
}  // namespace vorn::test
