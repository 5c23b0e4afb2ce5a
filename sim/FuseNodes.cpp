// The nodes as a FUSE file system. The kernel passes on each open, read and write separately, so the board sees the
// exact bytes, and a node can refuse what its driver would refuse.
#include "platform/Descriptor.h"
#include "sim/NodeServer.h"
#include "sim/SystemError.h"

#define FUSE_USE_VERSION 35
#include <fuse_lowlevel.h>

#include <cstdlib>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace sim {

namespace {

constexpr double cacheTimeout = 1e9; // seconds: the tree does not change, so the kernel may cache it
constexpr size_t pageSize = 4096;    // the size that sysfs reports for a text

// A directory or node. The inode number is the index in the list of entries plus one.
struct Entry {
  std::string name;
  fuse_ino_t parent;
  int node; // index of the board's node, -1 for a directory
};

class FuseNodes : public NodeServer {
public:
  explicit FuseNodes(Board& board);
  FuseNodes(const FuseNodes&) = delete;
  FuseNodes& operator=(const FuseNodes&) = delete;
  ~FuseNodes() override;

  int descriptor() const override { return fuse_session_fd(_session); }
  void serve() override;

private:
  static FuseNodes& self(fuse_req_t request) { return *static_cast<FuseNodes*>(fuse_req_userdata(request)); }
  static fuse_lowlevel_ops operations();

  void addPath(const std::string& path, int node);
  fuse_ino_t find(fuse_ino_t parent, std::string_view name) const;
  struct stat attributes(fuse_ino_t inode) const;
  const Entry& entryOf(fuse_ino_t inode) const { return _entries[static_cast<size_t>(inode - 1)]; }
  size_t nodeOf(fuse_ino_t inode) const { return static_cast<size_t>(entryOf(inode).node); }
  void list(fuse_req_t request, fuse_ino_t directory, size_t size, off_t offset) const;

