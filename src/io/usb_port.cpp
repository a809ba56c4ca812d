#include "io/usb_port.h"

#include <vorn/vorn.h>

#include <cstring>
#include <new>

#include "platform/usb.h"

namespace vorn::io {
namespace {

// Searched in this order; the first entry found in a device's identifier
// makes it a supported printer. The last entry takes every product of its
// vendor.
constexpr const char* kVendorTable[] = {
    "VID_5A3C&PID_7009", "VID_5A3C&PID_7008", "VID_5A3C&PID_7007", "VID_4348&PID_5584",
    "VID_04B8&PID_0202", "VID_067E&PID_000D", "VID_5A3D&PID_",
};
// Not a table printer, but chosen when met; reading from it can be switched off.
constexpr const char* kRestrictedId = "VID_0FE6&PID_811E";
// The service of printer-class devices; a device whose service name occurs
// within it may stand in when no supported printer is found.
constexpr const char* kPrintService = "usbprint";

// The buffers the device's texts are read into: a text that does not fit
// counts as one the system could not give.
constexpr std::size_t kTextBuffer = 256;
constexpr std::size_t kServiceBuffer = 32;

UsbState* as_usb(void* state) {
  return static_cast<UsbState*>(state);
}

bool fits(const char* text, std::size_t buffer) {
  return text != nullptr && strnlen(text, buffer) < buffer;
}

void copy_text(char* out, std::size_t size, const char* text) {
  std::memset(out, 0, size);
  std::memcpy(out, text, strnlen(text, size - 1));
}

struct Search {
  UsbState* state;
  bool chosen = false;
  bool has_fallback = false;
  char fallback[256] = {};
};

bool location_matches(const Search& search, const char* location) {
  if (!fits(location, kTextBuffer)) return false;
  char upper[kTextBuffer] = {};
  std::strcpy(upper, location);
  usb_upper(upper, sizeof upper);
  return std::strcmp(upper, search.state->location) == 0;
}

}  // namespace

bool usb_serves_printers(const char* service) {
  if (!fits(service, kServiceBuffer)) return false;
  char lower[kServiceBuffer] = {};
  for (std::size_t i = 0; service[i] != '\0'; ++i) {
    const char c = service[i];
    lower[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return std::strstr(kPrintService, lower) != nullptr;
}

bool usb_is_restricted(const char* upper_hardware_id) {
  return std::strstr(upper_hardware_id, kRestrictedId) != nullptr;
}

namespace {

// One device of the enumeration; false once the printer is chosen.
bool consider(const platform::UsbDevice& device, void* context) {
  Search& search = *static_cast<Search*>(context);
  UsbState* state = search.state;
  if (!fits(device.hardware_id, kTextBuffer) || device.path == nullptr) return true;
  char id[kTextBuffer] = {};
  std::strcpy(id, device.hardware_id);
  usb_upper(id, sizeof id);

  bool choose = false;
  if (usb_vendor_table_match(id) != 0) {
    // A supported printer elsewhere than the named location is passed over,
    // and never stands in for it.
    choose = state->any_device ||
             (state->location[0] != '\0' && location_matches(search, device.location));
  } else if (usb_is_restricted(id)) {
    state->restricted_device = 1;
    choose = true;
  } else if (!search.has_fallback && usb_serves_printers(device.service)) {
    // The first printer-class device stays the stand-in; later ones do not
    // replace it.
    copy_text(search.fallback, sizeof search.fallback, device.path);
    search.has_fallback = true;
  }
  if (!choose) return true;
  copy_text(state->core.device_path, sizeof state->core.device_path, device.path);
  search.chosen = true;
  return false;
}

int32_t find_device(UsbState* state) {
  state->restricted_device = 0;
  Search search{state};
  const int32_t error = platform::usb().enumerate(consider, &search);
  if (error != 0) return error;
  if (search.chosen) return VORN_OK;
  if (!search.has_fallback) return VORN_ERR_IO_USB_NOT_FOUND;
  copy_text(state->core.device_path, sizeof state->core.device_path, search.fallback);
  return VORN_OK;
}

// The handle port core moves a USB port's bytes through this table.
int32_t open_device(const char* path, bool /*overlapped*/, platform::DeviceHandle* out) {
  return platform::usb().open(path, out);
}
void close_device(platform::DeviceHandle handle) {
  platform::usb().close(handle);
}
platform::Attempt write_device(platform::DeviceHandle handle, const uint8_t* data, uint32_t length,
                               uint32_t wait_ms) {
  return platform::usb().write(handle, data, length, wait_ms);
}
platform::Attempt read_device(platform::DeviceHandle handle, uint8_t* buffer, uint32_t length,
                              uint32_t wait_ms) {
  return platform::usb().read(handle, buffer, length, wait_ms);
}
bool no_data_error(int32_t) {
  return false;
}
void cancel_device(platform::DeviceHandle handle) {
  platform::usb().cancel(handle);
}

constexpr platform::DeviceFileOps kUsbTransfers = {
    .open_existing = open_device,
    .close = close_device,
    .write = write_device,
    .read = read_device,
    .is_no_data_error = no_data_error,
    .cancel = cancel_device,
};

const platform::DeviceFileOps& usb_transfers() {
  return kUsbTransfers;
}

int32_t set_uri(void* raw, const char* uri) {
  UsbState* state = as_usb(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  vorn_uri record;
  int32_t result = vorn_io_uri_from_str(&record, uri);
  if (result != VORN_OK) return result;
  char normalised[VORN_URI_MAX_TEXT + 1] = {};
  result = vorn_io_uri_to_str(&record, normalised, sizeof normalised);
  if (result != VORN_OK) return result;

  state->any_device = 1;
  std::memset(state->model_name, 0, sizeof state->model_name);
  std::memset(state->location, 0, sizeof state->location);
  std::memset(state->port_number, 0, sizeof state->port_number);
  const char* location = vorn_io_uri_get_option(&record, "location");
  const char* port_number = vorn_io_uri_get_option(&record, "portnum");
  const char* kept = location != nullptr ? location : port_number;
  if (kept != nullptr) {
    state->any_device = 0;
    char* field = location != nullptr ? state->location : state->port_number;
    if (std::strlen(kept) + 1 > kTextBuffer) return VORN_ERR_IO_INVALID_SETTING;
    std::strcpy(field, kept);
  }
  // The name is only kept; one too long for its field is cut rather than
  // refused, since nothing is looked up by it.
  copy_text(state->core.port_name, sizeof state->core.port_name, record.name);
  if (std::strcmp(record.name, "DEVICE") != 0) {
    copy_text(state->model_name, sizeof state->model_name, record.name);
  }
  store_uri(&state->core, normalised);
  return VORN_OK;
}

int32_t open(void* raw) {
  UsbState* state = as_usb(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_SETTING;
  const int32_t found = find_device(state);
  if (found != VORN_OK) return found;
  if (!state->core.has_uri) return VORN_ERR_IO_INVALID_SETTING;
  // A second open must not leave the first claim of the printer behind.
  handle_port_close(&state->core);
  return handle_port_open_device(&state->core);
}

int32_t write(void* raw, const uint8_t* data, uint32_t offset, uint32_t length,
              uint32_t* transferred) {
  return chunked_write(&as_usb(raw)->core, data, offset, length, transferred);
}

bool reading_refused(const UsbState* state) {
  return state->restricted_device && !state->read_enabled;
}

int32_t read(void* raw, uint8_t* buffer, uint32_t offset, uint32_t length, uint32_t* transferred) {
  UsbState* state = as_usb(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (reading_refused(state)) return VORN_ERR_NOT_IMPLEMENTED;
  return timed_read(&state->core, buffer, offset, length, transferred);
}

int32_t readexist(void* raw, uint8_t* buffer, uint32_t offset, uint32_t size,
                  uint32_t* transferred) {
  UsbState* state = as_usb(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  if (reading_refused(state)) return VORN_ERR_NOT_IMPLEMENTED;
  return quick_read(&state->core, buffer, offset, size, transferred);
}

int32_t control(void* raw, uint32_t code, uint32_t /*argument*/, const void* input,
                uint32_t input_length, void* output, uint32_t output_length,
                uint32_t* output_count) {
  UsbState* state = as_usb(raw);
  if (state == nullptr) return VORN_ERR_IO_INVALID_HANDLE;
  switch (code) {
    case VORN_CONTROL_USB_GET_RESTRICTED:
      return report_byte(state->restricted_device, output, output_length, output_count);
    case VORN_CONTROL_USB_SET_READ:
      if (input == nullptr || input_length == 0) return VORN_ERR_PARAMETER;
      state->read_enabled = *static_cast<const uint8_t*>(input);
      return VORN_OK;
    case VORN_CONTROL_USB_GET_READ:
      return report_byte(state->read_enabled, output, output_length, output_count);
    default:
      return VORN_ERR_NOT_IMPLEMENTED;
  }
}

void destroy(void* raw) {
  delete as_usb(raw);
}

}  // namespace

int usb_vendor_table_match(const char* upper_hardware_id) {
  int index = 0;
  for (const char* entry : kVendorTable) {
    ++index;
    if (std::strstr(upper_hardware_id, entry) != nullptr) return index;
  }
  return 0;
}

void usb_upper(char* text, std::size_t size) {
  for (std::size_t i = 0; i < size && text[i] != '\0'; ++i) {
    if (text[i] >= 'a' && text[i] <= 'z') text[i] = static_cast<char>(text[i] - 'a' + 'A');
  }
}

const DriverOps kUsbDriverOps = {
    .set_uri = set_uri,
    .get_uri = handle_port_get_uri,
    .open = open,
    .close = handle_port_close,
    .kill = handle_port_kill,
    .flush = handle_port_flush,
    .set_timeout = handle_port_set_timeout,
    .get_timeout = handle_port_get_timeout,
    .write = write,
    .read = read,
    .readexist = readexist,
    .control = control,
    .destroy = destroy,
};

void* new_usb_state() {
  auto* state = new (std::nothrow) UsbState{};
  if (state == nullptr) return nullptr;
  init_handle_port_state(&state->core, VORN_PORT_USB, true);
  state->core.device = usb_transfers;
  state->any_device = 1;
  state->read_enabled = 1;
  return state;
}

}  // namespace vorn::io
