#include "sim/BoardProcess.h"

#include "sim/BoardSocket.h"
#include "sim/Launch.h"
#include "sim/Layout.h"
#include "sim/NodeServer.h"
#include "sim/ServiceProcesses.h"
#include "sim/SystemError.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/sendfile.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace sim {

namespace {

constexpr char logOnBoard[] = "/var/log/board.log";
constexpr std::chrono::seconds endTimeout(3);

// Mounts the board's directories, empty and private.
void mountDirectories(const Options& options) {
  if (!options.inPlace) {
    check(unshare(CLONE_NEWNS), "mount namespace");
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount namespace");
  }
  // Only a directory opened in this mount namespace can be bound. Open it before a mount of the board hides it.
  kr::Descriptor snapshots;
  if (const std::string& directory = options.snapshots; !directory.empty()) {
    snapshots = kr::Descriptor(check(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), directory));
  }
  // A container may forbid this. Then the old /proc stays, which shows other process ids than the command has.
  if (!options.inPlace) (void)mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
  mountPrivateDirectory("/opt/tev", 0755);
  makeDirectories("/opt/tev/user");
  mountPrivateDirectory("/mnt/tev", 0755);
  makeDirectories("/mnt/tev/sys/bin");
  mountPrivateDirectory("/var/log", 0755);
  if (options.tmp != Tmp::shared)
    coverTmp(std::filesystem::read_symlink("/proc/self/exe"), options.tmp == Tmp::readOnly);
  makeDirectories(snapshotPath);
  if (!snapshots) return;
  const std::string source = "/proc/self/fd/" + std::to_string(snapshots.get());
  check(mount(source.c_str(), snapshotPath, nullptr, MS_BIND | MS_REC, nullptr), "--snapshots");
}

void installTools(const kr::Descriptor& program, const std::set<std::string>& missing) {
  struct stat about = {};
  check(fstat(program.get(), &about), "tev-board-tool");
  const std::string first = "/mnt/tev/sys/board-tool";
  const kr::Descriptor copy(check(open(first.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0755), first));
  for (off_t left = about.st_size; left > 0;) {
    left -= check(sendfile(copy.get(), program.get(), nullptr, static_cast<size_t>(left)), first);
  }
  for (const char* name : toolNames) {
    const std::string path = std::string(toolDirectory) + name;
    if (missing.count(path) == 0) check(link(first.c_str(), path.c_str()), path);
  }
}

std::unique_ptr<NodeServer> makeNodes(const Options& options, Board& board, BoardLog& log) {
  std::string reason = "--nodes";
  if (options.nodes != NodeKind::files) {
    try {
      return makeFuseNodes(board);
    } catch (const std::runtime_error& error) {
      if (options.nodes == NodeKind::fuse) throw;
      reason = error.what();
    }
  }
  const Faults& faults = options.board.faults;
  if (!faults.readOnly.empty() || !faults.failWrite.empty()) {
    throw std::runtime_error("plain files (" + reason + ") cannot refuse to be written");
  }
  log.add("note: nodes are plain files (" + reason + "): writes are seen at close, several as one");
  return makeFileNodes(board);
}

// Returns the console's name for a task with a console's reply pipe, otherwise the id as text.
std::string sourceName(unsigned taskId) {
  char pipe[32];
  (void)std::snprintf(pipe, sizeof pipe, protocol::replyPipeFormat, protocol::consoleTask,
                      static_cast<int>(taskId)); // 28 at most
  struct stat about = {};
  const bool console = stat(pipe, &about) == 0 && S_ISFIFO(about.st_mode);
  return console ? protocol::consoleTask : std::to_string(taskId);
}

unsigned numberIn(const std::string& text) {
  return static_cast<unsigned>(
      std::strtoul(text.c_str(), nullptr, 10)); // the sender is a service task, which sends decimal numbers
}

