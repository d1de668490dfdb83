// The board's mixer: the ALSA control type "custodo_sim", with one playback volume, the simple
// element "speaker volume control", ranging from 10 to 255. Its value lives in
// sim/sound/volume, and every set is recorded in sim/sound.log. While sim/sound/no-mixer
// exists the mixer has no element at all.
#include <alsa/asoundlib.h>
#include <alsa/control_external.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/common/sim_files.h"

namespace {

// The simple mixer layer names an element after the control, less " Playback Volume".
constexpr const char* kControl = "speaker volume control Playback Volume";
constexpr long kMin = 10;
constexpr long kMax = 255;
constexpr snd_ctl_ext_key_t kKey = 0;

bool has_element() { return access(sim::file(sim::kNoMixer).c_str(), F_OK) != 0; }

long stored_volume() {
  FILE* in = std::fopen(sim::file(sim::kVolume).c_str(), "re");
  long value = kMax;
  if (in != nullptr) {
    if (std::fscanf(in, "%ld", &value) != 1) value = kMax;
    std::fclose(in);
  }
  return value;
}

int elem_count(snd_ctl_ext_t*) { return has_element() ? 1 : 0; }

int elem_list(snd_ctl_ext_t*, unsigned int offset, snd_ctl_elem_id_t* id) {
  if (offset != 0 || !has_element()) return -EINVAL;
  snd_ctl_elem_id_set_interface(id, SND_CTL_ELEM_IFACE_MIXER);
  snd_ctl_elem_id_set_name(id, kControl);
  return 0;
}

snd_ctl_ext_key_t find_elem(snd_ctl_ext_t*, const snd_ctl_elem_id_t* id) {
  bool ours = has_element() && std::strcmp(snd_ctl_elem_id_get_name(id), kControl) == 0 &&
              snd_ctl_elem_id_get_index(id) == 0;
  return ours ? kKey : SND_CTL_EXT_KEY_NOT_FOUND;
}

int get_attribute(snd_ctl_ext_t*, snd_ctl_ext_key_t, int* type, unsigned int* acc,
                  unsigned int* count) {
  *type = SND_CTL_ELEM_TYPE_INTEGER;
  *acc = SND_CTL_EXT_ACCESS_READWRITE;
  *count = 1;
  return 0;
}

int get_integer_info(snd_ctl_ext_t*, snd_ctl_ext_key_t, long* imin, long* imax, long* istep) {
  *imin = kMin;
  *imax = kMax;
  *istep = 1;
  return 0;
}

int read_integer(snd_ctl_ext_t*, snd_ctl_ext_key_t, long* value) {
  *value = stored_volume();
  return 0;
}

int write_integer(snd_ctl_ext_t*, snd_ctl_ext_key_t, long* value) {
  if (*value < kMin || *value > kMax) return -EINVAL;
  FILE* out = std::fopen(sim::file(sim::kVolume).c_str(), "we");
  if (out == nullptr) return -EIO;
  std::fprintf(out, "%ld\n", *value);
  std::fclose(out);
  sim::record(sim::kSoundLog, "mixer set " + std::to_string(*value));
  return 1;
}

int read_event(snd_ctl_ext_t*, snd_ctl_elem_id_t*, unsigned int*) { return -EAGAIN; }

void close_mixer(snd_ctl_ext_t* ext) { delete ext; }

const snd_ctl_ext_callback_t kCallbacks = [] {
  snd_ctl_ext_callback_t c{};
  c.close = close_mixer;
  c.elem_count = elem_count;
  c.elem_list = elem_list;
  c.find_elem = find_elem;
  c.get_attribute = get_attribute;
  c.get_integer_info = get_integer_info;
  c.read_integer = read_integer;
  c.write_integer = write_integer;
  c.read_event = read_event;
  return c;
}();

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

SND_CTL_PLUGIN_DEFINE_FUNC(custodo_sim) {
  (void)root;
  (void)conf;
  snd_ctl_ext_t* ext = new snd_ctl_ext_t{};
  ext->version = SND_CTL_EXT_VERSION;
  ext->card_idx = 0;
  std::strcpy(ext->id, "custodo_sim");
  std::strcpy(ext->driver, "custodo_sim");
  std::strcpy(ext->name, "Custodo simulated board");
  std::strcpy(ext->longname, "Custodo simulated board");
  std::strcpy(ext->mixername, "Custodo simulated board");
  ext->poll_fd = -1;
  ext->callback = &kCallbacks;
  int err = snd_ctl_ext_create(ext, name, mode);
  if (err < 0) {
    delete ext;
    return err;
  }
  *handlep = ext->handle;
  return 0;
}
SND_CTL_PLUGIN_SYMBOL(custodo_sim)

}  // extern "C"
#pragma GCC visibility pop
