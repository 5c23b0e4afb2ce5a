#include "trial/Lines.h"

#include <algorithm>
#include <string_view>

namespace trial {

namespace {

// Forms of lines: # becomes a number, and * a word of any bytes.
constexpr std::string_view
    requests = "video-format svideo|video-format hdmi|video-format vga|video-resolution 1280x720p@30"
               "|video-resolution 720x576i@50|video-resolution ntsc|video-resolution|video-resolution ?"
               "|video-resolution status *|audio-source digital|audio-source analog|snap 1 1|snap 16 3|stream start"
               "|stream start audio|stream start both|stream stop|stream stop video|stream stop both|reboot"
               "|factory config|factory firmware",
    others = "| \t  |*|* *|help|help long|help snap|help *|version|version *|temperature|temperature *"
             "|temperature setpoint #|temperature setpoint *|fan|fan speed #|fan speed *|vlan|vlan on|vlan off|vlan *"
             "|mac|mac 00:11:22:33:44:55|mac *|serialnum|serialnum #|serialnum *|log|log enable all|log disable all"
             "|log * all|video-format|video-format status|video-format *!|video-resolution *!|audio-source"
             "|audio-source *!|snap|snap 99 #|snap * *|stream|stream ?|stream *!|stream start *!|factory|factory *!";

} // namespace

std::string Lines::word(size_t length) {
  std::string text;
  while (text.size() < length) {
    const auto byte = static_cast<char>(1 + below(255));
    if (byte != ' ' && byte != '\t' && byte != '\n') text += byte;
  }
  return text;
}

Line Lines::next(bool asking) {
  const bool asks = asking || below(3) == 0;
  std::string_view form = asks ? requests : others;
  for (auto skipped = below(1 + static_cast<unsigned>(std::count(form.begin(), form.end(), '|'))); skipped > 0;
       --skipped)
    form.remove_prefix(form.find('|') + 1);
  Line line = {"", asks};
  for (const char c : form.substr(0, form.find('|')))
    line.text += c == '#' ? std::to_string(below(70)) : c == '*' ? word(1 + below(100)) : std::string(1, c);
  line.text.resize(std::min<size_t>(line.text.size(), 127));
  return line;
}

} // namespace trial
