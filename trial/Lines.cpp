#include "trial/Lines.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <vector>

namespace trial {

namespace {

using namespace std::string_view_literals;

constexpr size_t longestLine = 127;

// All forms of lines, each as likely as any other. In front, `!` means a request that waits for its reply, and `?` a
// query. The next query shows what follows `=`.
constexpr std::string_view lines =
    "%_|%_|%x%v|%w%v|%w%v|{3-127}" // nothing, and no commands
    // local commands
    "|help|help %j|help long%m|help %k%m|version%m|?temperature|?temperature|?temperature %j|temperature %j! 3"
    "|temperature setpoint %n%m|temperature setpoint %T%m|temperature setpoint %T%m|?fan|?fan|?fan %j|fan %j! 3"
    "|fan speed %n%m|fan speed %C%m|fan speed %C%m|vlan|vlan %j!%m|vlan on%m|vlan off%m|?mac|?mac|mac %A%m|mac %j"
    "|mac %l|?serialnum|?serialnum 1 %j|serialnum %I|serialnum %I|serialnum %j|serialnum %l|log|log %j|log %j all"
    "|log enable %j|log enable all%m|log disable all%m"
    // commands of the services
    "|!video-format %F|!video-format %F|!video-format %F|?video-format|?video-format %q%m|video-format %j!"
    "|!video-resolution %R|!video-resolution %R|!video-resolution ntsc=720x488i@60"
    "|!video-resolution pal-m=720x488i@60|!video-resolution pal-bghid=720x576i@50|!?video-resolution"
    "|!?video-resolution|!?video-resolution|!?video-resolution %q%m|video-resolution %j!|!audio-source digital"
    "|!audio-source analog|audio-source|audio-source status%m|audio-source %j!|!snap <1-16> <1-3>|snap|snap %n 9"
    "|snap 4294967297|snap <17-99>%m|!stream start=on|!stream start both=on|!stream stop=off|!stream stop both=off"
    "|!stream start %s|!stream stop %s|?stream|?stream|?stream %q%m|stream %j!|stream start %j!|!reboot%m"
    "|!factory config|!factory firmware|factory|factory %j!";

// What `%` and a letter stand for; a capital one also for what the next query shows. `<1-9>` is a number, and `{1-9}` a
// word of so many bytes.
const std::map<char, std::string_view> pieces = {
    {'_', "| |\t|   \t  |\0help|%b%b%b%b%b%b%b%b"sv},
    {'b', "                "},
    {'x', "HELP|help\r|hel|helpp|exit\r|tev-cli>|./version|fan;|stream\v"},
    {'k', "help|audio-source|mac|serialnum|temperature|fan|vlan|video-resolution|factory|log|snap|exit|stream|reboot"
          "|version|video-format"},
    {'w', "{3-12}"},
    {'v', "| {1-30}| {1-30} {1-30}"},
    {'l', "{70-119}"}, // the tools are given 78 and 83 bytes at most
    {'j', "?x|STATUS|on|$(reboot)|it's|\"|-n|a%|*|&&|0x1f|status!|{1-20}|{1-20}|{1-20}|{1-20}|{1-20}|{1-20}|{1-20}"},
    {'m', "||||||| %j"},
    {'n', "99999999999|-99999999999|0|-1|warm|7x|4294967297|<-10-109>|<-10-109>"},
    {'c', "<1-62>"},
    {'t', "<21-99>"},
    {'d', "<0-9>|A|B|C|D|E|F"},
    {'a', "%d%d:%d%d:%d%d:%d%d:%d%d:%d%d"},
    {'i', "<0-2147483647>|480213UNIT<0-999999>"},
    {'q', "?|status"},
    {'s', "audio|video"},
    {'f', "svideo|composite|component|vga|svga|xga|wxga|dvi|hdmi"},
    {'r', "1280x720p@30|1920x1080p@30|1920x1080i@30|720x480p@30|720x480i@30|720x576p@50|720x576i@50|720x576p@25"
          "|720x576i@25|720x576i@30|640x480p@30|800x600p@30|1024x768p@30|1280x768p@30"}};

std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> parts;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('|', at), text.size());
    parts.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

} // namespace

std::string Lines::word(size_t length) {
  std::string text;
  while (text.size() < length) {
    const auto byte = static_cast<char>(1 + below(255));
    if (byte != ' ' && byte != '\t' && byte != '\n') text += byte;
  }
  return text;
}

std::string_view Lines::oneOf(std::string_view forms) {
  const auto all = split(forms);
  return all[below(static_cast<unsigned>(all.size()))];
}

std::string Lines::expand(std::string_view form, std::string& sets) {
  std::string text;
  for (size_t i = 0; i < form.size(); ++i) {
    int first = 0, last = 0, length = 0;
    char kind = 0;
    if (form[i] == '%' && i + 1 < form.size()) {
      const char letter = form[++i];
      const std::string piece = expand(oneOf(pieces.at(static_cast<char>(tolower(letter)))), sets);
      if (isupper(letter) != 0) sets = piece;
      text += piece;
    } else if ((form[i] == '<' || form[i] == '{') &&
               sscanf(form.data() + i, "%c%d-%d%*c%n", &kind, &first, &last, &length) == 3) {
      const int number = first + static_cast<int>(below(static_cast<unsigned>(last - first) + 1));
      text += kind == '<' ? std::to_string(number) : word(static_cast<size_t>(number));
      i += static_cast<size_t>(length) - 1;
    } else {
      text += form[i];
    }
  }
  return text;
}

Line Lines::next(bool asking) {
  std::string_view form;
  do {
    form = oneOf(lines);
  } while (asking && form[0] != '!');
  Line line;
  for (; !form.empty() && (form[0] == '!' || form[0] == '?'); form.remove_prefix(1))
    (form[0] == '!' ? line.asks : line.queries) = true;
  const size_t equals = std::min(form.find('='), form.size());
  line.text = expand(form.substr(0, equals), line.sets).substr(0, longestLine);
  if (equals < form.size()) line.sets = form.substr(equals + 1);
  static const auto keys = split(pieces.at('k'));
  const std::string first = line.text.substr(0, line.text.find(' ')).c_str(); // a zero byte ends what counts
  const bool known = std::find(keys.begin(), keys.end(), first) != keys.end();
  line.kind = known ? first : first.find_first_not_of('\t') == first.npos ? "(blank)" : "(unknown)";
  return line;
}

} // namespace trial