// The question of a service task: {"message", task, message id, class, source, flags, field=value ...}. The answer:
// {"on" or "off" for the task's log, fault, values of the reply ...}.
SocketMessage receive(Board& board, const SocketMessage& question) {
  const auto id = static_cast<uint16_t>(numberIn(question[2]));
  ServiceMessage message{question[1], id, question[3], sourceName(numberIn(question[4])), question[5], {}};
  for (size_t i = 6; i < question.size(); ++i) {
    const size_t equals = question[i].find('=');
    if (equals == std::string::npos) return {"unknown question"};
    message.payload.push_back({question[i].substr(0, equals), numberIn(question[i].substr(equals + 1))});
  }
  const ServiceReply reply = board.receive(message);
  SocketMessage answer = {reply.logging ? "on" : "off", reply.fault.text()};
  for (const PayloadWord& field : reply.payload)
    answer.push_back(std::to_string(field.value));
  return answer;
}

SocketMessage answer(Board& board, const SocketMessage& question) {
  if (question[0] == "tool" && question.size() >= 2) {
    return {board.runTool(question[1], {question.begin() + 2, question.end()})};
  }
  if (question[0] == "message" && question.size() >= 6) return receive(board, question);
  if (question[0] == "status") return {"status", board.status()};
  return {"unknown question"};
}

// Removes the pipes in /tmp that processes of the board have open: /tmp may be the machine's.
void removePipes() {
  std::error_code error; // a process that has just ended has no descriptors
  for (const auto& process : std::filesystem::directory_iterator("/proc", error)) {
    for (const auto& file : std::filesystem::directory_iterator(process.path() / "fd", error)) {
      const std::string path = std::filesystem::read_symlink(file, error);
      struct stat about = {};
      if (path.rfind("/tmp/", 0) == 0 && stat(path.c_str(), &about) == 0 && S_ISFIFO(about.st_mode))
        (void)unlink(path.c_str()); // fails only if it has just been removed
    }
  }
}

// Serves the board while the command runs.
class BoardLoop {
public:
  BoardLoop(Board& board, NodeServer& nodes, ServiceProcesses& services, const kr::Descriptor& channel);
  /// Returns the exit status of the process `command` after it and all service tasks have ended.
  int run(pid_t command);

private:
  bool reap();             // returns whether the command has ended
  void serve(int longest); // waits up to `longest` milliseconds for events and handles them
  void passSignals();
  void advance();

  Board& _board;
  NodeServer& _nodes;
  ServiceProcesses& _services;
  BoardSocket _socket;
  const kr::Descriptor& _channel;
  kr::Descriptor _children;
  pid_t _command = -1;
  int _status = 0;
  std::chrono::steady_clock::time_point _last = std::chrono::steady_clock::now();
};

