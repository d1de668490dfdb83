#include "tests/fuzz/fuzz_board.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/common/scratch_board.h"

// Every target runs on a scratch board; log lines go to standard output, which nobody reads
// here (libFuzzer reports on standard error).
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (make_scratch_board().empty()) {
    std::perror("fuzz: cannot make a scratch board");
    std::exit(1);
  }
  int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(null, STDOUT_FILENO);
  close(null);
  return 0;
}

void write_input(const std::string& path, const uint8_t* data, size_t size) {
  FILE* file = std::fopen(path.c_str(), "we");
  // An empty input may come as a null pointer, which fwrite must not be given.
  if (file == nullptr || (size > 0 && std::fwrite(data, 1, size, file) != size) ||
      std::fclose(file) != 0) {
    std::perror(path.c_str());
    std::abort();
  }
}

void split_input(const uint8_t* data, size_t size, std::string* first, std::string* rest) {
  const char* text = reinterpret_cast<const char*>(data);
  first->assign(text, strnlen(text, size));
  rest->assign(first->size() < size ? text + first->size() + 1 : text + size, text + size);
}
