// Bytes as text of the C language, for the board's log and the command line.
#ifndef TEV_SIM_QUOTING_H
#define TEV_SIM_QUOTING_H

#include <optional>
#include <string>
#include <string_view>

namespace sim {

/// `bytes` in double quotes; what is not printable ASCII stands as \n, \r, \t, \0 or three octal digits, so that every
/// byte can be told from the text.
std::string quoted(std::string_view bytes);

/// The bytes that `text` (without quotes around it) stands for: \n \r \t \" \\, one to three octal digits, \x with one
/// or two hexadecimal digits. Nothing for an escape that is none of these or is above 255.
[[nodiscard]] std::optional<std::string> unescaped(std::string_view text);

} // namespace sim

#endif
