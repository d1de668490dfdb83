#include <gtest/gtest.h>

#include "device/region.h"
#include "platform/board_paths.h"
#include "tests/unit/helpers.h"

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
      {"eu,AB\nus,ABC\n", "ABC", "us"},
      {"xx,y\nABCDEFG\n", "ABCDE", "ABCDEFG"},  // no comma: the line is region and pattern
      {"e#u,A#B\n", "A#B", "e#u"},             // "#" inside a line is no comment
      {"\neu,EU\n", "", ""},  {"eu,ABCDE\r\n", "ABCDE", "eu"}, {"eu,a,b\n", "a,b", "eu"},
      {"", "ABCDE", "prc"},
  };
  for (const auto& [table, pn, region] : rows) {
    look_up(table, pn);
    EXPECT_STREQ(g_region, region) << table;
    EXPECT_EQ(read_text(board_path(BoardPath::RegionFile)), "location=" + std::string(region) + "\n");
  }
  EXPECT_EQ(look_up("#c\nus,US001\neu,ABCDE\n", "ABCDE1")[3],
            "ReadRegionConfig: eu matching ABCDE with ABCDE");
  EXPECT_EQ(look_up("us,US001\n", "ABCDE1")[2], "ReadRegionConfig Failed Write Default Region");
}

}  // namespace
