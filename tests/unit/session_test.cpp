// Printer handles and the frame every printing call takes, on a fake device.
#include "printer/session.h"

#include <gtest/gtest.h>
#include <vorn/vorn.h>

#include <string>
#include <vector>

#include "support/fake_session.h"

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

TEST(PrinterCreator, CatchAllModelAcceptsEveryCommand) {
  VORN_PRINTER printer = nullptr;
  ASSERT_EQ(PrinterCreator(&printer, u"unknown"), VORN_OK);
  ASSERT_NE(printer, nullptr);
  EXPECT_EQ(printer->context->capability_word, 0xFFFFFFFFu);
  EXPECT_EQ(printer->context->capacity, 256u);
  EXPECT_EQ(printer->context->length, 0u);
  EXPECT_EQ(printer->context->page_mode, 0);
  EXPECT_EQ(PrinterDestroy(printer), VORN_OK);
}

TEST(PrinterCreator, RefusesNamesItCannotFind) {
  VORN_PRINTER printer = reinterpret_cast<VORN_PRINTER>(0x10);
  EXPECT_EQ(PrinterCreator(&printer, u"UNKNOWN"), VORN_ERR_UNKNOWN_MODEL);
  EXPECT_EQ(printer, nullptr);
  EXPECT_EQ(PrinterCreator(&printer, u""), VORN_ERR_UNKNOWN_MODEL);
  EXPECT_EQ(PrinterCreator(&printer, nullptr), VORN_ERR_UNKNOWN_MODEL);
  // 32 characters do not fit the 31-byte name area: refused before lookup,
  // so even a null handle pointer is not noticed.
  EXPECT_EQ(PrinterCreator(nullptr, u"unknownunknownunknownunknownunkn"), VORN_ERR_UNKNOWN_MODEL);
  EXPECT_EQ(PrinterCreator(nullptr, u"unknown"), VORN_ERR_PARAMETER);
  EXPECT_EQ(PrinterCreatorS("Unknown"), nullptr);
  EXPECT_EQ(PrinterCreatorS(nullptr), nullptr);
}

TEST(PrinterCreator, SharedIdentifierBindsTheFirstRowOfIt) {
  // Every row of an identifier gets the capability word of the first one.
  for (const printer::CatalogueRow& row : printer::catalogue()) {
    VORN_PRINTER printer = PrinterCreatorS(row.model_name);
    ASSERT_NE(printer, nullptr) << row.model_name;
    const printer::CatalogueRow* first = printer::find_model_by_id(row.model_id);
    EXPECT_EQ(printer->context->capability_word,
              printer::capability_word(first->model_id, first->type_flags));
    EXPECT_STREQ(printer->context->model_name, first->model_name);
    PrinterDestroy(printer);
  }
}

