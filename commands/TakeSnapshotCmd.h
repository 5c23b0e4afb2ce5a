#ifndef TEV_COMMANDS_TAKESNAPSHOTCMD_H
#define TEV_COMMANDS_TAKESNAPSHOTCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `snap`: takes a JPEG snapshot of the video into a numbered slot.
class TakeSnapshotCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"<1..16>", Form::changes}, {"<1..16> <1..8>", Form::changes}};

  static const int MAX_SLOT; ///< the highest slot number; the lowest is 1

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;
};

#endif
