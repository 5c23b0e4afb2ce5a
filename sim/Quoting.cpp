#include "sim/Quoting.h"

namespace sim {

namespace {

constexpr char escapedCharacters[] = "\n\r\t\"\\";
constexpr char escapeLetters[] = "nrt\"\\";
constexpr std::string_view octalDigits = "01234567";
constexpr std::string_view hexDigits = "0123456789abcdef0123456789ABCDEF";

// Parses up to `most` digits at the start of `text` and removes them. Returns their value, or -1 if there are none.
int parseDigits(std::string_view& text, std::string_view digits, int base, size_t most) {
  int value = -1;
  for (; most > 0 && !text.empty(); --most, text.remove_prefix(1)) {
    const size_t digit = digits.find(text.front());
    if (digit == digits.npos) break;
    value = (value < 0 ? 0 : value * base) + static_cast<int>(digit) % base;
  }
  return value;
}

} // namespace

std::string quoted(std::string_view bytes) {
  std::string out = "\"";
  for (size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    const auto code = static_cast<unsigned char>(c);
    const size_t known = std::string_view(escapedCharacters).find(c);
    if (known != std::string_view::npos) {
      out += {'\\', escapeLetters[known]};
    } else if (c == '\0' && (i + 1 == bytes.size() || octalDigits.find(bytes[i + 1]) == octalDigits.npos)) {
      out += "\\0";
    } else if (code < ' ' || code > '~') {
      out += {'\\', octalDigits[code / 64U], octalDigits[code / 8U % 8U], octalDigits[code % 8U]};
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::optional<std::string> unescaped(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const char c = text.front();
    text.remove_prefix(1);
    if (c != '\\') {
      out += c;
      continue;
    }
    if (text.empty()) return std::nullopt;
    const size_t letter = std::string_view(escapeLetters).find(text.front());
    if (letter != std::string_view::npos) {
      out += escapedCharacters[letter];
      text.remove_prefix(1);
      continue;
    }
    int value = -1;
    if (text.front() == 'x') {
      text.remove_prefix(1);
      value = parseDigits(text, hexDigits, 16, 2);
    } else {
      value = parseDigits(text, octalDigits, 8, 3);
    }
    if (value < 0 || value > 255) return std::nullopt;
    out += static_cast<char>(value);
  }
  return out;
}

} // namespace sim
