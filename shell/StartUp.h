// From the start of the process to the first prompt, and its end.
//
// The order, and why:
//
//   constructor 101   opens closed standard descriptors on /dev/null, before anything else opens a file and gets their
//                     numbers; makes the standard descriptors wait; lets a write beyond the file-size limit fail
//   constructor 102   static objects cannot catch what they throw: without memory, one line and exit status 1. Comes
//                     after the standard descriptors are sure to be open
//   constructor 200   tev::log (log/log.cpp), to which prototypes of messages write when they register
//   static objects
//   startShell()      trace log, terminal, the shell's own task, commands
//
// main() calls startShell(), so this unit and its constructors are in every program that has that main.
#ifndef TEV_SHELL_STARTUP_H
#define TEV_SHELL_STARTUP_H

/// Everything before the first prompt. Files, queues and shells of others that are in the way are reported on standard
/// error, a line each. Ends the process with status 1, after a line, if there is no memory.
void startShell();

/// At the end of the input: removes a queue that no later shell could find. Other queues and the pipe stay.
void endShell();

#endif
