#include "platform/internal/shellQuote.h"

#include <cstring>

std::string krShellQuote(const char* word) {
  static const char* const plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789@%+=:,./_-";
  const size_t length = std::strlen(word);
  if (length > 0 && std::strspn(word, plain) == length) return word;
  std::string quoted = "'";
  for (const char* c = word; *c != '\0'; ++c) {
    if (*c == '\'') {
      quoted += "'\\''"; // end the quotes, a quote that stands for itself, quotes again
    } else {
      quoted += *c;
    }
  }
  return quoted + "'";
}
