// USB printers on Windows: the device-interface list of the USB device class
// from SetupAPI, and an overlapped file handle on a device's interface path.
// The hardware identifier, location and service are the device manager's
// own texts (SPDRP_HARDWAREID, SPDRP_LOCATION_INFORMATION, SPDRP_SERVICE);
// the printer-class driver's service is "usbprint".
#include <windows.h>
// SetupAPI needs the definitions of windows.h first.
#include <setupapi.h>

#include <cstring>
#include <new>
#include <vector>

#include "platform/usb.h"
#include "platform/win32/win32_error.h"

namespace vorn::platform {
namespace {

constexpr int32_t kNoDeviceList = -300;

// GUID_DEVINTERFACE_USB_DEVICE: every USB device, printers among them.
constexpr GUID kUsbDeviceInterface = {
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

// The buffers the device's texts are read into, one byte more than the
// system is told so that a text that fills them stays terminated (and then
// counts as too long for the search).
constexpr DWORD kTextRoom = 256;
constexpr DWORD kServiceRoom = 32;

// One registry property as text; null when the system cannot give it in
// `room` bytes. A hardware identifier is a list of texts: the first one,
// the most specific, is what stays in front.
const char* property(HDEVINFO list, SP_DEVINFO_DATA* info, DWORD which, char* out, DWORD room) {
  std::memset(out, 0, room + 1);
  if (!SetupDiGetDeviceRegistryPropertyA(list, info, which, nullptr, reinterpret_cast<BYTE*>(out),
                                         room, nullptr)) {
    return nullptr;
  }
  return out;
}

// The interface path of one entry of the list; empty when it cannot be had.
std::vector<char> interface_path(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* entry,
                                 SP_DEVINFO_DATA* info) {
  DWORD needed = 0;
  SetupDiGetDeviceInterfaceDetailA(list, entry, nullptr, 0, &needed, nullptr);
  if (needed < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A)) return {};
  // The detail record is written into raw storage with the record's own
  // alignment; its path runs on to the end.
  std::vector<char> storage(needed + sizeof(DWORD) + 1, '\0');
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(storage.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
  if (!SetupDiGetDeviceInterfaceDetailA(list, entry, detail, needed, nullptr, info)) return {};
  const char* path = detail->DevicePath;
  return std::vector<char>(path, path + std::strlen(path) + 1);
}

int32_t enumerate(UsbVisitor visit, void* context) {
  SetLastError(0);
  HDEVINFO list = SetupDiGetClassDevsA(&kUsbDeviceInterface, nullptr, nullptr,
                                       DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (list == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    return error != 0 ? static_cast<int32_t>(error) : kNoDeviceList;
  }
  SP_DEVICE_INTERFACE_DATA entry{};
  entry.cbSize = sizeof entry;
  for (DWORD index = 0;
       SetupDiEnumDeviceInterfaces(list, nullptr, &kUsbDeviceInterface, index, &entry); ++index) {
    SP_DEVINFO_DATA info{};
    info.cbSize = sizeof info;
    const std::vector<char> path = interface_path(list, &entry, &info);
    if (path.empty()) continue;
    char hardware_id[kTextRoom + 1];
    char location[kTextRoom + 1];
    char service[kServiceRoom + 1];
    const UsbDevice device{
        path.data(),
        property(list, &info, SPDRP_HARDWAREID, hardware_id, kTextRoom),
        property(list, &info, SPDRP_LOCATION_INFORMATION, location, kTextRoom),
        property(list, &info, SPDRP_SERVICE, service, kServiceRoom),
    };
    if (!visit(device, context)) break;
  }
  SetLastError(0);
  if (!SetupDiDestroyDeviceInfoList(list)) return last_error_or(ERROR_GEN_FAILURE);
  return 0;
}

// An open printer. Each transfer is started under the lock, so that a
// cancel from another thread either comes before it (and the transfer is
// not started) or finds it running (and CancelIoEx ends it).
struct Printer {
  HANDLE file = INVALID_HANDLE_VALUE;
  HANDLE event = nullptr;  // manual-reset, one transfer at a time
  SRWLOCK lock = SRWLOCK_INIT;
  bool cancelled = false;  // under the lock
};

Printer* as_printer(DeviceHandle handle) {
  return reinterpret_cast<Printer*>(handle);
}

bool was_cancelled(Printer* printer) {
  AcquireSRWLockShared(&printer->lock);
  const bool cancelled = printer->cancelled;
  ReleaseSRWLockShared(&printer->lock);
  return cancelled;
}

int32_t open(const char* path, DeviceHandle* out) {
  SetLastError(0);
  HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                            FILE_FLAG_OVERLAPPED, nullptr);
  if (file == INVALID_HANDLE_VALUE) return last_error_or(ERROR_OPEN_FAILED);
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  auto* printer = event != nullptr ? new (std::nothrow) Printer : nullptr;
  if (printer == nullptr) {
    const int32_t error = last_error_or(ERROR_NOT_ENOUGH_MEMORY);
    if (event != nullptr) CloseHandle(event);
    CloseHandle(file);
    return error;
  }
  printer->file = file;
  printer->event = event;
  *out = reinterpret_cast<DeviceHandle>(printer);
  return 0;
}

void close(DeviceHandle handle) {
  if (handle == kNoDevice) return;
  Printer* printer = as_printer(handle);
  CloseHandle(printer->file);
  CloseHandle(printer->event);
  delete printer;
}

// One overlapped transfer, waited for at most `wait_ms`. A transfer still
// running then is cancelled and waited for without limit, so that the
// system has let go of the buffer and of the record on this stack.
Attempt transfer(Printer* printer, void* data, uint32_t length, uint32_t wait_ms, bool writing) {
  Attempt attempt;
  OVERLAPPED record{};
  record.hEvent = printer->event;
  AcquireSRWLockExclusive(&printer->lock);
  if (printer->cancelled) {
    ReleaseSRWLockExclusive(&printer->lock);
    return attempt;
  }
  ResetEvent(printer->event);
  const BOOL started = writing ? WriteFile(printer->file, data, length, nullptr, &record)
                               : ReadFile(printer->file, data, length, nullptr, &record);
  const DWORD start_error = started ? 0 : GetLastError();
  ReleaseSRWLockExclusive(&printer->lock);
  if (!started && start_error != ERROR_IO_PENDING) {
    attempt.error = static_cast<int32_t>(start_error != 0 ? start_error : ERROR_GEN_FAILURE);
    return attempt;
  }
  if (!started) {
    // INFINITE is the one wait that never ends; no budget asks for it.
    const DWORD waited =
        WaitForSingleObject(printer->event, wait_ms < INFINITE ? wait_ms : INFINITE - 1);
    if (waited != WAIT_OBJECT_0) {
      attempt.timed_out = waited == WAIT_TIMEOUT;
      if (waited == WAIT_FAILED) attempt.error = last_error_or(ERROR_GEN_FAILURE);
      CancelIo(printer->file);
      if (WaitForSingleObject(printer->event, INFINITE) != WAIT_OBJECT_0) {
        attempt.error = last_error_or(ERROR_GEN_FAILURE);
      }
      // Whatever went through before the cancel still counts; a kill that
      // came meanwhile ends the attempt without a timeout.
      attempt.done = static_cast<uint32_t>(record.InternalHigh);
      if (was_cancelled(printer)) attempt.timed_out = false;
      return attempt;
    }
  }
  DWORD done = 0;
  if (!GetOverlappedResult(printer->file, &record, &done, FALSE)) {
    const DWORD error = GetLastError();
    // Ended by a cancel from another thread: what moved, and no error.
    if (error != ERROR_OPERATION_ABORTED || !was_cancelled(printer)) {
      attempt.error = static_cast<int32_t>(error != 0 ? error : ERROR_GEN_FAILURE);
    }
    done = static_cast<DWORD>(record.InternalHigh);
  }
  attempt.done = done;
  return attempt;
}

Attempt write(DeviceHandle handle, const uint8_t* data, uint32_t length, uint32_t wait_ms) {
  return transfer(as_printer(handle), const_cast<uint8_t*>(data), length, wait_ms, true);
}

Attempt read(DeviceHandle handle, uint8_t* buffer, uint32_t length, uint32_t wait_ms) {
  Attempt attempt = transfer(as_printer(handle), buffer, length, wait_ms, false);
  // Bytes that came before the wait ran out are an answer, not a timeout.
  if (attempt.done > 0) attempt.timed_out = false;
  return attempt;
}

void cancel(DeviceHandle handle) {
  if (handle == kNoDevice) return;
  Printer* printer = as_printer(handle);
  AcquireSRWLockExclusive(&printer->lock);
  printer->cancelled = true;
  // Ends the transfer another thread is waiting for; it completes as aborted.
  CancelIoEx(printer->file, nullptr);
  ReleaseSRWLockExclusive(&printer->lock);
}

constexpr UsbOps kSetupApi = {
    .enumerate = enumerate,
    .open = open,
    .close = close,
    .write = write,
    .read = read,
    .cancel = cancel,
};

}  // namespace

const UsbOps& native_usb() {
  return kSetupApi;
}

}  // namespace vorn::platform
