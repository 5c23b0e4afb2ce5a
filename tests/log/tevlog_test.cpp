#include "log/tevlog.h"

#include "tests/Files.h"
#include "tests/Threads.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <new>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// When positive, counts down with each allocation; the one that reaches zero fails.
int allocationsUntilFailure = 0;

using TraceLog = Scratch;

} // namespace

void* operator new(std::size_t size) {
  if (allocationsUntilFailure > 0 && --allocationsUntilFailure == 0) throw std::bad_alloc();
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }

TEST_F(TraceLog, WritesEveryKindOfValueInTheBaseLastSet) {
  const std::string file = "a.log";
  tev::tevlog log(file.c_str());
  log << "lost" << tev::hex << 1 << tev::endl; // disabled: no text, no change of base
  log << tev::enable << 'c' << ' ' << 255 << ' ' << -5 << ' ' << 4294967295u << ' ' << -7L << tev::endl;
  log << tev::hex << 4294967295u << ' ' << reinterpret_cast<void*>(255) << ' ' << -1 << tev::dec << ' '
      << reinterpret_cast<void*>(255) << tev::endl;
  log << static_cast<const char*>(nullptr) << "still alive" << tev::endl;
  EXPECT_EQ(contents(file), "c 255 -5 4294967295 -7\nffffffff ff ffffffff 255\nstill alive\n");
  log << "buffered";
  EXPECT_EQ(contents(file).find("buffered"), std::string::npos) << "only endl flushes";
  log << tev::disable << "dropped" << tev::endl;
  EXPECT_FALSE(log.IsEnabled());
  log << tev::enable << tev::endl;
  EXPECT_NE(contents(file).find("buffered\n"), std::string::npos);
  std::string all = contents(file);
  for (size_t length : {1u, 4095u, 4096u, 4097u, 10'000u}) { // across the end of a buffer, and of several
    const std::string text(length, static_cast<char>('a' + length % 26));
    log << text.c_str() << -2147483647 << tev::endl;
    all += text + "-2147483647\n";
    EXPECT_EQ(contents(file), all);
  }
}

TEST_F(TraceLog, AssignmentHandsTheFileOver) {
  const std::string first = "first", second = "second";
  tev::tevlog a(first.c_str());
  a << tev::enable << "one" << tev::endl << "unflushed";
  {
    tev::tevlog b(second.c_str());
    b << tev::enable << "two" << tev::endl;
    a = b;
    EXPECT_EQ(contents(first), "one\nunflushed") << "the file held before is closed, so flushed";
    b << "nowhere" << tev::endl;
  }
  tev::tevlog& same = a;
  a = same;
  a << "three" << tev::endl;
  EXPECT_EQ(contents(second), "two\nthree\n");
  EXPECT_TRUE(a.IsEnabled());
}

TEST_F(TraceLog, InitlogStartsAnEmptyDisabledFileOfAnyNameLength) {
  EXPECT_EQ(contents("/tmp/transient.log"), "");
  const std::string longName(200, 'n');
  write(longName, "of an earlier run");
  tev::initlog(longName.c_str());
  tev::log << "before enable" << tev::endl << tev::enable << "start" << tev::endl;
  EXPECT_EQ(contents(longName), "start\n");
  tev::initlog("next");
  EXPECT_FALSE(tev::log.IsEnabled());
  tev::initlog("/nonexistent/directory/log");
  tev::log << tev::enable << "lost" << tev::endl; // silently
}

// With any kind of file under its name it neither blocks nor writes into what is not its own.
TEST_F(TraceLog, OpensNothingButAFileOfItsOwn) {
  for (const char* name : {"victim", "twice", "another's"})
    write(name, "kept");
  ASSERT_EQ(symlink("victim", "link"), 0);
  ASSERT_EQ(symlink("nothing", "dangling"), 0);
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  ASSERT_EQ(mkfifo("open fifo", 0600), 0);
  const int reader = open("open fifo", O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(mkdir("directory", 0700), 0);
  ASSERT_EQ(::link("twice", "also twice"), 0);
  std::vector<const char*> names = {"link", "dangling", "fifo", "open fifo", "directory", "also twice", "/dev/null"};
  if (chown("another's", 65534, 65534) == 0) names.push_back("another's"); // refused to ordinary users
  for (const char* name : names) {
    tev::tevlog log(name);
    log << tev::enable << "lost" << tev::endl;
    EXPECT_EQ(log.Failure(), EEXIST) << name;
  }
  EXPECT_EQ(tev::tevlog("no directory/log").Failure(), ENOENT);
  EXPECT_EQ(tev::tevlog("fine").Failure(), 0);
  for (const char* name : {"victim", "twice", "another's"})
    EXPECT_EQ(contents(name), "kept");
  EXPECT_NE(access("nothing", F_OK), 0);
  (void)close(reader);
}

TEST_F(TraceLog, InitlogWithoutMemoryChangesNothing) {
  const std::string file = "kept.log", other(100, 'o');
  tev::initlog(file.c_str());
  tev::log << tev::enable;
  int failures = 0;
  for (int nth = 1;; ++nth) {
    allocationsUntilFailure = nth;
    tev::initlog(other.c_str());
    const bool failed = allocationsUntilFailure == 0;
    allocationsUntilFailure = 0;
    if (!failed) break;
    ++failures;
    EXPECT_TRUE(tev::log.IsEnabled());
    tev::log << nth << tev::endl;
  }
  EXPECT_GE(failures, 4) << "object, name, stream and its buffer all need memory";
  EXPECT_EQ(contents(file).substr(0, 4), "1\n2\n");
  EXPECT_FALSE(tev::log.IsEnabled());
}

TEST_F(TraceLog, TwoThreadsNeverMixWithinOnePiece) {
  const std::string file = "threads.log", pieces[] = {"<aaaaaaaaaaaaaaaaaaaa>", "<bbbbbbbbbbbbbbbbbbbb>"};
  tev::tevlog log(file.c_str());
  log << tev::enable;
  constexpr size_t lines = 5000;
  auto writer = [&log](const std::string& piece) {
    for (size_t i = 0; i < lines; ++i)
      log << piece.c_str() << tev::endl;
  };
  std::thread other(writer, pieces[0]);
  writer(pieces[1]);
  other.join();
  const std::string text = contents(file);
  EXPECT_EQ(text.size(), 2 * lines * 23);
  for (const std::string& piece : pieces) {
    size_t whole = 0;
    for (size_t at = 0; (at = text.find(piece, at)) != text.npos; ++at)
      ++whole;
    EXPECT_EQ(whole, lines);
  }
}

TEST_F(TraceLog, ACancelledThreadLeavesTheLogFree) {
  if (!cancelsAnywhere) GTEST_SKIP() << notAnywhere;
  tev::tevlog log("flood.log");
  log << tev::enable;
  auto flood = [&] {
    for (;;)
      log << "a line of the flood " << 1 << tev::endl;
  };
  for (int round = 0; round < 100; ++round) {
    const KrThreadId thread = spawn(flood);
    ASSERT_NE(thread, KR_NO_THREAD);
    usleep(static_cast<useconds_t>(200 + round * 7));
    cancelAndAwait(thread);
    log << round << tev::endl; // would hang on a lock left behind
  }
}
