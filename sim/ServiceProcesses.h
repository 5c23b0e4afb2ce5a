// The processes of the service tasks, as the board sees them.
#ifndef TEV_SIM_SERVICEPROCESSES_H
#define TEV_SIM_SERVICEPROCESSES_H

#include "sim/Appliance.h"
#include "sim/Launch.h"
#include "sim/ServiceFault.h"

#include <map>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace sim {

class ServiceProcesses {
public:
  /// Makes the queues, starts `program` once for each task and returns when all are ready. Throws std::runtime_error.
  ServiceProcesses(Program program, const std::map<std::string, ServiceFault>& faults, BoardLog& log);

  /// To be queued of each child that has ended. Starts a task again that had no order to end.
  void childEnded(pid_t child, int status);

  /// Lets each task serve what it has been sent, and end.
  void end();
  bool allEnded() const;
  /// Ends those that have not ended by themselves.
  void kill() const;

private:
  struct Process {
    const ServiceTask* task;
    pid_t pid = -1; // none while it does not run
    int crashes = 0;
  };

  void start(Process& process, int ready);
  void startFirst(Process& process);

  Program _program;
  BoardLog& _log;
  std::vector<Process> _processes;
  bool _ending = false;
};

} // namespace sim

#endif
