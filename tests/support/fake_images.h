// An image source that reports made-up pictures by path, so the image
// commands can be tested without files, plus helpers for their tests.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "image/image_source.h"
#include "support/fake_session.h"

namespace vorn::test {

// A picture the fake image source reports for one path. The same bytes start
// whichever layout is asked for; the rest of the layout stays 0.
struct Picture {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> dots;
  int32_t probe_result = 0;  // non-zero: the load fails with this code
  bool reports_size = true;  // false: a failed load that left no error
  int32_t convert_result = 0;
};

// Installed for its lifetime.
class FakeImages {
 public:
  FakeImages();
  ~FakeImages();
  FakeImages(const FakeImages&) = delete;
  FakeImages& operator=(const FakeImages&) = delete;

  void add(const std::u16string& path, Picture picture) { pictures_[path] = std::move(picture); }
  int probes = 0;
  std::vector<std::string> conversions;  // "raster" or "columns", in order

 private:
  friend struct FakeImagesAccess;
  const image::ImageSource* previous_ = nullptr;
  std::map<std::u16string, Picture> pictures_;
};

// Leaves `bytes` waiting in the command buffer, as a failed write would.
void leave_pending(FakeSession& session, const std::vector<uint8_t>& bytes);

// The first `count` bytes (or all of them).
std::vector<uint8_t> head_of(const std::vector<uint8_t>& bytes, size_t count);

// Keeps the command buffer from growing for the guard's lifetime; the buffer
// goes back to growable so that destroying the handle frees it.
class FixedBuffer {
 public:
  explicit FixedBuffer(FakeSession& session) : context_(session.context()) {
    context_.growable = 0;
  }
  ~FixedBuffer() { context_.growable = 1; }
  FixedBuffer(const FixedBuffer&) = delete;
  FixedBuffer& operator=(const FixedBuffer&) = delete;

 private:
  printer::CommandContext& context_;
};

}  // namespace vorn::test
