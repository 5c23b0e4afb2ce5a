// Bytes as C string literals, for the board's log and the command line.
#ifndef TEV_SIM_QUOTING_H
#define TEV_SIM_QUOTING_H

#include <optional>
#include <string>
#include <string_view>

namespace sim {

/// Returns `bytes` in double quotes, with \n, \r, \t, \0 or three octal digits for what is not printable ASCII. Every
/// byte can be recovered from the result.
std::string quoted(std::string_view bytes);

/// Returns the bytes of `text`, which has no quotes around it. Escapes are \n \r \t \" \\, one to three octal digits,
/// and \x with one or two hexadecimal digits. Returns nothing for any other escape and for a value above 255.
[[nodiscard]] std::optional<std::string> unescaped(std::string_view text);

} // namespace sim

#endif
