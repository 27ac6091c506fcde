// Replays fuzz corpora through a harness without libFuzzer. Every file named
// on the command line, and every file in a folder named there (in name
// order), goes once through LLVMFuzzerTestOneInput. The test suite runs each
// harness over its corpus this way in the ordinary builds, so the inputs that
// once found new paths or faults keep being checked on every run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

bool replay(const std::filesystem::path &p) {
  std::ifstream in(p, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "replay: cannot read %s\n", p.c_str());
    return false;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // An empty input still comes with a valid pointer, as under libFuzzer.
  uint8_t none = 0;
  LLVMFuzzerTestOneInput(bytes.empty() ? &none : bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  size_t n = 0;
  for (int i = 1; i < argc; i++) {
    std::filesystem::path arg(argv[i]);
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(arg)) {
      for (const auto &e : std::filesystem::directory_iterator(arg))
        if (e.is_regular_file()) files.push_back(e.path());
      std::sort(files.begin(), files.end());
    } else {
      files.push_back(arg);
    }
    for (const auto &f : files) {
      if (!replay(f)) return 1;
      n++;
    }
  }
  std::printf("replay: %zu inputs\n", n);
  return n > 0 ? 0 : 1;
}
