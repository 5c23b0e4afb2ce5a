#include "trial/Lines.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace trial {

namespace {

using namespace std::string_view_literals;

constexpr size_t longestLine = 127;

// All forms of lines, each as likely as any other. `!` in front marks a request that waits for its reply.
constexpr std::string_view lines =
    "%_|%_|%x%v|%w%v|%w%v|{3-127}" // nothing, and no commands
    // local commands
    "|help|help %j|help long%m|help %k%m|version%m|temperature|temperature|temperature %j|temperature %j! 3"
    "|temperature setpoint %n%m|temperature setpoint %t%m|temperature setpoint %t%m|fan|fan|fan %j|fan %j! 3"
    "|fan speed %n%m|fan speed %c%m|fan speed %c%m|vlan|vlan %j!%m|vlan on%m|vlan off%m|mac|mac|mac %a%m|mac %j"
    "|mac %l|serialnum|serialnum 1 %j|serialnum %i|serialnum %i|serialnum %j|serialnum %l|log|log %j|log %j all"
    "|log enable %j|log enable all%m|log disable all%m"
    // commands of the services
    "|!video-format %f|!video-format %f|!video-format %f|video-format|video-format %q%m|video-format %j!"
    "|!video-resolution %r|!video-resolution %r|!video-resolution %r|!video-resolution ntsc|!video-resolution pal-m"
    "|!video-resolution pal-bghid|!video-resolution|!video-resolution|!video-resolution|!video-resolution %q%m"
    "|video-resolution %j!|!audio-source digital|!audio-source analog|audio-source|audio-source status%m"
    "|audio-source %j!|!snap <1-16> <1-3>|snap|snap %n 9|snap 4294967297|snap <17-99>%m|!stream start"
    "|!stream start both|!stream stop|!stream stop both|!stream start %s|!stream stop %s|stream|stream|stream %q%m"
    "|stream %j!|stream start %j!|!reboot%m|!factory config|!factory firmware|factory|factory %j!";

// What `%` and a letter become. `<1-9>` becomes a number, and `{1-9}` a word of so many bytes.
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
  auto skipped = below(1 + static_cast<unsigned>(std::count(forms.begin(), forms.end(), '|')));
  for (; skipped > 0; --skipped)
    forms.remove_prefix(forms.find('|') + 1);
  return forms.substr(0, forms.find('|'));
}

std::string Lines::expand(std::string_view form) {
  std::string text;
  for (size_t i = 0; i < form.size(); ++i) {
    int first = 0, last = 0, length = 0;
    char kind = 0;
    if (form[i] == '%' && i + 1 < form.size()) {
      text += expand(oneOf(pieces.at(form[++i])));
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
  const bool asks = !form.empty() && form[0] == '!';
  return {expand(form.substr(asks ? 1 : 0)).substr(0, longestLine), asks};
}

} // namespace trial
