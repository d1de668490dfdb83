#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/board_paths.h"
#include "platform/nodeipc.h"

namespace {

std::string socket_of(int module) {
  return std::string(board_path(BoardPath::IpcSocketDir)) + "/" + std::to_string(module);
}

// A raw socket bound at a module's name, standing for a receiver that never reads.
int bind_raw(int module) {
  int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, socket_of(module).c_str());
  unlink(addr.sun_path);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0) << addr.sun_path;
  return fd;
}

// Receives on this program's module (7) until the packet with id `last` arrives.
std::thread receive_until(uint32_t last, std::vector<IpcPacket>* got) {
  std::thread receiver([last, got] {
    IpcPacket packet;
    do {
      std::memset(&packet, 0xAB, sizeof packet);
      int n = RecvPacket(&packet);
      ASSERT_GT(n, 0);
      got->push_back(packet);
    } while (packet.id != last);
  });
  struct stat st;
  while (stat(socket_of(nodeipc_module).c_str(), &st) != 0) usleep(1000);
  return receiver;
}

IpcPacket packet_for(uint32_t id, uint32_t length, uint8_t fill) {
  IpcPacket packet{};
  packet.id = id;
  packet.length = length;
  std::memset(packet.payload, fill, length);
  return packet;
}

TEST(NodeIpc, ConcurrentSendersReachTheReceiver) {
  ASSERT_EQ(nodeipc_module, 7);
  std::vector<IpcPacket> got;
  std::thread receiver = receive_until(0x07FFFFFF, &got);

  struct stat dir, own;
  ASSERT_EQ(stat(board_path(BoardPath::IpcSocketDir), &dir), 0);
  ASSERT_EQ(stat(socket_of(7).c_str(), &own), 0);
  EXPECT_EQ(own.st_mode & 07777, 0660u);
  EXPECT_EQ(own.st_gid, dir.st_gid);

  std::vector<std::thread> senders;
  for (uint8_t sender = 1; sender <= 3; ++sender)
    senders.emplace_back([sender] {
      IpcSendOptions blocking{{0, 0, 0, 0}};
      for (uint32_t n = 0; n < 50; ++n) {
        IpcPacket packet = packet_for(0x07000000u | sender << 16 | n, 4, sender);
        ASSERT_EQ(SendPacket(&packet, &blocking), 0) << std::strerror(errno);
      }
    });
  for (std::thread& sender : senders) sender.join();
  IpcPacket last = packet_for(0x07FFFFFF, 0, 0);
  ASSERT_EQ(SendPacket(&last, nullptr), 0);
  receiver.join();

  ASSERT_EQ(got.size(), 151u);
  for (const IpcPacket& packet : got) {
    uint8_t sender = static_cast<uint8_t>(packet.id >> 16);
    if (packet.id == 0x07FFFFFF) continue;
    EXPECT_EQ(packet.length, 4u);
    EXPECT_EQ(packet.payload[3], sender);
    EXPECT_EQ(packet.payload[4], 0) << "the whole packet is sent";
  }
}

TEST(NodeIpc, ShortDatagramLeavesTheRestOfThePacket) {
  std::vector<IpcPacket> got;
  std::thread receiver = receive_until(0x07050006, &got);
  int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, socket_of(7).c_str());
  const uint8_t bytes[6] = {0x06, 0x00, 0x05, 0x07, 0x11, 0x22};
  ASSERT_EQ(sendto(fd, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 6);
  close(fd);
  receiver.join();
  ASSERT_EQ(got.size(), 1u);
  const uint8_t* raw = reinterpret_cast<const uint8_t*>(&got[0]);
  EXPECT_EQ(raw[4], 0x11);
  EXPECT_EQ(raw[5], 0x22);
  for (size_t i = 6; i < sizeof(IpcPacket); ++i) ASSERT_EQ(raw[i], 0xAB) << i;
}

TEST(NodeIpc, SendFailuresSetErrno) {
  IpcSendOptions dont_block{{1, 0, 0, 0}};
  IpcPacket packet = packet_for(0xC8070001, 0, 0);  // module 200: nobody there
  errno = 0;
  EXPECT_LT(SendPacket(&packet, &dont_block), 0);
  EXPECT_EQ(errno, ENOENT);

  close(bind_raw(201));  // the socket file of a receiver that has gone
  packet.id = 0xC9070001;
  EXPECT_LT(SendPacket(&packet, &dont_block), 0);
  EXPECT_EQ(errno, ECONNREFUSED);

  int full = bind_raw(202);
  packet.id = 0xCA070001;
  int sent = 0;
  while (sent < 100000 && SendPacket(&packet, &dont_block) == 0) ++sent;
  EXPECT_EQ(errno, EAGAIN) << "after " << sent << " packets";
  EXPECT_GT(sent, 0);
  close(full);
}

}  // namespace
