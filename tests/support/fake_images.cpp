#include "support/fake_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "image/conversion.h"

namespace vorn::test {
namespace {
FakeImages* active = nullptr;
}  // namespace

struct FakeImagesAccess {
  static int32_t probe(const VORN_WCHAR* path, int32_t* width, int32_t* height) {
    ++active->probes;
    const Picture& p = active->pictures_.at(path);
    if (p.probe_result != 0 || !p.reports_size) return p.probe_result;
    *width = p.width;
    *height = p.height;
    return 0;
  }
  static int32_t convert(const char* layout, int32_t width, int32_t height, uint64_t size,
                         const VORN_WCHAR* path, uint8_t* out) {
    const Picture& p = active->pictures_.at(path);
    active->conversions.push_back(layout);
    EXPECT_EQ(width, p.width) << "the conversion gets the probed size";
    EXPECT_EQ(height, p.height) << "the conversion gets the probed size";
    if (p.convert_result != 0) return p.convert_result;
    if (!p.dots.empty()) std::memcpy(out, p.dots.data(), std::min<uint64_t>(size, p.dots.size()));
    return 0;
  }
  static int32_t raster(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out) {
    return convert("raster", width, height, image::raster_bytes(width, height), path, out);
  }
  static int32_t columns(const VORN_WCHAR* path, int32_t width, int32_t height, uint8_t* out) {
    return convert("columns", width, height, image::column_bytes(width, height), path, out);
  }
};

namespace {
constexpr image::ImageSource kFakeSource = {FakeImagesAccess::probe, FakeImagesAccess::raster,
                                            FakeImagesAccess::columns};
}  // namespace

FakeImages::FakeImages() {
  active = this;
  previous_ = image::install_image_source(&kFakeSource);
}

FakeImages::~FakeImages() {
  image::install_image_source(previous_);
  active = nullptr;
}

void leave_pending(FakeSession& session, const std::vector<uint8_t>& bytes) {
  printer::CommandContext& c = session.context();
  std::memcpy(c.buffer + c.length, bytes.data(), bytes.size());
  c.length += static_cast<uint32_t>(bytes.size());
}

std::vector<uint8_t> head_of(const std::vector<uint8_t>& bytes, size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(std::min(count, bytes.size()))};
}

}  // namespace vorn::test
