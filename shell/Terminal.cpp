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

} // namespace

void eraseWithBackspace(int fd) {
  struct termios settings;
  if (tcgetattr(fd, &settings) != 0) return; // not a terminal
  settings.c_cc[VERASE] = 8;
  // A terminal that refuses keeps the erase character it has; start-up continues.
  (void)tcsetattr(fd, TCSANOW, &settings);
}
