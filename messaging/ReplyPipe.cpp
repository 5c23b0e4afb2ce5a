#include "messaging/ReplyPipe.h"

#include "messaging/Protocol.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int openPipe(const char* path) {
  const int fd = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return -1;
  struct stat found {};
  if (fstat(fd, &found) == 0 && S_ISFIFO(found.st_mode)) return fd;
  (void)close(fd); // nothing was written
  errno = EINVAL;
  return -1;
}

int openReplyPipe(unsigned long taskId) {
  char path[32];
  (void)std::snprintf(path, sizeof path, protocol::replyPipeFormat, protocol::consoleTask,
                      static_cast<int>(taskId)); // 27 at most
  return openPipe(path);
}
