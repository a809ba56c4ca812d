// The record every port driver fills: its private state and twelve
// operations, called by the exported port functions with the state first.
#pragma once

#include <cstdint>

namespace vorn::io {

inline constexpr int kTimeoutCount = 6;
// Indexes into a timeout set, in the order used everywhere.
enum TimeoutIndex : int {
  kReadInterval = 0,
  kReadMultiplier = 1,
  kReadConstant = 2,
  kWriteMultiplier = 3,
  kWriteConstant = 4,
  kConnectTimeout = 5,
};

struct DriverOps {
  // Parses and stores a port URI (not a comma form); used at the next open.
  int32_t (*set_uri)(void* state, const char* uri);
  // Writes the stored URI with its terminator (an empty text without one).
  int32_t (*get_uri)(void* state, char* buffer, uint32_t size, uint32_t* length);
  int32_t (*open)(void* state);
  // Always succeeds; closing a closed port does nothing.
  int32_t (*close)(void* state);
  // Sets the kill mark under the port lock. Called from any thread.
  int32_t (*kill)(void* state);
  int32_t (*flush)(void* state);
  int32_t (*set_timeout)(void* state, const uint32_t values[kTimeoutCount]);
  int32_t (*get_timeout)(void* state, uint32_t values[kTimeoutCount]);
  // Block the calling thread within the port's budgets; report the bytes
  // moved through `transferred`, also on failure.
  int32_t (*write)(void* state, const uint8_t* data, uint32_t offset, uint32_t length,
                   uint32_t* transferred);
  int32_t (*read)(void* state, uint8_t* buffer, uint32_t offset, uint32_t length,
                  uint32_t* transferred);
  // Reads what is already there into buffer + offset, at most size - offset.
  int32_t (*readexist)(void* state, uint8_t* buffer, uint32_t offset, uint32_t size,
                       uint32_t* transferred);
  // Driver-specific codes; -7 for codes the driver does not know.
  int32_t (*control)(void* state, uint32_t code, uint32_t argument, const void* input,
                     uint32_t input_length, void* output, uint32_t output_length,
                     uint32_t* output_count);
  // Frees the state and everything it owns. The port is closed already.
  void (*destroy)(void* state);
};

struct Driver {
  void* state;
  const DriverOps* ops;
};

// Creates the driver of a port kind: 0 and a new driver in `*out`, -2 when
// memory runs out, -4 for a kind without driver.
int32_t create_driver(int32_t kind, Driver** out);
// Frees a driver made by create_driver, state included.
void destroy_driver(Driver* driver);

}  // namespace vorn::io