  Board& _board;
  std::vector<Entry> _entries = {{"/sys", FUSE_ROOT_ID, -1}};
  fuse_session* _session = nullptr;
  fuse_buf _buffer = {};
};

FuseNodes::FuseNodes(Board& board) : _board(board) {
  for (size_t i = 0; i < board.nodes().size(); ++i)
    addPath(board.nodes()[i].path, static_cast<int>(i));

  kr::Descriptor device(check(open("/dev/fuse", O_RDWR | O_NONBLOCK | O_CLOEXEC), "/dev/fuse"));
  const std::string number = std::to_string(device.get());
  const std::string data = "fd=" + number + ",rootmode=40000,user_id=0,group_id=0,allow_other";
  check(mount("tev-board", "/sys", "fuse", MS_NOSUID | MS_NODEV, data.c_str()), "/sys (fuse)");

  char name[] = "tev-sim";
  char* arguments[] = {name, nullptr};
  fuse_args args = {1, arguments, 0};
  const fuse_lowlevel_ops known = operations();
  _session = fuse_session_new(&args, &known, sizeof known, this);
  fuse_opt_free_args(&args);
  if (_session == nullptr) throw std::runtime_error("/sys (fuse): the library makes no session");
  // With a name of this form the library uses a device that is mounted already.
  if (fuse_session_mount(_session, ("/dev/fd/" + number).c_str()) != 0) {
    fuse_session_destroy(_session);
    throw std::runtime_error("/sys (fuse): the library does not take the device");
  }
  (void)device.release(); // the session closes it
}

FuseNodes::~FuseNodes() {
  fuse_session_unmount(_session);
  fuse_session_destroy(_session);
  std::free(_buffer.mem);
}

void FuseNodes::addPath(const std::string& path, int node) {
  fuse_ino_t parent = FUSE_ROOT_ID;
  for (size_t begin = sizeof "/sys/" - 1; begin <= path.size();) {
    const size_t end = std::min(path.find('/', begin), path.size());
    const std::string name = path.substr(begin, end - begin);
    fuse_ino_t entry = find(parent, name);
    if (entry == 0) {
      _entries.push_back({name, parent, end == path.size() ? node : -1});
      entry = _entries.size();
    }
    parent = entry;
    begin = end + 1;
  }
}

fuse_ino_t FuseNodes::find(fuse_ino_t parent, std::string_view name) const {
  for (size_t i = 1; i < _entries.size(); ++i) {
    if (_entries[i].parent == parent && _entries[i].name == name) return i + 1;
  }
  return 0;
}

struct stat FuseNodes::attributes(fuse_ino_t inode) const {
  struct stat out = {};
  out.st_ino = inode;
  out.st_nlink = 1;
  if (entryOf(inode).node < 0) {
    out.st_mode = S_IFDIR | 0755;
  } else {
    const BoardNode& node = _board.nodes()[nodeOf(inode)];
    out.st_mode = S_IFREG | node.mode;
    out.st_size = static_cast<off_t>(node.binary ? node.text.size() : pageSize);
  }
  return out;
}

void FuseNodes::list(fuse_req_t request, fuse_ino_t directory, size_t size, off_t offset) const {
  std::vector<fuse_ino_t> inodes = {directory, entryOf(directory).parent};
  for (size_t i = 1; i < _entries.size(); ++i) {
    if (_entries[i].parent == directory) inodes.push_back(i + 1);
  }
  std::vector<char> out(size);
  size_t used = 0;
  for (auto i = static_cast<size_t>(offset); i < inodes.size(); ++i) {
    const struct stat about = attributes(inodes[i]);
    const char* name = i == 0 ? "." : i == 1 ? ".." : entryOf(inodes[i]).name.c_str();
    const size_t needed =
        fuse_add_direntry(request, out.data() + used, size - used, name, &about, static_cast<off_t>(i + 1));
    if (needed > size - used) break;
    used += needed;
  }
  fuse_reply_buf(request, out.data(), used);
}

// A reply fails only if the calling process was killed, so the results are not checked.
fuse_lowlevel_ops FuseNodes::operations() {
  fuse_lowlevel_ops ops = {};
  ops.init = [](void*, fuse_conn_info* connection) {
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_SPLICE_READ); // no pipes: texts are short
  };
  ops.lookup = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
    fuse_entry_param found = {};
    found.ino = self(request).find(parent, name);
    found.attr_timeout = found.entry_timeout = cacheTimeout;
    if (found.ino != 0) found.attr = self(request).attributes(found.ino);
    fuse_reply_entry(request, &found); // inode 0: no such name
  };
  ops.getattr = [](fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    const struct stat about = self(request).attributes(inode);
    fuse_reply_attr(request, &about, cacheTimeout);
  };
  // Truncating an attribute file, as > in a shell does, has no effect.
  ops.setattr = [](fuse_req_t request, fuse_ino_t inode, struct stat*, int, fuse_file_info*) {
    const struct stat about = self(request).attributes(inode);
    fuse_reply_attr(request, &about, cacheTimeout);
  };
  ops.open = [](fuse_req_t request, fuse_ino_t inode, fuse_file_info* file) {
    const int error = self(request)._board.open(self(request).nodeOf(inode), file->flags);
    file->direct_io = 1; // no page cache: each read and write arrives unchanged
    error == 0 ? fuse_reply_open(request, file) : fuse_reply_err(request, error);
  };
  ops.read = [](fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info*) {
    FuseNodes& nodes = self(request);
    const std::string_view text = nodes._board.read(nodes.nodeOf(inode), static_cast<size_t>(offset), size);
    fuse_reply_buf(request, text.data(), text.size());
  };
  ops.write = [](fuse_req_t request, fuse_ino_t inode, const char* bytes, size_t size, off_t offset, fuse_file_info*) {
    FuseNodes& nodes = self(request);
    const ssize_t written = nodes._board.write(nodes.nodeOf(inode), static_cast<size_t>(offset), {bytes, size});
    written < 0 ? fuse_reply_err(request, static_cast<int>(-written))
                : fuse_reply_write(request, static_cast<size_t>(written));
  };
  ops.readdir = [](fuse_req_t request, fuse_ino_t directory, size_t size, off_t offset, fuse_file_info*) {
    self(request).list(request, directory, size, offset);
  };
  ops.create = [](fuse_req_t request, fuse_ino_t, const char*, mode_t, fuse_file_info*) {
    fuse_reply_err(request, EACCES);
  };
  return ops;
}

void FuseNodes::serve() {
  for (;;) {
    const int size = fuse_session_receive_buf(_session, &_buffer);
    if (size == -EINTR) continue;
    if (size <= 0) return; // -EAGAIN: no request is pending; otherwise the mount has ended
    fuse_session_process_buf(_session, &_buffer);
  }
}

} // namespace

std::unique_ptr<NodeServer> makeFuseNodes(Board& board) { return std::make_unique<FuseNodes>(board); }

} // namespace sim
