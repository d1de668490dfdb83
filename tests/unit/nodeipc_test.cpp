#include "platform/nodeipc.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/board_paths.h"

namespace {

// The supervisor's sends never wait for a receiver.
TEST(NodeIpc, SendFailuresSetErrno) {
  // Module 200 has no socket, 201 the socket file of a receiver that has gone, 202 a receiver
  // that never reads.
  mkdir(board_path(BoardPath::IpcSocketDir), 0755);
  int sockets[2];
  for (int module : {201, 202}) {
    sockaddr_un addr{AF_UNIX, {}};
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s/%d", board_path(BoardPath::IpcSocketDir), module);
    sockets[module - 201] = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(bind(sockets[module - 201], reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  }
  close(sockets[0]);
  const std::pair<uint32_t, int> rows[] = {
      {0xC8070001, ENOENT}, {0xC9070001, ECONNREFUSED}, {0xCA070001, EAGAIN}};
  IpcSendOptions dont_block{{1, 0, 0, 0}};
  for (const auto& [id, expected] : rows) {
    IpcPacket packet{id, 0, 0, {}};
    int sent = 0;
    while (sent < 100000 && SendPacket(&packet, &dont_block) == 0) ++sent;
    EXPECT_EQ(errno, expected) << std::hex << id << " after " << sent << " packets";
    EXPECT_EQ(sent > 0, expected == EAGAIN) << std::hex << id;
  }
  close(sockets[1]);
}

}  // namespace
