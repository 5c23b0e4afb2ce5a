// How tevctl ends.
#ifndef TEV_CTL_EXITSTATUS_H
#define TEV_CTL_EXITSTATUS_H

/// What became of a command, or of the first that was not done.
enum ExitStatus {
  exitDone = 0,
  exitRefused = 1,    ///< by a service, a tool, a driver or the system
  exitWrongWords = 2, ///< or options
  exitNoAnswer = 3,   ///< none in time, or none that could be used
  exitNotThere = 4,   ///< a node, a tool, a service, or what was asked for
  exitInternal = 70,  ///< tevctl itself could not go on: no memory, no queue, no pipe, no place for its output
};

#endif
