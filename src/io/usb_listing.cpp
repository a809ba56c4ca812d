// The supported USB printers present, by the places they are plugged in, as
// one "|"-separated text an application can show for the user to pick from.
#include <vorn/vorn.h>

#include <cstring>

#include "io/usb_port.h"
#include "platform/usb.h"

namespace vorn::io {
namespace {

constexpr std::size_t kIdBuffer = 256;
// A location is shown in at most this many bytes; a longer one gives an
// empty entry rather than a cut one, which could name another port.
constexpr std::size_t kMaxEntry = 127;

struct Listing {
  char* buffer;
  uint32_t space;  // bytes left after the entries written so far
  uint32_t used;
  bool listing;
};

bool add_device(const platform::UsbDevice& device, void* context) {
  Listing& list = *static_cast<Listing*>(context);
  if (device.hardware_id == nullptr || strnlen(device.hardware_id, kIdBuffer) >= kIdBuffer) {
    return true;
  }
  char id[kIdBuffer] = {};
  std::strcpy(id, device.hardware_id);
  usb_upper(id, sizeof id);
  if (usb_vendor_table_match(id) == 0 || !list.listing) return true;

  std::size_t length = device.location == nullptr ? 0 : strnlen(device.location, kMaxEntry + 1);
  if (length > kMaxEntry) length = 0;
  // Room for the entry and its separator, and one byte more: an entry that
  // would fill the buffer to its last byte is left out.
  if (list.space <= length + 1) return true;
  if (length > 0) std::memcpy(list.buffer + list.used, device.location, length);
  list.buffer[list.used + length] = '|';
  list.used += static_cast<uint32_t>(length + 1);
  list.space -= static_cast<uint32_t>(length + 1);
  return true;
}

}  // namespace
}  // namespace vorn::io

VORN_API int32_t VORN_CALL vorn_io_list_usb(char* buffer, int32_t size, uint32_t* used,
                                            int32_t flag) {
  if (used == nullptr || (buffer == nullptr && size > 0)) return VORN_ERR_PARAMETER;
  *used = 0;
  const uint32_t capacity = size > 0 ? static_cast<uint32_t>(size) : 0;
  if (capacity > 0) std::memset(buffer, 0, capacity);
  vorn::io::Listing list{buffer, capacity, 0, flag == 0};
  const int32_t error = vorn::platform::usb().enumerate(vorn::io::add_device, &list);
  if (list.used > 0) buffer[list.used - 1] = '\0';
  *used = list.used;
  return error;
}
