// Runs a fuzz target over the files of a folder, one call a file, and then over every prefix of the
// short ones: so the seeds are ordinary tests in builds without libFuzzer. An empty or missing
// folder is a failure, because a test without input proves nothing.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  constexpr size_t kLongestWithPrefixes = 600;
  size_t inputs = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i], error)) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
      LLVMFuzzerTestOneInput(data, bytes.size());
      if (bytes.size() <= kLongestWithPrefixes) {
        for (size_t n = 0; n < bytes.size(); ++n) {
          // A copy of its own, so that a read past the prefix is a read past the allocation.
          const std::string prefix = bytes.substr(0, n);
          LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(prefix.data()), n);
        }
      }
      ++inputs;
    }
    if (error) std::fprintf(stderr, "%s: %s\n", argv[i], error.message().c_str());
  }
  std::printf("%zu inputs replayed\n", inputs);
  return inputs == 0 ? 1 : 0;
}
