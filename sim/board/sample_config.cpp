#include "sim/board/sample_config.h"

#include "sim/board/root_files.h"

std::vector<std::pair<std::string, std::string>> sample_configuration() {
  return {
      {"opt/belvane/watchdog/ProcessList.conf", root_files::process_list()},
      {"opt/belvane/watchdog/ProcessListMT.conf", root_files::process_list_mt()},
      {"opt/belvane/watchdog/region.conf", root_files::region_table()},
      {"opt/belvane/watchdog/ntpserver.conf", root_files::ntp_servers()},
      {"opt/belvane/firmware/bin/MCU_FIRMWARE_MATCH", root_files::mcu_firmware_match()},
  };
}
