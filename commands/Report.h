// What becomes of a command and what it finds, as data.
//
// Commands print lines. What the lines say, and what they leave out, they report here as well, for programs that act on
// it. The console shows the lines and ignores the reports.
#ifndef TEV_COMMANDS_REPORT_H
#define TEV_COMMANDS_REPORT_H

#include <string_view>

/// This class does nothing with what is reported. Commands call the present one on the main thread; it throws only
/// std::bad_alloc. Texts are valid during the call only.
class Report {
public:
  static Report* present;

  virtual ~Report() = default;

  /// The command shows this value.
  virtual void number(std::string_view /*name*/, int /*value*/) {}
  virtual void flag(std::string_view /*name*/, bool /*value*/) {}
  virtual void text(std::string_view /*name*/, std::string_view /*value*/) {}

  /// The words of the line are not accepted.
  virtual void wrongWords() {}

  /// There is no way to find out what was asked for.
  virtual void notThere(std::string_view /*what*/) {}

  /// The system refused to open, read or write `path`, with that errno.
  virtual void systemFailed(std::string_view /*path*/, int /*reason*/) {}

  /// A board tool is about to run. Returns whether it may.
  virtual bool toolStarts() { return true; }

  /// It ran: what system(3) returned.
  virtual void toolEnded(std::string_view /*tool*/, int /*status*/) {}
};

#endif
