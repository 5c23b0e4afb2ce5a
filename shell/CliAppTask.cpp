#include "shell/CliAppTask.h"

#include "log/tevlog.h"
#include "messaging/Protocol.h"

CliAppTask::CliAppTask() : CommObj(protocol::consoleTask, /*ownQueueOnly*/ true) {
  tev::log << "CliAppTask created" << tev::endl;
}

// Nothing with a destructor in this frame: it runs with asynchronous cancellation enabled.
void CliAppTask::run() {
  tev::log << "CliAppTask::run" << tev::endl;
  (void)krThreadSuspend(1000); // an interrupted pause only logs the table earlier
  ShowTable();
  CommObj::run();
}
