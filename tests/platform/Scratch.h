// Files for the tests to work on.
#ifndef TEV_TESTS_PLATFORM_SCRATCH_H
#define TEV_TESTS_PLATFORM_SCRATCH_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sstream>
#include <string>
#include <sys/mount.h>

/// The current directory is an empty one, removed afterwards.
class Scratch : public testing::Test {
protected:
  void SetUp() override {
    ASSERT_NE(mkdtemp(directory_.data()), nullptr);
    std::filesystem::current_path(directory_);
  }
  void TearDown() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory_);
  }

private:
  std::string directory_ = "/tmp/tev-test-XXXXXX";
};

inline void write(const std::string& path, const std::string& contents) { std::ofstream(path) << contents; }

inline std::string contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/// Mounts made from here on are seen by this thread alone.
inline bool ownMounts() {
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

#endif
