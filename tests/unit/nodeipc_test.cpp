#include "platform/nodeipc.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/board_paths.h"

namespace {

sockaddr_un address_of(int module) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s/%d", board_path(BoardPath::IpcSocketDir),
                module);
  return addr;
}

TEST(NodeIpc, ConcurrentSendersAndAShortDatagramReachTheReceiver) {
  ASSERT_EQ(nodeipc_module, 7);
  constexpr uint32_t kLastId = 0x07050006;
  std::vector<IpcPacket> got;
  std::thread receiver([&got] {
    IpcPacket packet;
    do {
      std::memset(&packet, 0xAB, sizeof packet);
      ASSERT_GT(RecvPacket(&packet), 0);
      got.push_back(packet);
    } while (packet.id != kLastId);
  });
  sockaddr_un own = address_of(7);
  while (access(own.sun_path, F_OK) != 0) usleep(1000);

  std::vector<std::thread> senders;
  for (uint32_t sender = 1; sender <= 3; ++sender)
    senders.emplace_back([sender] {
      IpcSendOptions blocking{{0, 0, 0, 0}};
      for (uint32_t n = 0; n < 50; ++n) {
        IpcPacket packet{0x07000000u | sender << 16 | n, 0, 4, {}};
        std::memset(packet.payload, static_cast<int>(sender), 4);
        ASSERT_EQ(SendPacket(&packet, &blocking), 0) << std::strerror(errno);
      }
    });
  for (std::thread& sender : senders) sender.join();
  const uint8_t last[6] = {0x06, 0x00, 0x05, 0x07, 0x11, 0x22};
  int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_EQ(sendto(fd, last, sizeof last, 0, reinterpret_cast<sockaddr*>(&own), sizeof own), 6);
  close(fd);
  receiver.join();

  ASSERT_EQ(got.size(), 151u);
  for (size_t i = 0; i + 1 < got.size(); ++i) {
    EXPECT_EQ(got[i].length, 4u);
    EXPECT_EQ(got[i].payload[3], static_cast<uint8_t>(got[i].id >> 16));
    EXPECT_EQ(got[i].payload[4], 0) << "the whole packet is sent";
  }
  // A short datagram fills only its own bytes of the packet.
  const uint8_t* raw = reinterpret_cast<const uint8_t*>(&got.back());
  EXPECT_EQ(raw[5], 0x22);
  for (size_t i = sizeof last; i < sizeof(IpcPacket); ++i) ASSERT_EQ(raw[i], 0xAB) << i;
}

TEST(NodeIpc, SendFailuresSetErrno) {
  // Module 200 has no socket, 201 the socket file of a receiver that has gone, 202 a receiver
  // that never reads.
  int sockets[2];
  for (int module : {201, 202}) {
    sockaddr_un addr = address_of(module);
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
