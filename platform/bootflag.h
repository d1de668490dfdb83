// The boot loader's flag library (libbootflag): the vendor's on the robot, or the open
// implementation in platform/open/ that keeps the flags in a U-Boot environment.
#pragma once
#include <cstdint>

extern "C" {
typedef enum : int32_t {
  UpdateProgress_Phase_NS = 0,
  UpdateProgress_Phase_0 = 1,
  UpdateProgress_Phase_1 = 2,
  UpdateProgress_Phase_2 = 3,
  UpdateProgress_Phase_1_Post = 4,
  UpdateProgress_Phase_2_Post = 5,
  UpdateProgress_Unknown = 99,
} _BL_UpdateProgressFlag;

// Every call returns a negative value on failure.
int BlGetBootPartition(const char* key);
int BlGetPartitionFlag(int partition, int* flag);
int BlSetPartitionFlag(int partition, int flag);
int BlGetUpdateProgressFlag(_BL_UpdateProgressFlag* flag);
int BlSetUpdateProgressFlag(_BL_UpdateProgressFlag flag);
}
