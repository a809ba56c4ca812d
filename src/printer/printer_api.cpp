// Creating and destroying printer handles, and opening and closing their port.
#include <cstdlib>
#include <cstring>
#include <new>

#include "io/port.h"
#include "printer/session.h"

namespace vorn::printer {
namespace {

// Handle creation reports its failure through one process-wide slot, which is
// why concurrent creations must be serialised by the caller.
int32_t creation_error = VORN_OK;

void destroy_context(CommandContext* context) {
  if (context == nullptr) return;
  if (context->record != nullptr) destroy_capability_record(context->record);
  if (context->growable) std::free(context->buffer);
  delete context;
}

VORN_PRINTER create_handle(uint32_t model_id) {
  auto* handle = new (std::nothrow) vorn_printer_object{};
  if (handle == nullptr) {
    creation_error = VORN_ERR_NO_MEMORY;
    return nullptr;
  }
  auto* context = new (std::nothrow) CommandContext{};
  auto* buffer = static_cast<uint8_t*>(std::calloc(kInitialBufferSize, 1));
  int32_t result = VORN_ERR_NO_MEMORY;
  if (context != nullptr && buffer != nullptr) {
    context->buffer = buffer;
    context->capacity = kInitialBufferSize;
    context->growable = 1;
    result = bind_model(context, model_id);
  } else {
    std::free(buffer);
    if (context != nullptr) context->growable = 0;
  }
  if (result == VORN_OK) {
    handle->tag = kPrinterTag;
    handle->context = context;
    if (!add_live_printer(handle)) result = VORN_ERR_NO_MEMORY;
  }
  if (result != VORN_OK) {
    destroy_context(context);
    delete handle;
    creation_error = result;
    return nullptr;
  }
  return handle;
}

// Longest model name the creator accepts once converted, without terminator.
constexpr uint32_t kModelNameArea = 32;
// Longest port text once converted, without terminator.
constexpr uint32_t kPortTextArea = 256;

}  // namespace
}  // namespace vorn::printer

using namespace vorn::printer;

extern "C" {

VORN_API int32_t VORN_CALL PrinterCreator(VORN_PRINTER* handle, const VORN_WCHAR* model) {
  char name[kModelNameArea];
  uint32_t length = 0;
  if (to_narrow_text(model, name, sizeof name, &length) != VORN_OK) {
    return VORN_ERR_UNKNOWN_MODEL;
  }
  if (handle == nullptr) return VORN_ERR_PARAMETER;
  *handle = nullptr;
  const CatalogueRow* row = find_model_by_name(name);
  if (row == nullptr) return VORN_ERR_UNKNOWN_MODEL;
  VORN_PRINTER created = create_handle(row->model_id);
  if (created == nullptr) return creation_error;
  *handle = created;
  return VORN_OK;
}

VORN_API VORN_PRINTER VORN_CALL PrinterCreatorS(const char* model) {
  if (model == nullptr) return nullptr;
  const CatalogueRow* row = find_model_by_name(model);
  return row == nullptr ? nullptr : create_handle(row->model_id);
}

VORN_API int32_t VORN_CALL PrinterDestroy(VORN_PRINTER handle) {
  if (!take_live_printer(handle)) return VORN_ERR_INVALID_HANDLE;
  destroy_context(handle->context);
  if (handle->port != nullptr) vorn_io_port_destroy(handle->port);
  handle->tag = 0;
  delete handle;
  return VORN_OK;
}

VORN_API int32_t VORN_CALL PortOpen(VORN_PRINTER handle, const VORN_WCHAR* port) {
  if (!is_live_printer(handle)) return VORN_ERR_INVALID_HANDLE;
  if (handle->port != nullptr) {
    vorn_io_port_destroy(handle->port);
    handle->port = nullptr;
    handle->port_open = 0;
  }
  char text[kPortTextArea];
  uint32_t length = 0;
  if (to_narrow_text(port, text, sizeof text, &length) != VORN_OK) return VORN_ERR_PARAMETER;
  VORN_PORT created = nullptr;
  int32_t result = vorn_io_port_creator(&created, text);
  if (result != VORN_OK) return result;
  handle->port = created;
  result = created->open(created);
  if (result == VORN_OK) handle->port_open = 1;
  return result;
}

VORN_API int32_t VORN_CALL PortClose(VORN_PRINTER handle) {
  if (!is_live_printer(handle)) return VORN_ERR_INVALID_HANDLE;
  if (!handle->port_open || handle->port == nullptr) return VORN_ERR_IO_NOT_OPEN;
  handle->port_open = 0;
  handle->port->close(handle->port);
  return VORN_OK;
}

}  // extern "C"
