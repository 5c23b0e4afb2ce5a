#include "shell/Terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

// A descriptor 0, 1 or 2 that is closed at the start would be given to the first file that the program opens, and
// console text would end up in that file, or worse, in the reply pipe. So the gaps are filled with /dev/null, before
// the static objects open anything.
__attribute__((constructor(101))) void fillStandardDescriptors() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) (void)close(fd); // it was only opened to see that there is no gap
}

// Whoever used the console before may have left it so that a read of no line yet, and a write to a full buffer, fail.
__attribute__((constructor(101))) void waitForTheConsole() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    const int flags = fcntl(fd, F_GETFL);
    // What cannot be changed stays as it is; start-up continues.
    if (flags >= 0 && (flags & O_NONBLOCK) != 0) (void)fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  }
}

} // namespace

void eraseWithBackspace(int fd) {
  struct termios settings;
  if (tcgetattr(fd, &settings) != 0) return; // not a terminal
  settings.c_cc[VERASE] = 8;
  // A terminal that refuses keeps the erase character it has; start-up continues.
  (void)tcsetattr(fd, TCSANOW, &settings);
}