BoardLoop::BoardLoop(Board& board, NodeServer& nodes, ServiceProcesses& services, const kr::Descriptor& channel)
    : _board(board), _nodes(nodes), _services(services),
      _socket([&board](const SocketMessage& question) { return answer(board, question); }), _channel(channel) {
  sigset_t child;
  (void)sigemptyset(&child); // neither this nor the next can fail
  (void)sigaddset(&child, SIGCHLD);
  _children = kr::Descriptor(check(signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
}

int BoardLoop::run(pid_t command) {
  _command = command;
  while (!reap())
    serve(500);
  _nodes.serve();  // the command's last accesses
  _services.end(); // after its last messages
  const auto deadline = std::chrono::steady_clock::now() + endTimeout;
  for (reap(); !_services.allEnded(); reap()) {
    if (std::chrono::steady_clock::now() > deadline) _services.kill();
    serve(100);
  }
  return _status;
}

void BoardLoop::serve(int longest) {
  std::vector<pollfd> waits = {
      {_nodes.descriptor(), POLLIN, 0}, {_children.get(), POLLIN, 0}, {_channel.get(), POLLIN, 0}};
  _socket.addTo(waits);
  if (poll(waits.data(), waits.size(), longest) < 0 && errno != EINTR) throw systemError("poll");
  signalfd_siginfo news = {};
  while (read(_children.get(), &news, sizeof news) > 0) {
  } // only wakes the loop: reap() asks the kernel
  advance();
  if (waits[0].revents != 0) _nodes.serve();
  if (waits[2].revents != 0) passSignals();
  _socket.serve(waits);
}

bool BoardLoop::reap() {
  int status = 0;
  pid_t child = 0;
  while ((child = waitpid(-1, &status, WNOHANG | WUNTRACED)) > 0) {
    if (child != _command) {
      if (!WIFSTOPPED(status)) _services.childEnded(child, status);
    } else if (WIFSTOPPED(status)) {
      const int number = WSTOPSIG(status);
      (void)send(_channel.get(), &number, sizeof number,
                 MSG_NOSIGNAL); // fails only if tev-sim has ended, see passSignals()
    } else {
      _status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      _command = -1;
    }
  }
  return _command < 0;
}

void BoardLoop::passSignals() {
  int number = 0;
  if (recv(_channel.get(), &number, sizeof number, 0) == sizeof number) {
    if (_command > 0) (void)kill(_command, number); // fails only if it has just ended
  } else {                                          // tev-sim was killed
    removePipes();
    _exit(128 + SIGKILL); // ends the namespaces and all processes in them
  }
}

void BoardLoop::advance() {
  const auto now = std::chrono::steady_clock::now();
  _board.advance(std::chrono::duration<double>(now - _last).count());
  _last = now;
}

void writeDump(const Board& board, const kr::Descriptor& file) {
  const std::string text = board.dump();
  if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) throw systemError("--dump");
}

} // namespace

int runBoard(const Options& options, BoardInputs inputs) {
  // The namespaces end with this process. It must end with tev-sim, also if that is killed. Later the closed channel
  // ends it.
  check(prctl(PR_SET_PDEATHSIG, SIGKILL), "prctl");
  const std::string directory = programDirectory();
  const kr::Descriptor tool(
      check(open((directory + "/tev-board-tool").c_str(), O_RDONLY | O_CLOEXEC), "tev-board-tool"));
  std::vector<std::string> words = options.command;
  if (words.empty()) words = {directory + "/../shell/tev-cli"};
  const Program program = options.probe ? Program() : findProgram(words[0]);
  std::map<std::string, Program> programs;
  programs[""] = findProgram(directory + "/tev-service");
  for (const auto& [task, name] : options.services)
    programs[task] = findProgram(name);
  const std::string workingDirectory = currentDirectory();

  mountDirectories(options);
  BoardLog log(options.logTimes);
  if (inputs.log) log.addFile(std::move(inputs.log));
  log.addFile(kr::Descriptor(check(open(logOnBoard, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), logOnBoard)));
  installTools(tool, options.board.faults.missing);
  Board board(options.board, log);
  // Before the nodes: the constructor waits for the tasks, nodes are not served meanwhile, and an emulator reads
  // /sys when it starts.
  ServiceProcesses services(std::move(programs), options.board.faults.services, log);
  const std::unique_ptr<NodeServer> nodes = makeNodes(options, board, log);
  BoardLoop session(board, *nodes, services, inputs.channel);
  if (options.probe) return 0;

  const pid_t command = check(fork(), "fork");
  if (command == 0) {
    enterDirectory(workingDirectory);
    for (int fd = 0; fd < 3; ++fd) {
      if (inputs.closed[fd]) (void)close(fd); // see reserveStandardStreams()
    }
    (void)pthread_sigmask(SIG_SETMASK, &inputs.signalMask, nullptr); // fails only for an unknown first argument
    startProgram(program, words);
  }
  detachStandardStreams();
  check(prctl(PR_SET_PDEATHSIG, 0), "prctl");
  const int status = session.run(command);
  if (inputs.dump) writeDump(board, inputs.dump);
  return status;
}

} // namespace sim
