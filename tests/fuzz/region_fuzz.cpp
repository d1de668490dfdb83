// The region table (the input after a NUL byte) looked up with a product number (before it).
#include <cstdio>

#include "device/region.h"
#include "tests/fuzz/fuzz_board.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string pn, table;
  split_input(data, size, &pn, &table);
  FILE* file = fmemopen(table.data(), table.size(), "r");
  if (file == nullptr) return 0;
  std::string region;
  find_region(file, pn.c_str(), &region);
  std::fclose(file);
  return 0;
}
