// A fuzz target without libFuzzer: runs it once on every file of the corpus directory named on
// the command line. So the tests of every build replay each target's corpus, the inputs that
// once made it fail included.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/fuzz_board.h"

int main(int argc, char** argv) {
  if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
    std::fprintf(stderr, "usage: %s CORPUS_DIRECTORY\n", argv[0]);
    return 2;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream in(entry.path(), std::ios::binary);
    std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++count;
  }
  std::fprintf(stderr, "%d inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
