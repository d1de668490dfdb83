#include "tests/unit/helpers.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/common/scratch_board.h"

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

std::vector<std::string> captured_log(const std::function<void()>& code) {
  std::fflush(stdout);
  testing::internal::CaptureStdout();
  code();
  std::fflush(stdout);
  std::istringstream out(testing::internal::GetCapturedStdout());
  std::vector<std::string> lines;
  const std::string tag = " tqwatchdog ";
  for (std::string line; std::getline(out, line);) {
    size_t at = line.find(tag);
    lines.push_back(at == std::string::npos ? line : line.substr(at + tag.size()));
  }
  return lines;
}

namespace {

// Every test runs on one scratch board, made before the first test.
class ScratchBoard : public testing::Environment {
  void SetUp() override { ASSERT_FALSE(make_scratch_board().empty()); }
};

testing::Environment* const scratch_board = testing::AddGlobalTestEnvironment(new ScratchBoard);

}  // namespace
