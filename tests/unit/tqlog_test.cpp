#include "platform/tqlog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/board_paths.h"

TEST(StatLog, OneLinePerCallAppended) {
  std::remove(board_path(BoardPath::StatLog));
  EXPECT_EQ(tq_stat_int(6, 10, 1), 0);
  EXPECT_EQ(tq_overwrite_int(6, 3, -2), 0);
  std::ifstream in(board_path(BoardPath::StatLog));
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, "tq_stat_int 6 10 1\ntq_overwrite_int 6 3 -2\n");
}
