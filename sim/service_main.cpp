// tev-service: runs on the board as the service task that its only argument names.
#include "sim/Appliance.h"
#include "sim/Service.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace sim {

namespace {

int serve(Service& service, const ServiceTask& task) {
  if (service.GetMsgQId() != task.queueId) {
    (void)std::fprintf(stderr, "%s: has queue %d instead of %d\n", task.name, service.GetMsgQId(), task.queueId);
    return 1;
  }
  // One byte on standard output reports to the board that the task is ready. Nothing else is written there.
  if (write(STDOUT_FILENO, "\n", 1) != 1) return 1;
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) return 1;
  service.run(); // on the main thread, which has no other work
  return 0;
}

int run(const ServiceTask& task) {
  tev::initlog((std::string("/var/log/") + task.name + ".log").c_str());
  tev::log << tev::enable;
  CommObj::SetKey(task.queueKey - 1);
  const int status = serve(*new Service(task.name), task); // NOLINT: StopAll() deletes it
  CommObj::StopAll();
  return status;
}

} // namespace

} // namespace sim

int main(int argc, char** argv) {
  for (const sim::ServiceTask& task : sim::serviceTasks) {
    if (argc == 2 && std::strcmp(argv[1], task.name) == 0) return sim::run(task);
  }
  (void)std::fprintf(stderr, "tev-service: wants the name of a service task\n");
  return 2;
}
