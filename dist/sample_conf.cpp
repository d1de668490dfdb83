// custodo-sample-conf DIR: writes the sample configuration below DIR, laid out as the robot's
// root file system, for the install rules.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "sim/board/sample_config.h"

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: custodo-sample-conf DIR\n");
    return 1;
  }
  for (const auto& [path, text] : sample_configuration()) {
    std::filesystem::path file = std::filesystem::path(argv[1]) / path;
    std::error_code ignored;  // a directory that cannot be made fails the write below
    std::filesystem::create_directories(file.parent_path(), ignored);
    std::ofstream out(file, std::ios::trunc);
    if (!(out << text).flush()) {
      std::fprintf(stderr, "custodo-sample-conf: cannot write %s\n", file.c_str());
      return 1;
    }
  }
  return 0;
}
