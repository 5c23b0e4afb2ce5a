#ifndef TEV_COMMANDS_HELPCMD_H
#define TEV_COMMANDS_HELPCMD_H

#include "commands/CmdFunctor.h"
#include "commands/Form.h"

/// `help`: the summaries of all commands, or the help text of one or of all.
class HelpCmd : public CmdFunctor {
public:
  static constexpr Form forms[] = {{"", Form::reads}, {"long", Form::reads}, {"<command>", Form::reads}};

  static const char* const indent; ///< before every key of the short listing
  static const char* const spacer; ///< as wide as the longest key, 16 blanks

  /// Refers to `commands`, which must outlive this object, and reads it only when called.
  explicit HelpCmd(const CmdMap& commands);

  bool operator()(const ArgVec& args) override;
  const char* getkey() override;
  const char* getlong() override;
  const char* getshort() override;

private:
  void printShortListing() const;
  void printLongListing() const;

  const CmdMap& _commands;
};

#endif
