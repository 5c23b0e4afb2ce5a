// The processes of the service tasks.
#ifndef TEV_SIM_SERVICEPROCESSES_H
#define TEV_SIM_SERVICEPROCESSES_H

#include "sim/Appliance.h"
#include "sim/Launch.h"
#include "sim/ServiceFault.h"

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sim {

class ServiceProcesses {
public:
  /// Starts the program of each task, or the one of "", and returns when all have their queues. Throws
  /// std::runtime_error.
  ServiceProcesses(std::map<std::string, Program> programs, const std::map<std::string, ServiceFault>& faults,
                   BoardLog& log);

  /// To be called for each child process that has ended. Restarts a task, unless end() was called or the task has ended
  /// unexpectedly too often.
  void childEnded(pid_t child, int status);

  /// Asks each task to end, which first serves the messages in its queue. Kills a task whose queue is full.
  void end();
  bool allEnded() const;
  /// Kills those that still run.
  void kill() const;

private:
  struct Process {
    const ServiceTask* task;
    pid_t pid = -1; // -1 while it does not run
    int crashes = 0;
  };

  void start(Process& process);
  void startFirst(Process& process);

  std::map<std::string, Program> _programs;
  BoardLog& _log;
  std::vector<Process> _processes;
  bool _ending = false;
};

} // namespace sim

#endif
