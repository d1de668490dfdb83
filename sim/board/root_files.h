// The texts of a new board root's files: a working sample configuration.
#pragma once
#include <string>

namespace root_files {

// The sample process list: stub daemons under the robot's names, CoreCtl the key process.
std::string process_list();
// The list of the mobility-test mode: only what that mode needs.
std::string process_list_mt();
std::string region_table();
std::string ntp_servers();
std::string mcu_firmware_match();
std::string kernel_cmdline();
// A factory voice prompt to try a power-off with, "bye.wav" of the default region: half a
// second of a tone, 16-bit mono WAV.
std::string factory_prompt_path();
std::string factory_prompt();
// The redundant U-Boot environment: two copies below sim/.
std::string fw_env_config(const std::string& root);
// Where a board keeps the simulator's ALSA plugin, below its root.
constexpr const char* kSoundPlugin = "lib/custodo-sim-sound.so";
// The default PCM and control are the simulator's speaker and mixer; self-contained, since it
// replaces the system's ALSA configuration.
std::string asound_conf(const std::string& root);

}  // namespace root_files
