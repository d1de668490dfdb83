#include <gtest/gtest.h>

#include <cstring>

#include "device/region.h"
#include "device/product_number.h"
#include "platform/board_paths.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/text_file.h"

namespace {

std::vector<std::string> look_up(const char* table, const char* pn) {
  const std::string path = board_root() + "/region.conf";
  write_text(path, table);
  std::string number = pn;
  return captured_log([&] { RegionConfig(path, number.data()); });
}

TEST(Region, FirstLineWhosePatternBeginsWithThePrefixWins) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"# eu,ABCDE\neu,ABCDE\nus,ABCDE\n", "ABCDE1234", "eu"},
      {"us,ABC\n", "ABCDE1234", "prc"},
      {"eu,AB\nus,ABC\n", "ABC", "us"},
      {"xx,y\nABCDEFG\n", "ABCDE", "ABCDEFG"},  // no comma: the line is region and pattern
      {"e#u,A#B\n", "A#B", "e#u"},             // "#" inside a line is no comment
      {"eu,EU001\nus,US001\n", "", "eu"},      // an empty prefix matches any line
      {"\neu,EU\n", "", ""},
      {"eu,ABCDE\r\n", "ABCDE", "eu"},
      {"eu,a,b\n", "a,b", "eu"},
      {"", "ABCDE", "prc"},
  };
  for (const auto& [table, pn, region] : rows) {
    look_up(table, pn);
    EXPECT_STREQ(g_region, region) << table;
    EXPECT_EQ(read_text(board_path(BoardPath::RegionFile)), "location=" + std::string(region) + "\n");
  }
  const std::string region_file = board_path(BoardPath::RegionFile);
  EXPECT_EQ(look_up("#c\nus,US001\neu,ABCDE\n", "ABCDE1"),
            (std::vector<std::string>{
                "ReadRegionConfig:  us,US001", "ReadRegionConfig: us matching US001 with ABCDE",
                "ReadRegionConfig:  eu,ABCDE", "ReadRegionConfig: eu matching ABCDE with ABCDE",
                "tq_system: echo \"location=eu\" > " + region_file,
                "run shell script successfully. "}));
  EXPECT_EQ(look_up("us,US001\n", "ABCDE1")[2], "ReadRegionConfig Failed Write Default Region");
}

TEST(Region, MissingTableEndsTheSupervisorWithZero) {
  char pn[] = "ABCDE";
  EXPECT_EXIT(RegionConfig("/nonexistent/region.conf", pn), ::testing::ExitedWithCode(0), "");
}

TEST(VisualLen, CountsTheLeadingPrintableCharacters) {
  const std::tuple<const char*, int, int> rows[] = {
      {"AB\x01" "C", 4, 2}, {"\x7f" "A", 2, 0}, {"ABC", 2, 2}, {"ABC", 0, 0}, {"ABC", -1, 0},
      {" ~", 2, 2},        {"\x80", 1, 0},
  };
  for (const auto& [text, n, length] : rows) EXPECT_EQ(visual_len(text, n), length) << text;
}

}  // namespace
