// The nodes as plain files, where the machine keeps us from a file system of our own.
//
// The board holds a write lease on each file: who opens one waits in the kernel until the board has let go of it. So
// the board first takes in what was written to others, brings the file up to date, puts a new leased file in its place
// for whoever comes next, and only then lets the opener have the old one. When that is closed, what it holds is what
// was written to the node.
#include "platform/Descriptor.h"
#include "sim/Layout.h"
#include "sim/NodeServer.h"
#include "sim/SystemError.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>

namespace sim {

namespace {

constexpr size_t longestText = 8192; // of what a file may hold; the board takes no more than 4096 at once

class FileNodes : public NodeServer {
public:
  explicit FileNodes(Board& board);

  int descriptor() const override { return _events.get(); }
  void serve() override;

private:
  struct Released {
    kr::Descriptor file;
    size_t node;
    std::string text; // what it held when it was released away
  };

  void watch(const kr::Descriptor& source);
  void placeFile(size_t node);
  void releaseFile(size_t node, int wanted);
  void handleClosed();
  void applyChange(const Released& released);

  Board& _board;
  kr::Descriptor _events;  // readable when one of the next two is
  kr::Descriptor _opening; // SIGIO: somebody waits for a leased file
  kr::Descriptor _closed;  // inotify: somebody closed a file that was released away
  std::vector<kr::Descriptor> _leased;
  std::map<int, Released> _released; // by watch
};

FileNodes::FileNodes(Board& board)
    : _board(board), _events(check(epoll_create1(EPOLL_CLOEXEC), "epoll")),
      _closed(check(inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "inotify")) {
  sigset_t io;
  (void)sigemptyset(&io); // cannot fail, like the next
  (void)sigaddset(&io, SIGIO);
  _opening = kr::Descriptor(check(signalfd(-1, &io, SFD_NONBLOCK | SFD_CLOEXEC), "signalfd"));
  watch(_opening);
  watch(_closed);
  mountMemory("/sys", 0755);
  _leased.resize(board.nodes().size());
  for (size_t i = 0; i < _leased.size(); ++i) {
    const std::string& path = board.nodes()[i].path;
    makeDirectories(path.substr(0, path.rfind('/')));
    placeFile(i);
  }
}

void FileNodes::watch(const kr::Descriptor& source) {
  epoll_event event = {};
  event.events = EPOLLIN;
  check(epoll_ctl(_events.get(), EPOLL_CTL_ADD, source.get(), &event), "epoll");
}

// Puts a new leased file in a node's place.
void FileNodes::placeFile(size_t index) {
  const BoardNode& node = _board.nodes()[index];
  constexpr char freshPath[] = "/sys/.fresh";
  kr::Descriptor file(check(open(freshPath, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600), node.path));
  check(fchmod(file.get(), node.mode), node.path);
  check(fcntl(file.get(), F_SETLEASE, F_WRLCK), node.path + " (lease)");
  check(std::rename(freshPath, node.path.c_str()), node.path);
  _leased[index] = std::move(file);
}

void FileNodes::serve() {
  signalfd_siginfo news = {};
  while (read(_opening.get(), &news, sizeof news) > 0) {
  } // the leases themselves tell which
  std::vector<std::pair<size_t, int>> waiting;
  for (size_t i = 0; i < _leased.size(); ++i) {
    const int wanted = fcntl(_leased[i].get(), F_GETLEASE);
    if (wanted != F_WRLCK) waiting.emplace_back(i, wanted);
  }
  handleClosed(); // after looking who waits: whatever they closed before that is told by now
  for (const auto& [node, wanted] : waiting)
    releaseFile(node, wanted);
}

void FileNodes::releaseFile(size_t index, int wanted) {
  const bool toWrite = wanted == F_UNLCK;
  const BoardNode& node = _board.nodes()[index];
  (void)_board.open(index, toWrite ? O_RDWR : O_RDONLY); // only for the log: plain files cannot refuse the superuser
  // A text is replaced as a whole, so a writer gets an empty file. The bytes of a chip are written where they belong.
  Released released{std::move(_leased[index]), index, toWrite && !node.binary ? "" : node.text};
  const int fd = released.file.get();
  placeFile(index);
  const auto size = static_cast<ssize_t>(released.text.size());
  if (pwrite(fd, released.text.data(), released.text.size(), 0) != size) throw systemError(node.path);
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  const int watch = check(inotify_add_watch(_closed.get(), path.c_str(), IN_CLOSE), node.path);
  _released.insert_or_assign(watch, std::move(released));
  check(fcntl(fd, F_SETLEASE, F_UNLCK), node.path);
}

void FileNodes::handleClosed() {
  alignas(inotify_event) char events[4096];
  ssize_t size = 0;
  while ((size = read(_closed.get(), events, sizeof events)) > 0) {
    for (const char* at = events; at < events + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      at += sizeof *event + event->len;
      const auto released = _released.find(event->wd);
      if (released == _released.end()) continue;
      if ((event->mask & IN_CLOSE_WRITE) != 0) applyChange(released->second);
      // A lease is to be had only if nobody else has the file open.
      if (fcntl(released->second.file.get(), F_SETLEASE, F_WRLCK) == 0) {
        (void)inotify_rm_watch(_closed.get(), event->wd); // goes with the file anyway
        _released.erase(released);
      }
    }
  }
}

// Tells the board what is different in a file that was released away.
void FileNodes::applyChange(const Released& released) {
  const BoardNode& node = _board.nodes()[released.node];
  std::string now(longestText, '\0');
  now.resize(static_cast<size_t>(check(pread(released.file.get(), now.data(), now.size(), 0), node.path)));
  if (node.binary) now.resize(released.text.size(), '\0'); // a chip does not change its size
  if (now == released.text) return;
  size_t first = 0;
  if (node.binary) {
    first = static_cast<size_t>(std::mismatch(now.begin(), now.end(), released.text.begin()).first - now.begin());
    now.erase(std::mismatch(now.rbegin(), now.rend(), released.text.rbegin()).first.base(), now.end());
  }
  (void)_board.write(released.node, first, std::string_view(now).substr(first)); // too late to tell the writer
}

} // namespace

std::unique_ptr<NodeServer> makeFileNodes(Board& board) { return std::make_unique<FileNodes>(board); }

} // namespace sim
