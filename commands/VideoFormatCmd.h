#ifndef TEV_COMMANDS_VIDEOFORMATCMD_H
#define TEV_COMMANDS_VIDEOFORMATCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `video-format`: selects the kind of video input, or shows the one that the input chip detects.
class VideoFormatCmd : public CmdFunctor {
public:
  static constexpr char formats[] = "hdmi|dvi|wxga|xga|svga|vga|component|svideo|composite";
  static constexpr Form forms[] = {{"", Form::reads}, {"status|?", Form::reads}, {formats, Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
