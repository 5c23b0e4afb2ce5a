// The shell's terminal.
#ifndef TEV_SHELL_TERMINAL_H
#define TEV_SHELL_TERMINAL_H

/// Makes backspace (control-H) the erase character of the terminal on `fd`, at once. Nothing else of its settings
/// changes. Does nothing if `fd` is not a terminal.
void eraseWithBackspace(int fd);

#endif
