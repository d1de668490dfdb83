#include "update/update_verification.h"

#include <sys/stat.h>
#include <unistd.h>

#include "core/log_line.h"
#include "ipc/messages.h"
#include "ipc/send.h"
#include "status/snapshot.h"
#include "update/boot_flags.h"
#include "update/update_paths.h"
#include "update/update_stage.h"

namespace {

void remove_package_info() {
  struct stat info {};
  if (stat(g_szPkfInf, &info) != 0) {
    log_line("pkginf not found.");
    return;
  }
  log_line("deleting pkginf file ", g_szPkfInf);
  unlink(g_szPkfInf);
}

// An installed phase counts as good when the boot loader marked the offline partition good.
// The flag moves on (`next`) or is cleared, and the updater is told. True when it was good.
bool verify_phase(int phase, _Robot_UpdateStageId stage, _BL_UpdateProgressFlag next) {
  bool succeeded = read_offpart_flag() == 1;
  log_line("Update Phase ", phase, " install ", succeeded ? "succeeded." : "failed.");
  if (!succeeded) {
    remove_package_info();
    next = UpdateProgress_Phase_NS;
  }
  log_line("Set return = ", BlSetUpdateProgressFlag(next));
  g_upgrader_flag = next;
  status_update_progress(next);
  _Robot_UpdateStageComplete message{stage, succeeded ? UpdateStage_Succeeded : UpdateStage_Failed};
  log_line("Send MSG_UPDATE_INSTALL_VERIFY (P", phase, succeeded ? " succeeded)" : " failed)");
  send_ipc_msg(MSG_UPDATE_INSTALL_VERIFY, &message, sizeof message);
  return succeeded;
}

}  // namespace

void verify_installed_update(_BL_UpdateProgressFlag flag) {
  switch (flag) {
    case UpdateProgress_Phase_0:
    case UpdateProgress_Phase_1:
    case UpdateProgress_Phase_2:
      g_upgrader_normal_exit = 1;
      break;
    case UpdateProgress_Phase_1_Post:
      if (verify_phase(1, UpdateStage_Phase_1, UpdateProgress_Phase_2)) g_upgrader_normal_exit = 1;
      break;
    case UpdateProgress_Phase_2_Post:
      verify_phase(2, UpdateStage_Phase_2, UpdateProgress_Phase_NS);
      break;
    default:
      break;
  }
}
