#include "sim/Layout.h"

#include "platform/Descriptor.h"
#include "sim/SystemError.h"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
#include <vector>

namespace sim {

namespace {

bool isDirectory(const std::string& path) {
  struct stat about = {};
  return stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// Binds the entry `name` of the covered directory into the memory file system now mounted on `directory`.
void bindEntry(int covered, const std::string& directory, const std::string& name) {
  struct stat about = {};
  check(fstatat(covered, name.c_str(), &about, AT_SYMLINK_NOFOLLOW), directory + "/" + name);
  const std::string target = directory + "/" + name;
  if (S_ISLNK(about.st_mode)) {
    std::string text(static_cast<size_t>(about.st_size) + 1, '\0');
    text.resize(static_cast<size_t>(check(readlinkat(covered, name.c_str(), text.data(), text.size()), target)));
    check(symlink(text.c_str(), target.c_str()), target);
    return;
  }
  if (S_ISDIR(about.st_mode)) {
    check(mkdir(target.c_str(), 0755), target);
  } else {
    const kr::Descriptor file(check(open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644), target));
  }
  const std::string source = "/proc/self/fd/" + std::to_string(covered) + "/" + name;
  check(mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr), target);
}

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename());
  }
  // A directory that may not be listed gets the board's entry only.
  if (error && error != std::errc::permission_denied) throw std::system_error(error, directory);
  return names;
}

void coverDirectory(const std::string& directory) {
  if (directory.empty()) throw std::runtime_error("the board's folders would need a new top folder of the machine");
  const kr::Descriptor covered(check(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), directory));
  const std::vector<std::string> names = namesIn(directory);
  struct stat about = {};
  check(fstat(covered.get(), &about), directory);
  mountMemory(directory, about.st_mode & 07777U);
  for (const std::string& name : names)
    bindEntry(covered.get(), directory, name);
}

} // namespace

void mountMemory(const std::string& path, unsigned mode) {
  char data[32];
  (void)std::snprintf(data, sizeof data, "mode=%04o", mode);
  check(mount("tev-board", path.c_str(), "tmpfs", MS_NODEV, data), path + " (tmpfs)");
}

void coverTmp(const std::string& program, bool readOnly) {
  const std::string tmp = "/tmp";
  const size_t end = program.rfind(tmp + "/", 0) == 0 ? program.find('/', tmp.size() + 1) : program.npos;
  const kr::Descriptor covered(check(open(tmp.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), tmp));
  mountMemory(tmp, 01777);
  if (end != program.npos) bindEntry(covered.get(), tmp, program.substr(tmp.size() + 1, end - tmp.size() - 1));
  if (!readOnly) return;
  check(mount(nullptr, tmp.c_str(), nullptr, MS_REMOUNT | MS_NODEV | MS_RDONLY, nullptr), tmp + " (read-only)");
}

void makeDirectories(const std::string& path) {
  for (size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1)) {
    const std::string directory = path.substr(0, end);
    if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) throw systemError(directory);
  }
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) throw systemError(path);
}

void mountPrivateDirectory(const std::string& path, unsigned mode) {
  if (!isDirectory(path)) {
    std::string existing = parentOf(path);
    while (!existing.empty() && !isDirectory(existing))
      existing = parentOf(existing);
    coverDirectory(existing);
    makeDirectories(path);
  }
  mountMemory(path, mode);
}

} // namespace sim
