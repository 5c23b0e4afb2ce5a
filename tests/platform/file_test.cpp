#include "platform/krFile.h"

#include "platform/shellQuote.h"
#include "tests/platform/Elsewhere.h"
#include "tests/platform/Scratch.h"

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using std::string;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

using File = Scratch;

TEST_F(File, AttributeIsReadInOneReadAndWrittenInOneWrite) {
  write("node", "25\n");
  char buffer[9] = "--------"; // aligned for no disk
  CaptureStderr();
  EXPECT_EQ(krReadFromSysFile("node", buffer + 1, 5), 3);
  EXPECT_STREQ(buffer, "-25\n----");
  EXPECT_EQ(krReadFromSysFile("node", buffer + 1, 2), 2);
  EXPECT_EQ(krWriteToSysFile("node", "31"), 2);
  EXPECT_EQ(krWriteToSysFile("node", ""), 0);
  EXPECT_EQ(contents("node"), "31\n");
  EXPECT_GT(krReadFromSysFile("/sys/devices/system/cpu/online", buffer, 8), 0);
  if (geteuid() == 0) { // another user's file: no way around its access time
    fs::permissions(".", fs::perms::all);
    fs::permissions("node", fs::perms::all);
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(krWriteToSysFile("node", "4"), 1);
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(File, AttributeFailuresAreToldOnStandardError) {
  write("empty", "");
  char byte = 0;
  const struct {
    int error;
    std::function<int()> call;
    const char* text;
  } table[] = {
      {ENOENT, [&] { return krReadFromSysFile("missing", &byte, 1); }, "read"},
      {EISDIR, [&] { return krReadFromSysFile(".", &byte, 1); }, "read"},
      {ENODATA, [&] { return krReadFromSysFile("empty", &byte, 1); }, "read"},
      {KR_ERR_INVALID, [&] { return krReadFromSysFile(nullptr, &byte, 1); }, "read"},
      {KR_ERR_INVALID, [&] { return krReadFromSysFile("empty", nullptr, 1); }, "read"},
      {KR_ERR_INVALID, [&] { return krReadFromSysFile("empty", &byte, -1); }, "read"},
      {ENOENT, [&] { return krWriteToSysFile("missing", "x"); }, "write"},
      {ENOSPC, [&] { return krWriteToSysFile("/dev/full", "x"); }, "write"},
      {KR_ERR_INVALID, [&] { return krWriteToSysFile("empty", nullptr); }, "write"},
  };
  for (const auto& row : table) {
    CaptureStderr();
    EXPECT_EQ(errnoOf(row.call()), row.error);
    EXPECT_EQ(GetCapturedStderr(), string("Failed to ") + row.text + " to sysfile\n: " + strerror(row.error) + "\n");
  }
  EXPECT_FALSE(fs::exists("missing"));
}

TEST_F(File, LinesAreReadByteByByte) {
  const struct {
    string bytes;
    int size;
    std::vector<string> lines; // as stored, terminators included
  } table[] = {
      {"ab\nc", 10, {{"ab\0", 3}, {"c\0", 2}}},
      {{"\n\0x\r\n", 5}, 10, {{"\0", 1}, {"\0", 1}, {"x\r\0", 3}}},
      {"abcd\n", 3, {"abc", {"d\0", 2}}},
      {"abc\n", 3, {"abc", {"\0", 1}}},
      {"a", 1, {"a"}},
  };
  for (const auto& read : {fioRdString, krFioRdString})
    for (const auto& row : table) {
      write("lines", row.bytes);
      const int fd = open("lines", O_RDONLY);
      char buffer[10];
      for (const string& line : row.lines) {
        const int stored = read(fd, buffer, row.size);
        EXPECT_EQ(string(buffer, static_cast<size_t>(std::max(stored, 0))), line);
      }
      EXPECT_EQ(read(fd, buffer, row.size), -1);
      close(fd);
    }
  char buffer[4];
  EXPECT_EQ(fioRdString(0, nullptr, 4) + krFioRdString(0, nullptr, 4) + fioRdString(0, buffer, 0), 0);
  EXPECT_EQ(errnoOf(krFioRdString(0, buffer, 0)), KR_ERR_INVALID);
  EXPECT_EQ(errnoOf(fioRdString(-1, buffer, 4)), EBADF);
}

TEST_F(File, ReadErrorBehindSomeBytes) {
  // A terminal whose other side goes away gives what was written to it, and then EIO.
  for (const auto& read : {fioRdString, krFioRdString}) {
    const int side = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(side >= 0 && grantpt(side) == 0 && unlockpt(side) == 0);
    const int other = open(ptsname(side), O_RDWR | O_NOCTTY);
    ASSERT_EQ(::write(other, "ab", 2), 2);
    close(other);
    char buffer[4] = "xyz";
    EXPECT_EQ(read(side, buffer, 4), read == fioRdString ? 3 : -1);
    EXPECT_STREQ(buffer, "ab");
    close(side);
  }
}

TEST_F(File, LineReaderGivesWayToCancellation) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (const int type : {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS}) {
    char buffer[4];
    Cancellable reader(type, [&] { (void)krFioRdString(ends[0], buffer, 4); });
    krThreadSuspend(20);
    EXPECT_TRUE(reader.cancel());
  }
}

TEST_F(File, Information) {
  ASSERT_EQ(setenv("TZ", "XYZ-2", 1), 0);
  write("plain", "12345");
  fs::create_directory("dir");
  fs::create_symlink("plain", ".link");
  ASSERT_EQ(chmod("plain", 0347) + chmod("dir", 0500), 0);
  const timeval times[2] = {{0, 0}, {1236117909, 0}}; // 3 March 2009 22:05:09 UTC
  ASSERT_EQ(utimes("plain", times), 0);
  const std::map<string, int> attributes = {{"plain", 2 | 8 | 16},        {"./plain", 2 | 8 | 16 | 128},
                                            {".link", 2 | 8 | 16 | 128},  {"dir", 1 | 4 | 16},
                                            {"dir/../.link", 2 | 8 | 16}, {"/dev/null", 4 | 8}};
  KrFileInfo info{};
  for (const auto& [path, expected] : attributes) {
    EXPECT_EQ(krFileStat(path.c_str(), &info), 0);
    EXPECT_EQ(info.attributes, expected) << path;
  }
  ASSERT_EQ(krFileStat("plain", &info), 0);
  EXPECT_EQ(info.size, 5u);
  EXPECT_STREQ(info.time, "00:05:09");
  EXPECT_STREQ(info.date, "03/04/2009");
  EXPECT_EQ((std::vector<int>{info.month, info.day, info.year, info.hour, info.minute, info.second}),
            (std::vector<int>{3, 4, 2009, 0, 5, 9}));
  time_t modified = 1, zero = 1;
  EXPECT_EQ(krFileTimeGet("plain", &modified, &zero) + krFileTimeGet("plain", nullptr, nullptr), 0);
  EXPECT_EQ(modified, 1236117909);
  EXPECT_EQ(zero, 0);

  fs::resize_file("plain", 5'000'000'000);
  EXPECT_EQ(krFileSize("plain"), 5'000'000'000);
  const int fd = open("plain", O_RDONLY);
  EXPECT_EQ(krFileSizeByFd(fd), 5'000'000'000);
  ASSERT_EQ(krFileStat("plain", &info), 0);
  EXPECT_EQ(info.size, UINT32_MAX);
  for (const int on : {1, 0, 7}) {
    EXPECT_EQ(krFdSetCloexecFlag(fd, on), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), on != 0 ? FD_CLOEXEC : 0);
  }
  close(fd);
  EXPECT_EQ(errnoOf(krFdSetCloexecFlag(-1, 1)), EBADF);
  EXPECT_EQ(krFileSizeByFd(-1) + krFileSize("x") + krFileStat("x", &info) + krFileTimeGet("x", &modified, nullptr), -4);
  EXPECT_EQ(errnoOf(krFileStatAttrib("x")), ENOENT);
  ASSERT_EQ(mkfifo("fifo", 0600), 0); // must not block
  for (const int result : {errnoOf(krFileStatAttrib("plain")), errnoOf(krFileTimeSet("fifo")),
                           errnoOf(krFileFStatAttrib(0)), errnoOf(krFileFTimeSet(0))})
    EXPECT_EQ(result, ENOSYS);
}

TEST_F(File, NullArguments) {
  KrFileInfo info{};
  KrDir dir{};
  KrDirEntry entry{};
  char buffer[300];
  KrFsStat figures{};
  const int64_t refused =
      krFileStat(nullptr, &info) + krFileStat(".", nullptr) + krFileSize(nullptr) +
      krFileTimeGet(nullptr, nullptr, nullptr) + krFileCopy(nullptr, "x") + krFileCopy(".", nullptr) +
      krFileDelete(nullptr) + krFileReadLink(nullptr, buffer, 1) + krFileReadLink("x", nullptr, 1) +
      krFileSymLink(nullptr, "x") + krFileSymLink("x", nullptr) + krFileStatAttrib(nullptr) + krFileTimeSet(nullptr) +
      krDirOpen(nullptr, &dir) + krDirOpen(".", nullptr) + krDirRead(nullptr, &entry) + krDirRead(&dir, &entry) +
      krDirClose(nullptr) + krDirClose(&dir) + krDirMake(nullptr) + krDirRemove(nullptr) + krDirDelete(nullptr) +
      krDirRemoveRecursively(nullptr) + krDirClean(nullptr) + krDirCopy(nullptr, ".") + krDirCopy(".", nullptr) +
      krDirList(1, nullptr) + krDirGet(nullptr) + krDirChange(nullptr) + krFileSystemStat(nullptr, &figures) +
      krFileSystemStat("/", nullptr) + krGetHostName(nullptr, 9);
  EXPECT_EQ(refused, -32);
  EXPECT_EQ(krDiskPathSize(nullptr) + krDiskPathFree(nullptr) + krInetAddr(nullptr) + krGetHostByName(nullptr), 0u);
  krInetNtoa(1, nullptr);
  EXPECT_EQ(errno, KR_ERR_INVALID);
}

TEST_F(File, Copy) {
  write("to", string(9'999, 'o'));
  for (const size_t size : {0u, 1u, 1024u, 1025u, 300'000u}) {
    write("from", string(size, 'f'));
    EXPECT_EQ(krFileCopy("from", "to"), 0);
    EXPECT_EQ(contents("to"), string(size, 'f'));
  }
  write("from", "keep");
  fs::create_symlink("from", "link");
  fs::create_directory("dir");
  EXPECT_EQ(errnoOf(krFileCopy("from", "link")), EINVAL);
  EXPECT_EQ(errnoOf(krFileCopy("missing", "from")), ENOENT);
  EXPECT_EQ(errnoOf(krFileCopy("dir", "from")), EISDIR);
  EXPECT_EQ(errnoOf(krFileCopy("from", "dir")), EISDIR);
  EXPECT_EQ(errnoOf(krFileCopy("from", "/dev/full")), ENOSPC);
  EXPECT_EQ(krFileCopy("from", "/dev/null"), 0);
  EXPECT_EQ(contents("from"), "keep");
  char target[9] = "--------";
  EXPECT_EQ(krFileSymLink("from", "second") + krFileDelete("link"), 0);
  EXPECT_EQ(krFileReadLink("second", target, 8), 4);
  EXPECT_STREQ(target, "from----");
  EXPECT_EQ(errnoOf(krFileDelete("link")), ENOENT);
}

TEST_F(File, DirectoryEntries) {
  char before[255];
  EXPECT_EQ(krDirMake("dir") + krDirGet(before) + krDirChange("dir"), 0);
  EXPECT_EQ(errnoOf(krDirChange("missing")), ENOENT);
  fs::create_directory("sub");
  fs::create_symlink("nowhere", "link");
  write(string(255, 'n'), "");
  for (const auto& [name, kind] : std::map<string, mode_t>{{"fifo", S_IFIFO}, {"socket", S_IFSOCK}})
    ASSERT_EQ(mknod(name.c_str(), kind | 0600, 0), 0);
  KrDir dir{};
  ASSERT_EQ(krDirOpen(".", &dir), 0);
  std::map<string, int> types;
  for (KrDirEntry entry{}; krDirRead(&dir, &entry) == 0;)
    types[entry.name] = entry.type;
  EXPECT_EQ(types,
            (std::map<string, int>{
                {".", 3}, {"..", 3}, {"sub", 3}, {"fifo", 4}, {"link", 5}, {string(255, 'n'), 6}, {"socket", 7}}));
  EXPECT_EQ(krDirClose(&dir), 0);
  EXPECT_EQ(krDirClose(&dir), -1);
  EXPECT_EQ(errnoOf(krDirOpen("link", &dir)), ENOENT);
  EXPECT_EQ(krDirClose(&dir), -1);
  EXPECT_EQ(krDirRemove("sub") + krDirChange(before), 0);
  EXPECT_EQ(errnoOf(krDirMake("dir")), EEXIST);
  EXPECT_EQ(errnoOf(krDirRemove("dir")), ENOTEMPTY);
  for (int depth = 0; depth < 2; ++depth) // a path of more than 255 bytes
    ASSERT_EQ(krDirMake(string(200, 'd').c_str()) + krDirChange(string(200, 'd').c_str()), 0);
  EXPECT_EQ(errnoOf(krDirGet(before)), ERANGE);
}

TEST_F(File, DirectoryCleanCopyList) {
  fs::create_directories("from/sub/deep");
  write("from/a", "1");
  write("from/b", "2");
  EXPECT_EQ(errnoOf(krDirCopy("from", "to")), ENOENT);
  EXPECT_EQ(krDirMake("to"), 0);
  EXPECT_EQ(krDirCopy("from", "to"), 0);
  EXPECT_EQ(contents("to/a") + contents("to/b"), "12");
  EXPECT_FALSE(fs::exists("to/sub"));
  EXPECT_EQ(errnoOf(krDirCopy("missing", "to")), ENOENT);

  const int list = open("list", O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(krDirList(list, "to"), 0);
  close(list);
  std::istringstream lines(contents("list"));
  std::multiset<string> names;
  for (string name; std::getline(lines, name);)
    names.insert(name);
  EXPECT_EQ(names, (std::multiset<string>{".", "..", "a", "b"}));
  EXPECT_EQ(errnoOf(krDirList(list, "to")), EBADF);
  EXPECT_EQ(errnoOf(krDirList(1, "missing")), ENOENT);

  EXPECT_EQ(errnoOf(krDirClean("from")), ENOTEMPTY);
  EXPECT_FALSE(fs::exists("from/a") || fs::exists("from/b"));
  fs::remove("from/sub/deep");
  fs::create_symlink("nowhere", "from/link");
  EXPECT_EQ(errnoOf(krDirCopy("from", "to")), ENOENT);
  EXPECT_EQ(krDirClean("from"), 0);
  EXPECT_TRUE(fs::is_empty("from"));
  EXPECT_EQ(errnoOf(krDirClean("missing")), ENOENT);
}

TEST_F(File, WordsForTheShell) {
  const std::map<string, string> table = {
      {"", "''"},       {"AZaz09@%+=:,./_-", "AZaz09@%+=:,./_-"},
      {"a b", "'a b'"}, {"~", "'~'"},
      {"'", "''\\'''"}, {"it's; rm -rf $(x) `y` \\ \n\t*", "'it'\\''s; rm -rf $(x) `y` \\ \n\t*'"}};
  for (const auto& [word, quoted] : table) {
    EXPECT_EQ(krShellQuote(word.c_str()), quoted);
    ASSERT_EQ(system(("printf %s " + krShellQuote(word.c_str()) + " > word").c_str()), 0);
    EXPECT_EQ(contents("word"), word);
  }
}

TEST_F(File, RemovalTakesThePathAsOneArgument) {
  const auto entries = [] { return std::distance(fs::directory_iterator("."), {}); };
  for (const auto& remove : {krDirRemoveRecursively, krDirDelete}) {
    for (const char* name : {"plain", "-rf", "--", "-", "a b", "$(touch new)", "x; touch new", "'", "*", "~", "\n"}) {
      fs::create_directories(string("./") + name + "/deep");
      write("keep", "");
      EXPECT_EQ(remove(name), 0);
      EXPECT_EQ(entries(), 1) << name;
    }
    EXPECT_EQ(remove("missing"), 0);
    EXPECT_EQ(remove(""), 0);
  }
  ASSERT_EQ(setenv("PATH", "/nowhere", 1), 0);
  EXPECT_EQ(krDirDelete("keep"), -1);
  EXPECT_EQ(entries(), 1);
}

TEST_F(File, Disks) {
  if (!ownMounts() || mount("tmpfs", "/opt", "tmpfs", 0, "size=1M") != 0)
    GTEST_SKIP() << "no mounts of its own: " << strerror(errno);
  krDiskClean();
  EXPECT_EQ(krDiskFree(), 0u);
  fs::create_directories("/opt/tev/user/full/x");
  fs::create_directories("/opt/tev/user/empty");
  for (const char* name : {"/opt/tev/user/file", "/opt/tev/PROG.TKN", "/opt/tev/other"})
    write(name, string(5000, 'x'));
  struct statfs root {};
  ASSERT_EQ(statfs("/", &root), 0);
  KrFsStat figures{1, 1, 1, 1};
  EXPECT_EQ(krFileSystemStat("/opt/tev", &figures), 0);
  EXPECT_EQ(figures.zero, 0u);
  EXPECT_EQ(uint64_t{figures.blockSize} * figures.blocks, 1u << 20);
  EXPECT_EQ(krDiskPathSize("/opt"), 1u << 20);
  EXPECT_EQ(krDiskSize(), (1u << 20) + static_cast<uint64_t>(root.f_bsize) * root.f_blocks);
  EXPECT_EQ(krDiskFree(), uint64_t{figures.blockSize} * figures.freeBlocks);
  EXPECT_LT(krDiskPathFree("/opt"), (1u << 20) - 3 * 5000);
  EXPECT_EQ(krDiskPathSize("/missing"), 0u);
  EXPECT_EQ(errnoOf(krFileSystemStat("/missing", &figures)), ENOENT);
  krDiskClean();
  EXPECT_FALSE(fs::exists("/opt/tev/PROG.TKN"));
  EXPECT_TRUE(fs::exists("/opt/tev/other") && fs::exists("/opt/tev/user/full/x"));
  EXPECT_EQ(std::distance(fs::directory_iterator("/opt/tev/user"), {}), 1);
}

TEST_F(File, Addresses) {
  for (const char* text : {"1.2.3.4", "255.255.255.255", "0.0.0.0", "127.0.0.1"}) {
    char buffer[16];
    krInetNtoa(krInetAddr(text), buffer);
    EXPECT_STREQ(buffer, text);
  }
  EXPECT_EQ(krInetAddr("1.2.3.4"), htonl(0x01020304));
  EXPECT_EQ(krInetAddr("1.2.3.256") + krInetAddr("") + krInetAddr("host"), 0u);
  char name[256], expected[256];
  ASSERT_EQ(gethostname(expected, sizeof expected), 0);
  EXPECT_EQ(krGetHostName(name, sizeof name), 0);
  EXPECT_STREQ(name, expected);

  write("hosts", "127.0.0.1 loop both\n10.1.2.3 both\n::1 both six\n10.9.9.9 one\n");
  if (!ownMounts() || mount("hosts", "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << strerror(errno);
  const std::map<string, string> table = {
      {"loop", "127.0.0.1"}, {"both", "10.1.2.3"}, {"one", "10.9.9.9"}, {"six", "0.0.0.0"}, {"8.7.6.5", "8.7.6.5"}};
  for (const auto& [host, address] : table) {
    char buffer[16];
    krInetNtoa(krGetHostByName(host.c_str()), buffer);
    EXPECT_EQ(buffer, address) << host;
  }
}

TEST_F(File, FormattedOutput) {
  CaptureStdout();
  EXPECT_EQ(krPrintf("%s-%d\n", "a", 5), 4);
  EXPECT_EQ(GetCapturedStdout(), "a-5\n");
  const int fd = open("out", O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(krFdPrintf(fd, "%c|", 0), 2);
  EXPECT_EQ(krFdPrintf(fd, "%01023d", 1), 1023);
  EXPECT_EQ(krFdPrintf(fd, "%02000d", 1), 1023);
  close(fd);
  EXPECT_EQ(contents("out"), string("\0|", 2) + string(1022, '0') + "1" + string(1023, '0'));
  EXPECT_EQ(errnoOf(krFdPrintf(fd, "x")), EBADF);
}
