#include "commands/Node.h"

#include "commands/Console.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

Node::Node(const char* path, int flags) : _file(open(path, flags | O_CLOEXEC)) {}

std::string Node::read(size_t size) const {
  char buffer[readSizeMax + 1] = {};
  const ssize_t got = ::read(_file.get(), buffer, std::min(size, readSizeMax));
  return got > 0 ? buffer : "";
}

void Node::write(std::string_view text) const {
  const ssize_t written = ::write(_file.get(), text.data(), text.size());
  (void)written;
}

void printNodeNotFound(std::string_view path) {
  printLine(std::cerr, "error: couldn't find node [" + std::string(path) + "] on the system");
}

int decimalIn(const std::string& text) {
  int value = 0;
  return std::sscanf(text.c_str(), "%d", &value) == 1 ? value : 0;
}

unsigned int hexIn(const std::string& text) {
  unsigned int value = 0;
  return std::sscanf(text.c_str(), "%x", &value) == 1 ? value : 0;
}
