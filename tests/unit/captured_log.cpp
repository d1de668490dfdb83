#include "tests/unit/captured_log.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

std::vector<std::string> captured_log(const std::function<void()>& code) {
  char path[] = "/tmp/custodo-log-XXXXXX";
  int file = mkstemp(path);
  std::fflush(stdout);
  int saved = dup(STDOUT_FILENO);
  dup2(file, STDOUT_FILENO);
  code();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  close(file);

  std::vector<std::string> lines;
  std::ifstream in(path);
  const std::string tag = " tqwatchdog ";
  for (std::string line; std::getline(in, line);) {
    size_t at = line.find(tag);
    lines.push_back(at == std::string::npos ? line : line.substr(at + tag.size()));
  }
  unlink(path);
  return lines;
}
