#include "platform/internal/Directory.h"
#include "platform/internal/Failure.h"
#include "platform/internal/Uncancelled.h"
#include "platform/internal/shellQuote.h"
#include "platform/krError.h"
#include "platform/krFile.h"
#include "platform/krPrint.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr struct {
  unsigned char system;
  uint16_t code;
} types[] = {{DT_UNKNOWN, KR_DIR_UNKNOWN}, {DT_BLK, KR_DIR_BLOCK},  {DT_CHR, KR_DIR_CHARACTER},
             {DT_DIR, KR_DIR_DIRECTORY},   {DT_FIFO, KR_DIR_FIFO},  {DT_LNK, KR_DIR_LINK},
             {DT_REG, KR_DIR_REGULAR},     {DT_SOCK, KR_DIR_SOCKET}};

int removeTree(const char* path) {
  if (path == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=](int cancelState) {
    try {
      // A leading hyphen would make the path an option.
      const std::string command = std::string("rm -rf ") + (path[0] == '-' ? "./" : "") + krShellQuote(path);
      const int status = kr::cancellable(cancelState, [&] { return system(command.c_str()); });
      // 127 comes from where the shell should have been, or from a shell without the command.
      const bool ran = status != -1 && !(WIFEXITED(status) && WEXITSTATUS(status) == 127);
      return ran ? 0 : -1;
    } catch (const std::bad_alloc&) {
      return kr::failWith(ENOMEM);
    }
  });
}

} // namespace

namespace kr {

int removeEntries(const char* path) {
  Directory directory(path);
  if (!directory) return -1;
  int left = 0, error = 0;
  while (const dirent* const entry = directory.next()) {
    const char* const name = entry->d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
    if (unlinkat(directory.descriptor(), name, 0) == 0) continue;
    if (errno == EISDIR && unlinkat(directory.descriptor(), name, AT_REMOVEDIR) == 0) continue;
    error = errno;
    ++left;
  }
  if (errno != 0)
    ++left; // those behind an entry that cannot be read
  else
    errno = error;
  return left;
}

} // namespace kr

int krDirOpen(const char* path, KrDir* dir) {
  if (path == nullptr || dir == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=] {
    dir->stream = opendir(path);
    return dir->stream != nullptr ? 0 : -1;
  });
}

int krDirRead(KrDir* dir, KrDirEntry* entry) {
  if (dir == nullptr || dir->stream == nullptr || entry == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=] {
    const dirent* const found = readdir(dir->stream);
    if (found == nullptr) return -1;
    (void)snprintf(entry->name, sizeof entry->name, "%s", found->d_name);
    for (const auto& type : types)
      if (type.system == found->d_type) entry->type = type.code;
    return 0;
  });
}

int krDirClose(KrDir* dir) {
  if (dir == nullptr || dir->stream == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=] {
    const int result = closedir(dir->stream);
    dir->stream = nullptr;
    return result;
  });
}

int krDirMake(const char* path) { return path != nullptr ? mkdir(path, 0755) : kr::failWith(KR_ERR_INVALID); }

int krDirRemove(const char* path) { return path != nullptr ? rmdir(path) : kr::failWith(KR_ERR_INVALID); }

int krDirRemoveRecursively(const char* path) { return removeTree(path); }

int krDirDelete(const char* path) { return removeTree(path); }

int krDirClean(const char* path) {
  if (path == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=] { return kr::removeEntries(path) == 0 ? 0 : -1; });
}

int krDirList(int fd, const char* path) {
  if (path == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelled([=](int cancelState) {
    kr::Directory directory(path);
    if (!directory) return -1;
    while (const dirent* const entry = directory.next())
      if (kr::cancellable(cancelState, [=] { return krFdPrintf(fd, "%s\n", entry->d_name); }) < 0) return -1;
    return errno == 0 ? 0 : -1;
  });
}

int krDirGet(char* buffer) {
  constexpr size_t size = 255;
  if (buffer == nullptr) return kr::failWith(KR_ERR_INVALID);
  return getcwd(buffer, size) != nullptr ? 0 : -1;
}

int krDirChange(const char* path) { return path != nullptr ? chdir(path) : kr::failWith(KR_ERR_INVALID); }
