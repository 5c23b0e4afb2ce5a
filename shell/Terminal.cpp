#include "shell/Terminal.h"

#include <termios.h>

void eraseWithBackspace(int fd) {
  struct termios settings;
  if (tcgetattr(fd, &settings) != 0) return; // not a terminal
  settings.c_cc[VERASE] = 8;
  // A terminal that refuses keeps the erase character it has; start-up continues.
  (void)tcsetattr(fd, TCSANOW, &settings);
}
