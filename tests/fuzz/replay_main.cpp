// Runs a fuzz target's entry point once on every file of the folders (or the
// files) named on the command line, so the normal test run replays the seed
// corpus and every input a fuzzer ever found. A failing input aborts, naming
// itself first.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  std::fprintf(stderr, "replaying %s\n", file.string().c_str());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path place(argv[i]);
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(place)) {
      for (const auto& entry : std::filesystem::directory_iterator(place)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
    } else if (std::filesystem::exists(place)) {
      files.push_back(place);
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) replay(file);
    replayed += files.size();
  }
  std::printf("%zu inputs replayed\n", replayed);
  // No input at all means the folders were not found: a broken set-up, not a pass.
  return replayed > 0 ? 0 : 1;
}
