// The nodes as plain files, for machines that refuse a FUSE mount.
//
// The board holds a write lease on each file, so the kernel blocks an open(2) until the board releases the lease.
// Before that, the board handles what was written to files released earlier, writes the node's present text to the file
// and puts a new leased file in its place for the next open. When the opener closes the released file, its contents are
// what was written to the node.
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

constexpr size_t longestText = 8192; // bytes read from a file; Board::write accepts 4096 at most

class FileNodes : public NodeServer {
public:
  explicit FileNodes(Board& board);

  int descriptor() const override { return _events.get(); }
  void serve() override;

private:
  struct Released {
    kr::Descriptor file;
    size_t node;
    std::string text; // its contents when it was released
  };

  void watch(const kr::Descriptor& source);
  void placeFile(size_t node);
  void releaseFile(size_t node, int wanted);
  void handleClosed();
  void applyChange(const Released& released);

  Board& _board;
  kr::Descriptor _events;  // readable if one of the next two is
  kr::Descriptor _opening; // SIGIO: an open of a leased file is blocked
  kr::Descriptor _closed;  // inotify: a released file was closed
  std::vector<kr::Descriptor> _leased;
  std::map<int, Released> _released; // by inotify watch
};

FileNodes::FileNodes(Board& board)
    : _board(board), _events(check(epoll_create1(EPOLL_CLOEXEC), "epoll")),
      _closed(check(inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "inotify")) {
  sigset_t io;
  (void)sigemptyset(&io); // neither this nor the next can fail
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

// Replaces a node's file by a new leased one.
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
  } // F_GETLEASE below shows which files
  std::vector<std::pair<size_t, int>> waiting;
  for (size_t i = 0; i < _leased.size(); ++i) {
    const int wanted = fcntl(_leased[i].get(), F_GETLEASE);
    if (wanted != F_WRLCK) waiting.emplace_back(i, wanted);
  }
  handleClosed(); // after the query: what a blocked process closed before is in the queue by now
  for (const auto& [node, wanted] : waiting)
    releaseFile(node, wanted);
}

void FileNodes::releaseFile(size_t index, int wanted) {
  const bool toWrite = wanted == F_UNLCK;
  const BoardNode& node = _board.nodes()[index];
  (void)_board.open(index, toWrite ? O_RDWR : O_RDONLY); // only for the log: permission bits cannot refuse root
  // A write replaces a whole text, so a writer gets an empty file. In a binary node it replaces bytes in place.
  Released released{std::move(_leased[index]), index, toWrite && !node.binary ? "" : node.text};
  const int fd = released.file.get();
  placeFile(index);
  const auto size = static_cast<ssize_t>(released.text.size());
  if (pwrite(fd, released.text.data(), released.text.size(), 0) != size) throw systemError(node.path);
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  const int watchNumber = check(inotify_add_watch(_closed.get(), path.c_str(), IN_CLOSE), node.path);
  _released.insert_or_assign(watchNumber, std::move(released));
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
      // The lease is granted only if no other process has the file open.
      if (fcntl(released->second.file.get(), F_SETLEASE, F_WRLCK) == 0) {
        (void)inotify_rm_watch(_closed.get(), event->wd); // if it fails, the watch ends with the file
        _released.erase(released);
      }
    }
  }
}

// Passes what has changed in a released file to the board.
void FileNodes::applyChange(const Released& released) {
  const BoardNode& node = _board.nodes()[released.node];
  std::string now(longestText, '\0');
  now.resize(static_cast<size_t>(check(pread(released.file.get(), now.data(), now.size(), 0), node.path)));
  if (node.binary) now.resize(released.text.size(), '\0'); // the size is fixed
  if (now == released.text) return;
  size_t first = 0;
  if (node.binary) {
    first = static_cast<size_t>(std::mismatch(now.begin(), now.end(), released.text.begin()).first - now.begin());
    now.erase(std::mismatch(now.rbegin(), now.rend(), released.text.rbegin()).first.base(), now.end());
  }
  (void)_board.write(released.node, first,
                     std::string_view(now).substr(first)); // the writer has closed the file and cannot get an error
}

} // namespace

std::unique_ptr<NodeServer> makeFileNodes(Board& board) { return std::make_unique<FileNodes>(board); }

} // namespace sim
