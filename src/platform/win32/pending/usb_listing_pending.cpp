// The USB device listing's export until the listing itself is built: it
// reports that the operation is not available, writing nothing.
#include <vorn/vorn.h>

extern "C" VORN_API int32_t VORN_CALL vorn_io_list_usb(char* /*buffer*/, int32_t /*size*/,
                                                       uint32_t* used, int32_t /*flag*/) {
  if (used != nullptr) *used = 0;
  return VORN_ERR_NOT_IMPLEMENTED;
}
