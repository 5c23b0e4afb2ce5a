// Words quoted for the system shell, checked against a real one: a command gets exactly the words. One shell serves all
// inputs.
#include "fuzz/Target.h"

#include "platform/internal/shellQuote.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

static int toShell[2], fromShell[2];

static void start() {
  FUZZ_CHECK(pipe2(toShell, O_CLOEXEC) == 0 && pipe2(fromShell, O_CLOEXEC) == 0);
  const pid_t child = fork();
  FUZZ_CHECK(child >= 0);
  if (child != 0) return; // at the end of this process the shell's input ends, and with it the shell
  if (dup2(toShell[0], 0) == 0 && dup2(fromShell[1], 1) == 1) (void)execl("/bin/sh", "sh", nullptr);
  _exit(127);
}

static void fuzz(Input& in) {
  std::string line = "printf '%s\\0'", expected;
  while (in.remaining_bytes() > 0 && expected.size() < 8000) {
    const std::string word = in.bytes(500).c_str(); // without a zero byte
    line += ' ' + krShellQuote(word.c_str());
    expected += word + '\0';
  }
  line += " end\n"; // so that something more than the words would show
  expected += std::string("end") + '\0';
  ssize_t count = 0; // the fuzzer's alarm clock interrupts what waits
  for (size_t put = 0; put < line.size(); put += static_cast<size_t>(count)) {
    count = TEMP_FAILURE_RETRY(write(toShell[1], line.data() + put, line.size() - put));
    FUZZ_CHECK(count > 0);
  }
  std::string words(expected.size(), '#');
  for (size_t got = 0; got < words.size(); got += static_cast<size_t>(count)) {
    count = TEMP_FAILURE_RETRY(read(fromShell[0], words.data() + got, words.size() - got));
    FUZZ_CHECK(count > 0);
  }
  FUZZ_CHECK(words == expected);
}
