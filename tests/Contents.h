#ifndef TEV_TESTS_CONTENTS_H
#define TEV_TESTS_CONTENTS_H

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

/// All that is in a file; empty for one that cannot be read.
inline std::string contents(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

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

#endif
