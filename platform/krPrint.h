// Formatted output. All calls are safe from any thread.
#ifndef TEV_PLATFORM_KRPRINT_H
#define TEV_PLATFORM_KRPRINT_H

/// printf.
int krPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Formats at most 1023 bytes (the rest is cut) and writes them in one write. Returns the number of bytes written.
int krFdPrintf(int fd, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
