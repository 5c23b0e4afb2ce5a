// The programs as a whole, beside small system shells: their start, and the console's lines.
#include "bench/Bench.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int lineCount = 200'000;

// Runs a program with `input` as its standard input and no output, and waits for its end.
void run(benchmark::State& state, std::vector<const char*> words, const std::string& input) {
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int error = posix_spawn(&child, words[0], &actions, nullptr, const_cast<char* const*>(words.data()), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  if (error != 0) state.SkipWithError((std::string(words[0]) + ": " + std::strerror(error)).c_str());
  if (error == 0 && (waitpid(child, &status, 0) != child || status != 0)) state.SkipWithError("it ended badly");
}

// A file with so many times that line.
std::string fileOf(const std::string& name, const std::string& line) {
  const std::string path = "/tmp/tev-bench-" + name;
  std::ofstream out(path);
  for (int i = 0; i < lineCount; ++i)
    out << line << '\n';
  return path;
}

bench::Function runs(std::vector<const char*> words, std::function<std::string()> input) {
  return [words, input](benchmark::State& state) {
    const std::string path = input();
    for (auto _ : state)
      run(state, words, path);
  };
}

const bool registered = [] {
  const auto nothing = [] { return std::string("/dev/null"); };
  bench::compare("process, start to prompt to end of input", "dash -c :", {1.5, 1, bench::Clock::wall, 20},
                 runs({TEV_CLI_PATH}, nothing), runs({"/bin/dash", "-c", ":"}, nothing));
  bench::compare("tevctl version", "busybox ash -c :", {1.2, 1, bench::Clock::wall, 20},
                 runs({TEV_CTL_PATH, "version"}, nothing), runs({"/bin/busybox", "ash", "-c", ":"}, nothing));
  bench::compare("200,000 lines, each a line and a prompt", "dash, as many echo x", {2.0, 1, bench::Clock::wall, 1},
                 runs({TEV_CLI_PATH}, [] { return fileOf("lines", "x"); }),
                 runs({"/bin/dash"}, [] { return fileOf("echoes", "echo x"); }));
  return true;
}();

} // namespace
