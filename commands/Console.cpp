#include "commands/Console.h"

#include <fcntl.h>
#include <ostream>
#include <unistd.h>

void print(std::ostream& out, std::string_view text) {
  out.clear();
  out << text << std::flush;
}

void printLine(std::ostream& out, std::string_view text) { print(out, std::string(text) + '\n'); }

void fillStandardDescriptors() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) (void)close(fd); // all standard descriptors are open
}

unsigned waitForConsole() {
  unsigned changed = 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags >= 0 && (flags & O_NONBLOCK) != 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0) changed |= 1U << fd;
  }
  return changed;
}

void stopWaitingForConsole(unsigned descriptors) {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if ((descriptors >> fd & 1U) == 0) continue;
    const int flags = fcntl(fd, F_GETFL);
    if (flags >= 0) (void)fcntl(fd, F_SETFL, flags | O_NONBLOCK); // a failure leaves the console as it is
  }
}
