// The lines of the console target as a batch of tevctl, on the same appliance. There is an object for each line, of
// printable characters; the status of a call that is not done is one of those documented, and has one line.
#include "fuzz/FuzzedAppliance.h"

#include "ctl/Caller.h"
#include "ctl/Ending.h"
#include "log/tevlog.h"

tev::tevlog tev::log(nullptr);

namespace {

class Terminal : public FuzzedAppliance {
public:
  using FuzzedAppliance::FuzzedAppliance;

  ssize_t write(int fd, const void* bytes, size_t size) override {
    if (fd > STDERR_FILENO) return SystemCalls::write(fd, bytes, size);
    (fd == STDERR_FILENO ? error : output).append(static_cast<const char*>(bytes), size);
    return static_cast<ssize_t>(size);
  }
  std::string output, error;
};

long linesIn(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

} // namespace

static void start() {}

static void fuzz(Input& in) {
  Terminal terminal(in, in.bytes(24));
  std::string lines = in.bytes(2000) + '\n';
  Options options;
  options.json = options.keepGoing = true;
  FILE* const file = fmemopen(lines.data(), lines.size(), "r");
  FUZZ_CHECK(file != nullptr);
  ExitStatus status = exitDone;
  {
    Caller caller(options);
    status = caller.runBatch(file);
  }
  (void)fclose(file);
  const long notDone = linesIn(terminal.error);
  FUZZ_CHECK((status == exitDone) == (notDone == 0));
  FUZZ_CHECK(status <= exitNotThere || status == exitInternal);
  long done = 0;
  for (size_t at = 0; (at = terminal.output.find("\"outcome\":\"done\"", at)) != std::string::npos; ++at)
    ++done;
  FUZZ_CHECK(linesIn(terminal.output) == done + notDone);
  for (const char c : terminal.output)
    FUZZ_CHECK(c == '\n' || (c >= ' ' && c <= '~'));
}
