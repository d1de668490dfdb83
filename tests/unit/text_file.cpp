#include "tests/unit/text_file.h"

#include <cstdio>
#include <fstream>
#include <iterator>

std::string read_text(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_text(const std::string& path, const char* text) {
  if (text == nullptr)
    std::remove(path.c_str());
  else
    std::ofstream(path, std::ios::trunc) << text;
}
