#include "update/boot_flags.h"

#include <cstdlib>

#include "core/log_line.h"
#include "core/process_end.h"
#include "status/snapshot.h"

std::atomic<int> g_upgrader_flag{UpdateProgress_Unknown};
std::atomic<int> g_upgrader_normal_exit{0};

namespace {

constexpr const char* kBootPartitionKey = "boot_fs=";

bool valid_partition(int id) { return id == 1 || id == 2; }

// The running partition; an invalid one means the boot loader cannot be trusted: end.
int running_partition_or_exit() {
  int id = BlGetBootPartition(kBootPartitionKey);
  if (!valid_partition(id)) {
    log_line("Invalid boot partition ID ", id);
    end_process(1);
  }
  return id;
}

}  // namespace

const char* _UpdateProgress2String(_BL_UpdateProgressFlag flag) {
  switch (flag) {
    case UpdateProgress_Phase_NS:
      return "UpdateProgress_Phase_NS";
    case UpdateProgress_Phase_0:
      return "UpdateProgress_Phase_0";
    case UpdateProgress_Phase_1:
      return "UpdateProgress_Phase_1";
    case UpdateProgress_Phase_2:
      return "UpdateProgress_Phase_2";
    case UpdateProgress_Phase_1_Post:
      return "UpdateProgress_Phase_1_Post";
    case UpdateProgress_Phase_2_Post:
      return "UpdateProgress_Phase_2_Post";
    case UpdateProgress_Unknown:
      return "UpdateProgress_Unknown";
  }
  return "INVALID";
}

void restore_partition_flag() {
  int id = running_partition_or_exit();
  log_line("Boot Partition = ", id);
  if (BlSetPartitionFlag(id, 1) < 0) {
    log_line("Failed to restore partition flag for A");
    end_process(1);
  }
  status_partition(id, 1);
  log_line("Successfully restore partition flag!");
}

void get_partition_flag() {
  int id = running_partition_or_exit();
  int flag = 0;
  if (BlGetPartitionFlag(id, &flag) < 0) {
    log_line("Failed to restore partition flag for A");
    end_process(1);
  }
  status_partition(id, flag);
  log_line("Get Boot Partition = ", id, "Flag = ", flag);
}

int read_offpart_flag() {
  int id = BlGetBootPartition(kBootPartitionKey);
  if (!valid_partition(id)) {
    log_line("Invalid boot partition ID ", id);
    return 0;
  }
  int offline = id == 1 ? 2 : 1;
  log_line("Offline partition = (", offline, ")");
  int flag = 0;
  if (BlGetPartitionFlag(offline, &flag) < 0) {
    log_line("Failed to read offline partition flag");
    return 0;
  }
  log_line("Offline partition flag = ", flag);
  return flag;
}

int read_upprog_flag(_BL_UpdateProgressFlag* flag) {
  int result = BlGetUpdateProgressFlag(flag);
  if (result < 0) {
    log_line("Failed to read UpdateProgress flag");
    return result;
  }
  int value = *flag;
  g_upgrader_flag = value >= UpdateProgress_Phase_NS && value <= UpdateProgress_Phase_2_Post
                        ? value
                        : UpdateProgress_Unknown;
  status_update_progress(g_upgrader_flag);
  return result;
}
