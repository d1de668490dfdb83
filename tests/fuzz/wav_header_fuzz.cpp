// The chunk walk over a prompt file: whatever the sizes say, it ends, reads only into its
// records, and either refuses the file or gives a playable layout.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "sound/wav_header.h"
#include "tests/fuzz/fuzz_board.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("prompt", MFD_CLOEXEC);
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size) ||
      lseek(fd, 0, SEEK_SET) != 0)
    std::abort();
  // A walk that succeeds leaves a layout the player can use.
  WavLayout layout;
  if (read_wav_header(fd, &layout) != -1 &&
      !(static_cast<int32_t>(layout.data_size) > 0 && layout.format.channels > 0 &&
        layout.format.bits_per_sample == 16))
    std::abort();
  return 0;
}
