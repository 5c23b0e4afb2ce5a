// Files for the tests to work on.
#ifndef TEV_TESTS_SCRATCH_H
#define TEV_TESTS_SCRATCH_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

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

inline void write(const std::string& path, const std::string& contents) { std::ofstream(path) << contents; }

/// Mounts something that only this thread sees.
inline bool mountForUs(const char* what, const char* where, const char* type, unsigned long flags,
                       const char* options) {
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(what, where, type, flags, options) == 0;
}

#endif
