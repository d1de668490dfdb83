#include "sim/board/root_files.h"

#include <cmath>
#include <cstdint>

#include "platform/board_paths.h"

namespace root_files {

std::string process_list() {
  return "# name,command,key process,kill time-out (s),wait after start (s)\n"
         "tqlogd,tqlogd &,0,3,0\n"
         "chimer,chimer &,0,3,0\n"
         "CoreCtl,CoreCtl &,1,5,0\n"
         "AppBridge,AppBridge &,0,3,0\n"
         "netmgrd,netmgrd &,0,3,0\n"
         "quom_client,quom_client &,0,3,0\n";
}

std::string process_list_mt() {
  return "# mobility test: name,command,key process,kill time-out (s),wait after start (s)\n"
         "tqlogd,tqlogd &,0,3,0\n"
         "CoreCtl,CoreCtl &,1,5,0\n";
}

std::string region_table() {
  return "# region,product number pattern: the first pattern that begins with the product\n"
         "# number's first five characters wins; none matching means prc\n"
         "eu,EU001\n"
         "us,US001\n"
         "prc,ABCDE\n";
}

std::string ntp_servers() {
  return "# NTP servers, asked in turn\n"
         "time1.example.org\n"
         "time2.example.org\n";
}

std::string mcu_firmware_match() { return "MCU_FW_1.0.0\n"; }

std::string factory_prompt_path() {
  return std::string(board_relative_path(BoardPath::FactorySounds)) + "prc/bye.wav";
}

std::string factory_prompt() {
  constexpr uint32_t kRate = 16000;
  constexpr uint32_t kFrames = kRate / 2;
  std::string wav;
  auto put = [&wav](uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) wav.push_back(static_cast<char>(value >> (8 * i)));
  };
  wav += "RIFF";
  put(36 + kFrames * 2, 4);
  wav += "WAVEfmt ";
  put(16, 4);
  put(1, 2);          // PCM
  put(1, 2);          // mono
  put(kRate, 4);
  put(kRate * 2, 4);  // bytes a second
  put(2, 2);          // bytes a frame
  put(16, 2);         // bits a sample
  wav += "data";
  put(kFrames * 2, 4);
  for (uint32_t n = 0; n < kFrames; ++n)
    put(static_cast<uint16_t>(static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * n / kRate))), 2);
  return wav;
}

std::string kernel_cmdline() {
  return "console=ttyS0,115200 rootwait ro boot_fs=1 loglevel=4\n";
}

std::string fw_env_config(const std::string& root) {
  return "# device or file, offset, size: two copies make a redundant environment\n" + root +
         "/sim/uboot-env.1 0x0 0x4000\n" + root + "/sim/uboot-env.2 0x0 0x4000\n";
}

std::string asound_conf(const std::string& root) {
  std::string plugin = "\"" + root + "/" + kSoundPlugin + "\"";
  return "# The board's speaker and mixer, ALSA plugins of the simulator: whatever the board\n"
         "# plays ends up as raw samples in sim/pcm.raw.\n"
         "pcm_type.custodo_sim { lib " + plugin + " }\n"
         "ctl_type.custodo_sim { lib " + plugin + " }\n"
         "pcm.!default { type custodo_sim }\n"
         "ctl.!default { type custodo_sim }\n";
}

}  // namespace root_files
