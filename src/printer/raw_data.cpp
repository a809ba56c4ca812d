// Raw data exchange: bytes written and read as they are, beside the command
// buffer, which these functions neither send nor change.
#include "io/port.h"
#include "printer/session.h"

using vorn::printer::check_session;

extern "C" {

VORN_API int32_t VORN_CALL DirectIO(VORN_PRINTER handle, const uint8_t* writeData,
                                    uint32_t writeLength, uint8_t* readBuffer, uint32_t readLength,
                                    uint32_t* readCount) {
  if (writeLength == 0 && readLength == 0) return VORN_OK;
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  VORN_PORT port = handle->port;
  if (writeLength != 0) {
    uint32_t written = 0;
    result = port->write(port, writeData, 0, writeLength, &written);
    if (result != VORN_OK) return result;
  }
  if (readLength == 0) return VORN_OK;
  if (readCount == nullptr) return VORN_ERR_PARAMETER;
  *readCount = 0;
  return port->read(port, readBuffer, 0, readLength, readCount);
}

VORN_API int32_t VORN_CALL WriteData(VORN_PRINTER handle, const uint8_t* data, uint32_t length) {
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  uint32_t written = 0;
  return handle->port->write(handle->port, data, 0, length, &written);
}

VORN_API int32_t VORN_CALL ReadData(VORN_PRINTER handle, uint8_t* buffer, uint32_t length,
                                    uint32_t* count) {
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  if (count == nullptr) return VORN_ERR_PARAMETER;
  *count = 0;
  return handle->port->read(handle->port, buffer, 0, length, count);
}

VORN_API int32_t VORN_CALL ReadDataEOF(VORN_PRINTER handle, uint8_t* buffer, uint32_t start,
                                       uint32_t end, uint8_t beginByte, uint8_t endByte,
                                       uint32_t* count) {
  int32_t result = check_session(handle);
  if (result != VORN_OK) return result;
  return vorn::printer::delimited_read(handle, buffer, start, end, beginByte, endByte, count);
}

}  // extern "C"
