// tev-service: runs on the board as the service task that its only argument names.
#include "log/tevlog.h"
#include "sim/BoardService.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int run(const sim::ServiceTask& task) {
  tev::initlog((std::string("/var/log/") + task.name + ".log").c_str());
  tev::log << tev::enable;
  sim::BoardService service(task);
  if (service.Failure() != 0) {
    (void)std::fprintf(stderr, "%s: cannot have queue %d: %s\n", task.name, task.queueId,
                       std::strerror(service.Failure())); // NOLINT(concurrency-mt-unsafe): there is one thread
    return 1;
  }
  return service.Run() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  for (const sim::ServiceTask& task : sim::serviceTasks) {
    if (argc == 2 && std::strcmp(argv[1], task.name) == 0) return run(task);
  }
  (void)std::fprintf(stderr, "tev-service: wants the name of a service task\n");
  return 2;
}
