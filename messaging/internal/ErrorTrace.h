// Lines that the message layer writes to the standard error stream.
#ifndef TEV_MESSAGING_ERRORTRACE_H
#define TEV_MESSAGING_ERRORTRACE_H

/// Writes a line of at most 199 characters, and its line end, in one piece. Needs no memory.
[[gnu::format(printf, 1, 2)]] void traceError(const char* format, ...);

#endif
