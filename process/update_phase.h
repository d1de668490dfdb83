// Daemons that an update in progress holds back.
#pragma once
#include "update/boot_flags.h"

// The cloud client stays down from the verification of an installed phase 1 until phase 2
// has been installed.
inline bool cloud_client_held_back() {
  int flag = g_upgrader_flag.load(std::memory_order_relaxed);
  return flag == UpdateProgress_Phase_1_Post || flag == UpdateProgress_Phase_2;
}
