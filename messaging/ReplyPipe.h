// The named pipes on which tasks receive replies.
#ifndef TEV_MESSAGING_REPLYPIPE_H
#define TEV_MESSAGING_REPLYPIPE_H

/// Opens the named pipe `path` for reading and writing, without blocking. Neither follows a symbolic link nor opens
/// anything but a pipe: other users may have put something else there. Returns the descriptor, which programs that this
/// one starts do not inherit; or -1 with errno: ELOOP for a symbolic link, EINVAL for what is no pipe, or open()'s.
[[nodiscard]] int openPipe(const char* path);

/// The same for the pipe of the console's task with the id `taskId`: where replies to its synchronous requests go.
[[nodiscard]] int openReplyPipe(unsigned long taskId);

#endif
