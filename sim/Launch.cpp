#include "sim/Launch.h"

#include "sim/SystemError.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

namespace sim {

namespace {

bool isHidden(const Program& program) {
  struct stat opened = {};
  struct stat visible = {};
  if (fstat(program.file.get(), &opened) != 0) return true;
  if (stat(program.path.c_str(), &visible) != 0) return true;
  return opened.st_dev != visible.st_dev || opened.st_ino != visible.st_ino;
}

} // namespace

Program findProgram(const std::string& name) {
  const bool search = name.find('/') == name.npos;
  std::vector<std::string> candidates;
  if (!search) {
    candidates.push_back(name);
  } else {
    const char* const variable = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): there is one thread
    const std::string directories = variable != nullptr ? variable : "/usr/bin:/bin";
    for (size_t at = 0; at <= directories.size();) {
      const size_t end = std::min(directories.find(':', at), directories.size());
      candidates.push_back((end == at ? "." : directories.substr(at, end - at)) + "/" + name);
      at = end + 1;
    }
  }
  Program program{name, {}, ENOENT};
  for (const std::string& path : candidates) {
    struct stat about = {};
    if (stat(path.c_str(), &about) != 0) {
      if (!search) program.error = errno; // a search skips directories that cannot be entered
    } else if (!S_ISREG(about.st_mode) || access(path.c_str(), X_OK) != 0) {
      program.error = EACCES;
    } else {
      kr::Descriptor file(open(path.c_str(), O_PATH | O_CLOEXEC));
      if (file) return {path, std::move(file), 0};
      program.error = errno;
    }
  }
  return program;
}

void startProgram(const Program& program, const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str())); // exec does not change them
  arguments.push_back(nullptr);
  int error = program.error;
  if (program.file) {
    const int fd = program.file.get();
    if (!isHidden(program)) {
      (void)execv(program.path.c_str(), arguments.data());
    } else {
      (void)execveat(fd, "", arguments.data(), environ, AT_EMPTY_PATH);
      // A script's interpreter opens the script through the descriptor.
      if (errno == ENOENT && fcntl(fd, F_SETFD, 0) == 0) {
        (void)execveat(fd, "", arguments.data(), environ, AT_EMPTY_PATH);
      }
    }
    error = errno;
  }
  const std::string why = std::generic_category().message(error);
  (void)std::fprintf(stderr, "tev-sim: cannot start %s: %s\n", words[0].c_str(), why.c_str());
  _exit(error == ENOENT ? 127 : 126);
}

std::string programDirectory() {
  char path[PATH_MAX];
  const ssize_t size = check(readlink("/proc/self/exe", path, sizeof path), "/proc/self/exe");
  const std::string text(path, static_cast<size_t>(size));
  return text.substr(0, text.rfind('/'));
}

std::string currentDirectory() {
  char path[PATH_MAX];
  return getcwd(path, sizeof path) != nullptr ? path : "";
}

void enterDirectory(const std::string& path) {
  (void)chdir(path.c_str()); // on failure the process keeps its working directory
}

void detachStandardStreams() {
  const kr::Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  // Without /dev/null they stay open. Only a command that closes its own would notice.
  if (!nothing) return;
  (void)dup2(nothing.get(), STDIN_FILENO);
  (void)dup2(nothing.get(), STDOUT_FILENO);
}

} // namespace sim
