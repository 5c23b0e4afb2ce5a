// Files for the tests to work on.
#ifndef TEV_TESTS_FILES_H
#define TEV_TESTS_FILES_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>

/// All that is in a file; empty for one that cannot be read.
inline std::string contents(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Whether all of `text` is in the file then.
inline bool write(const std::string& path, const std::string& text) {
  return !(std::ofstream(path) << text << std::flush).fail();
}

/// How many descriptors the process has open.
inline auto openFiles() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

/// A file that grows.
class Growing {
public:
  explicit Growing(std::string path) : _path(std::move(path)) {}
  /// What has come since the last call.
  std::string news() {
    const std::string all = contents(_path);
    return all.substr(std::min(std::exchange(_seen, all.size()), all.size()));
  }

private:
  std::string _path;
  size_t _seen = 0;
};

/// The current directory is an empty one, removed afterwards.
class Scratch : public testing::Test {
protected:
  void SetUp() override { std::filesystem::current_path(mkdtemp(directory_.data())); }
  void TearDown() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory_);
  }

private:
  std::string directory_ = "/tmp/tev-test-XXXXXX";
};

#endif
