#include <cstdio>
#include <string>

#include "core/log_line.h"
#include "platform/board_paths.h"

int main() {
  std::string why = board_check();
  if (!why.empty()) {
    std::fprintf(stderr, "custodo: %s\n", why.c_str());
    return 1;
  }
  log_line("version: ", "v0.00.39");
  return 0;
}
