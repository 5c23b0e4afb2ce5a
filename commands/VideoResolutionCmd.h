#ifndef TEV_COMMANDS_VIDEORESOLUTIONCMD_H
#define TEV_COMMANDS_VIDEORESOLUTIONCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `video-resolution`: sets or shows the resolution and frame rate of the video input.
class VideoResolutionCmd : public CmdFunctor {
public:
  static constexpr char resolutions[] = "1920x1080p@30|1920x1080i@30|1280x720p@30|720x480p@30|720x480i@30|720x576p@50|"
                                        "720x576i@50|720x576p@25|720x576i@25|720x576i@30|640x480p@30|800x600p@30|"
                                        "1024x768p@30|1280x768p@30|ntsc|pal-bghid|pal-m";
  static constexpr Form forms[] = {{"", Form::reads}, {"status|?", Form::reads}, {resolutions, Form::changes}};

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
