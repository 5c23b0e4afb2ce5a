#ifndef TEV_TESTS_CONTENTS_H
#define TEV_TESTS_CONTENTS_H

#include <fstream>
#include <iterator>
#include <string>

/// All that is in a file; empty for one that cannot be read.
inline std::string contents(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

#endif