TEST(Session, HandleAndPortChecksComeFirst) {
  EXPECT_EQ(PrinterDestroy(nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(PortOpen(nullptr, u"LPT1"), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(PortClose(nullptr), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(WriteData(nullptr, nullptr, 0), VORN_ERR_INVALID_HANDLE);
  EXPECT_EQ(DirectIO(nullptr, nullptr, 0, nullptr, 0, nullptr), VORN_OK)
      << "nothing to move: no check at all";
  VORN_PRINTER printer = PrinterCreatorS("unknown");
  ASSERT_NE(printer, nullptr);
  uint8_t byte = 0x41;
  uint32_t count = 0;
  EXPECT_EQ(WriteData(printer, &byte, 1), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(ReadData(printer, &byte, 1, &count), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(DirectIO(printer, &byte, 1, nullptr, 0, nullptr), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(printer::run_printing_call(printer, appending({1, 2})), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(printer->context->length, 0u);
  EXPECT_EQ(PortClose(printer), VORN_ERR_IO_NOT_OPEN);
  PrinterDestroy(printer);
}

TEST(Session, EmptyPortTextLeavesTheHandleWithoutPort) {
  VORN_PRINTER printer = PrinterCreatorS("unknown");
  EXPECT_EQ(PortOpen(printer, u""), VORN_ERR_PARAMETER);
  EXPECT_EQ(printer->port, nullptr);
  uint8_t byte = 0;
  EXPECT_EQ(WriteData(printer, &byte, 1), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(PortOpen(printer, u"FILE,out.prn"), VORN_ERR_PRINTER_NOT_SUPPORTED);
  EXPECT_EQ(printer->port, nullptr);
  PrinterDestroy(printer);
}

TEST(Session, PortThatFailsToOpenStaysAttachedButClosed) {
  FakeDevice device;
  device.open_error = 2;
  VORN_PRINTER printer = PrinterCreatorS("unknown");
  EXPECT_EQ(PortOpen(printer, u"LPT1"), 2);
  EXPECT_NE(printer->port, nullptr);
  EXPECT_EQ(printer->port_open, 0);
  device.open_error = 0;
  EXPECT_EQ(PortOpen(printer, u"LPT2"), VORN_OK) << "the old port is replaced";
  EXPECT_EQ(device.opened_paths.back(), "/dev/lp1");
  EXPECT_EQ(PortClose(printer), VORN_OK);
  EXPECT_EQ(PortClose(printer), VORN_ERR_IO_NOT_OPEN);
  EXPECT_EQ(device.closes, 1);
  PrinterDestroy(printer);
}

TEST(Session, SuccessfulCallWritesTheWholeBufferOnceAndEmptiesIt) {
  FakeSession session;
  EXPECT_EQ(printer::run_printing_call(session.handle(), appending({0x1B, 0x40})), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("1B 40"));
  EXPECT_EQ(session.device.write_requests.size(), 1u);
  EXPECT_TRUE(session.pending().empty());
}

TEST(Session, FailedWriteKeepsTheBytesForTheNextSuccessfulOne) {
  FakeSession session;
  session.device.write_script = {{.accept = 0, .error = 5}};
  EXPECT_EQ(printer::run_printing_call(session.handle(), appending({0xAA, 0xBB})), 5);
  EXPECT_EQ(session.pending(), hex("AA BB"));
  EXPECT_TRUE(session.take_written().empty());
  EXPECT_EQ(printer::run_printing_call(session.handle(), appending({0xCC})), VORN_OK);
  EXPECT_EQ(session.take_written(), hex("AA BB CC"));
  EXPECT_EQ(session.device.write_requests.back(), 3u) << "one write for old and new bytes";
  EXPECT_TRUE(session.pending().empty());
}

TEST(Session, PartlyWrittenBufferIsKeptWhole) {
  FakeSession session;
  ASSERT_EQ(vorn_io_set_timeout(session.handle()->port, 10, 5, 2000, 0, 0, 2000), VORN_OK);
  session.device.write_script = {{.accept = 1, .ms = 1}, {.accept = 0, .ms = 1}};
  EXPECT_EQ(printer::run_printing_call(session.handle(), appending({1, 2, 3})),
            VORN_ERR_IO_WRITE_TIMEOUT);
  // The frame cannot tell which bytes the printer took, so it keeps them all.
  EXPECT_EQ(session.pending(), hex("01 02 03"));
}

TEST(Session, FailingBuilderNeitherWritesNorEmpties) {
  FakeSession session;
  session.device.write_script = {{.accept = 0, .error = 5}};
  ASSERT_EQ(printer::run_printing_call(session.handle(), appending({7})), 5);
  auto failing = [](printer::CommandContext&) { return static_cast<int32_t>(-1); };
  EXPECT_EQ(printer::run_printing_call(session.handle(), failing), -1);
  EXPECT_EQ(session.device.write_requests.size(), 1u);
  EXPECT_EQ(session.pending(), hex("07"));
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

struct DelimitedCase {
  const char* name;
  std::vector<ReadStep> answer;
  uint32_t start, end;
  uint8_t begin, finish;
  int32_t result;
  std::vector<uint8_t> stored;
  size_t sleeps;
};

class DelimitedRead : public ::testing::TestWithParam<DelimitedCase> {};

TEST_P(DelimitedRead, StoresFromStartUpToTheEndByte) {
  const DelimitedCase& c = GetParam();
  FakeSession session;
  session.device.read_script.assign(c.answer.begin(), c.answer.end());
  std::vector<uint8_t> buffer(40, 0xEE);
  uint32_t count = 99;
  EXPECT_EQ(ReadDataEOF(session.handle(), buffer.data(), c.start, c.end, c.begin, c.finish, &count),
            c.result);
  EXPECT_EQ(count, c.stored.size());
  EXPECT_EQ(
      std::vector<uint8_t>(buffer.begin() + c.start, buffer.begin() + c.start + c.stored.size()),
      c.stored);
  EXPECT_EQ(buffer[c.start + c.stored.size()], 0xEE) << "nothing stored past the count";
  EXPECT_EQ(session.clock.sleeps(), std::vector<uint32_t>(c.sleeps, 20));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, DelimitedRead,
    ::testing::Values(
        DelimitedCase{"begin_and_end_bytes",
                      {{.bytes = hex("41 02 42 43 03 44")}},
                      2,
                      20,
                      0x02,
                      0x03,
                      VORN_OK,
                      hex("42 43 03"),
                      0},
        DelimitedCase{"answer_after_two_empty_polls",
                      {{}, {}, {.bytes = hex("31 32 33 00 34")}},
                      0,
                      32,
                      0,
                      0,
                      VORN_OK,
                      hex("31 32 33 00"),
                      2},
        DelimitedCase{"silence", {}, 0, 32, 0, 0, VORN_ERR_IO_READ_TIMEOUT, {}, 11},
        DelimitedCase{"room_full_without_end",
                      {{.bytes = hex("01 02 03 04 05")}},
                      1,
                      4,
                      0,
                      0,
                      VORN_ERR_IO_READ_TIMEOUT,
                      hex("01 02 03"),
                      11},
        // A failing poll ends the read; what it brought is not stored.
        DelimitedCase{
            "port_error", {{}, {.bytes = hex("05")}, {.error = 13}}, 0, 8, 0, 0, 13, {}, 1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DelimitedReadArguments, EndBelowStartIsRefusedWithoutReading) {
  FakeSession session;
  uint8_t buffer[8];
  uint32_t count = 0;
  EXPECT_EQ(ReadDataEOF(session.handle(), buffer, 5, 4, 0, 0, &count), VORN_ERR_PARAMETER);
  EXPECT_TRUE(session.device.read_requests.empty());
}

}  // namespace
}  // namespace vorn::test
