#include "sim/ColourBars.h"

#include "platform/Descriptor.h"

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <jpeglib.h>
#include <vector>

namespace sim {

namespace {

constexpr std::array<std::array<JSAMPLE, 3>, 8> bars = {
    {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0}, {255, 0, 255}, {255, 0, 0}, {0, 0, 255}, {0, 0, 0}}};
constexpr int quality = 90;

struct Compression {
  jpeg_compress_struct jpeg = {};
  jpeg_error_mgr errors = {};
  jmp_buf failed = {};
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
};

void fail(j_common_ptr jpeg) { longjmp(static_cast<Compression*>(jpeg->client_data)->failed, 1); }

// No object here has a destructor, because the library reports a failure with longjmp.
bool compress(Compression& work, JSAMPLE* row, unsigned width, unsigned height) {
  work.jpeg.err = jpeg_std_error(&work.errors);
  work.errors.error_exit = fail;
  work.jpeg.client_data = &work;
  if (setjmp(work.failed) != 0) return false; // NOLINT: how the library reports a failure
  jpeg_create_compress(&work.jpeg);
  jpeg_mem_dest(&work.jpeg, &work.bytes, &work.size);
  work.jpeg.image_width = width;
  work.jpeg.image_height = height;
  work.jpeg.input_components = 3;
  work.jpeg.in_color_space = JCS_RGB;
  jpeg_set_defaults(&work.jpeg);
  jpeg_set_quality(&work.jpeg, quality, TRUE);
  jpeg_start_compress(&work.jpeg, TRUE);
  while (work.jpeg.next_scanline < height)
    (void)jpeg_write_scanlines(&work.jpeg, &row, 1); // next_scanline counts them
  jpeg_finish_compress(&work.jpeg);
  return true;
}

int store(const std::string& path, const unsigned char* bytes, size_t size) {
  const std::string fresh = path + ".new";
  const kr::Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!file) return errno;
  const ssize_t written = write(file.get(), bytes, size);
  int error = written < 0 ? errno : 0;
  if (written >= 0 && static_cast<size_t>(written) != size) error = ENOSPC;
  if (error == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) (void)unlink(fresh.c_str()); // `error` is the failure to report
  return error;
}

} // namespace

int storeColourBars(const std::string& path, unsigned width, unsigned height) {
  std::vector<JSAMPLE> row;
  for (unsigned x = 0; x < width; ++x) {
    const auto& colour = bars[size_t{x} * bars.size() / width];
    row.insert(row.end(), colour.begin(), colour.end());
  }
  Compression work;
  const int error = compress(work, row.data(), width, height) ? store(path, work.bytes, work.size) : ENOMEM;
  jpeg_destroy_compress(&work.jpeg);
  std::free(work.bytes); // NOLINT: the library allocated it with malloc
  return error;
}

} // namespace sim
