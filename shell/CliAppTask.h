#ifndef TEV_SHELL_CLIAPPTASK_H
#define TEV_SHELL_CLIAPPTASK_H

#include "messaging/CommObj.h"

/// The shell as a task of the appliance, "tCliAppTask". Replies to the commands' requests arrive on its pipe; what
/// arrives on its queue is logged and dropped, because the shell registers no prototypes.
class CliAppTask : public CommObj {
public:
  CliAppTask();
  ~CliAppTask() override = default;

  /// The task's thread: logs the task table after a second, then receives.
  void run() override;
};

#endif
