#include "image/image_source.h"

#include <atomic>

#include "image/conversion.h"

namespace vorn::image {
namespace {

const ImageSource kFileSource = {probe_size, convert_to_raster, convert_to_columns};

std::atomic<const ImageSource*> installed{nullptr};

}  // namespace

const ImageSource& image_source() {
  const ImageSource* source = installed.load(std::memory_order_acquire);
  return source != nullptr ? *source : kFileSource;
}

const ImageSource* install_image_source(const ImageSource* source) {
  return installed.exchange(source, std::memory_order_acq_rel);
}

}  // namespace vorn::image
