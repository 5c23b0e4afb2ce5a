// Words quoted for the system shell, checked against a real one: a command gets exactly the words. One shell serves all
// inputs.
#include "fuzz/Check.h"

#include "platform/internal/shellQuote.h"

#include <cerrno>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>
#include <vector>

namespace {

class Shell {
public:
  Shell() {
    int in[2], out[2];
    FUZZ_CHECK(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0);
    const pid_t child = fork();
    FUZZ_CHECK(child >= 0);
    if (child == 0) {
      if (dup2(in[0], 0) == 0 && dup2(out[1], 1) == 1) (void)execl("/bin/sh", "sh", nullptr);
      _exit(127);
    }
    (void)close(in[0]);
    (void)close(out[1]);
    _in = in[1];
    _out = out[0]; // at the end of this process the shell's input ends, and with it the shell
  }

  /// Each word as a command got it, followed by a zero byte.
  std::string wordsOf(const std::string& quoted, size_t size) const {
    const std::string line = "printf '%s\\0'" + quoted + "\n";
    ssize_t count = 0; // the fuzzer's alarm clock interrupts what waits
    for (size_t put = 0; put < line.size(); put += static_cast<size_t>(count)) {
      count = TEMP_FAILURE_RETRY(write(_in, line.data() + put, line.size() - put));
      FUZZ_CHECK(count > 0);
    }
    std::string words(size, '#');
    for (size_t got = 0; got < size; got += static_cast<size_t>(count)) {
      count = TEMP_FAILURE_RETRY(read(_out, words.data() + got, size - got));
      FUZZ_CHECK(count > 0);
    }
    return words;
  }

private:
  int _in = -1;
  int _out = -1;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const Shell shell;
  FuzzedDataProvider data(bytes, size);
  std::string quoted, expected;
  while (data.remaining_bytes() > 0 && expected.size() < 8000) {
    const std::string word = data.ConsumeRandomLengthString(500).c_str();
    quoted += ' ' + krShellQuote(word.c_str());
    expected += word + '\0';
  }
  quoted += " end"; // so that something more than the words would show
  expected += std::string("end") + '\0';
  FUZZ_CHECK(shell.wordsOf(quoted, expected.size()) == expected);
  return 0;
}
