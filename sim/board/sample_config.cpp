#include "sim/board/sample_config.h"

#include "platform/board_paths.h"
#include "sim/board/root_files.h"

std::vector<std::pair<std::string, std::string>> sample_configuration() {
  std::string conf = board_relative_path(BoardPath::ConfigDir);
  return {
      {conf + "/ProcessList.conf", root_files::process_list()},
      {conf + "/ProcessListMT.conf", root_files::process_list_mt()},
      {board_relative_path(BoardPath::RegionTable), root_files::region_table()},
      {conf + "/ntpserver.conf", root_files::ntp_servers()},
      {board_relative_path(BoardPath::McuFirmwareMatch), root_files::mcu_firmware_match()},
  };
}
