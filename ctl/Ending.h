// How a call ends before its time: by a signal, or because its time is over.
//
// A call has a queue and a pipe, which must go however it ends. The handlers here remove them.
#ifndef TEV_CTL_ENDING_H
#define TEV_CTL_ENDING_H

#include <csignal>
#include <string>

namespace ending {

/// SIGINT, SIGTERM, SIGHUP, SIGPIPE and SIGXFSZ from now on end the process after what is guarded has been removed.
/// Those that were ignored at the start stay ignored.
void watch();

/// Blocks all signals while it lives.
class SignalsBlocked {
public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
  sigset_t _before;
};

/// The queue and the pipe that are to be removed. There is one pair at a time. Call with signals blocked.
void guard(int queueId, const char* pipe);

/// Removes them now. The pipe goes first, so that what SIGKILL leaves always has its queue.
void removeGuarded();

/// Lets the process end in so many seconds, with status 3; never if 0. What is guarded is removed.
void limit(double seconds);

/// What is written then: lines for standard error and, unless empty, for standard output. Texts that are too long, and
/// the moments in which these are changed, leave a line without particulars.
void setLastWords(const std::string& error, const std::string& output);

/// Where standard output and standard error are, while other files have their numbers.
void setStandardDescriptors(int output, int error);

} // namespace ending

#endif
