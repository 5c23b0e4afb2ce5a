#ifndef TEV_COMMANDS_VIDEORESOLUTIONCMD_H
#define TEV_COMMANDS_VIDEORESOLUTIONCMD_H

#include "commands/CmdFunctor.h"

/// `video-resolution`: sets or shows the resolution and frame rate of the video input.
class VideoResolutionCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
