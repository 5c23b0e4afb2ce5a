#include "platform/krFile.h"

#include "platform/internal/Directory.h"
#include "platform/internal/Failure.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krError.h"

#include <algorithm>
#include <sys/statfs.h>
#include <unistd.h>

namespace {

constexpr char userDirectory[] = "/opt/tev/user/";
constexpr char programToken[] = "/opt/tev/PROG.TKN";

/// Zeros, when it returns false.
bool examine(const char* path, struct statfs* figures) {
  *figures = {};
  if (path == nullptr) {
    errno = KR_ERR_INVALID;
    return false;
  }
  return statfs(path, figures) == 0;
}

uint64_t blockSize(const struct statfs& figures) { return static_cast<uint64_t>(figures.f_bsize); }

uint32_t atMost32Bits(uint64_t figure) { return static_cast<uint32_t>(std::min<uint64_t>(figure, UINT32_MAX)); }

} // namespace

int krFileSystemStat(const char* path, KrFsStat* figures) {
  if (figures == nullptr) return kr::failWith(KR_ERR_INVALID);
  struct statfs found {};
  if (!examine(path, &found)) return -1;
  *figures = {0, atMost32Bits(blockSize(found)), atMost32Bits(found.f_blocks), atMost32Bits(found.f_bfree)};
  return 0;
}

uint64_t krDiskPathSize(const char* path) {
  struct statfs found {};
  return examine(path, &found) ? blockSize(found) * found.f_blocks : 0;
}

uint64_t krDiskPathFree(const char* path) {
  struct statfs found {};
  return examine(path, &found) ? blockSize(found) * found.f_bfree : 0;
}

uint64_t krDiskSize() { return krDiskPathSize(userDirectory) + krDiskPathSize("/"); }

uint64_t krDiskFree() { return krDiskPathFree(userDirectory); }

void krDiskClean() {
  kr::uncancelled([] {
    if (kr::removeEntries(userDirectory) < 0) return;
    // There may be no token.
    (void)unlink(programToken);
  });
}
