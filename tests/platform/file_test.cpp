#include "platform/krFile.h"

#include "platform/shellQuote.h"
#include "tests/platform/Elsewhere.h"
#include "tests/platform/Scratch.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
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
  EXPECT_EQ(krWriteToSysFile("node", "31") + krWriteToSysFile("node", ""), 2);
  EXPECT_EQ(contents("node"), "31\n");
  EXPECT_EQ(krReadFromSysFile("/sys/devices/system/cpu/online", buffer, 1), 1);
  if (geteuid() == 0) { // another user's file: no way around its access time
    fs::permissions(".", fs::perms::all);
    fs::permissions("node", fs::perms::all);
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_EQ(krWriteToSysFile("node", "4"), 1);
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(GetCapturedStderr(), "");
  write("empty", "");
  const auto expectFailure = [&](int error, const char* verb, auto call) {
    CaptureStderr();
    EXPECT_EQ(errnoOf(call()), error);
    EXPECT_EQ(GetCapturedStderr(), string("Failed to ") + verb + " to sysfile\n: " + strerror(error) + "\n");
  };
  expectFailure(ENOENT, "read", [&] { return krReadFromSysFile("missing", buffer, 1); });
  expectFailure(EISDIR, "read", [&] { return krReadFromSysFile(".", buffer, 1); });
  expectFailure(ENODATA, "read", [&] { return krReadFromSysFile("empty", buffer, 1); });
  expectFailure(KR_ERR_INVALID, "read", [&] { return krReadFromSysFile("node", nullptr, 1); });
  expectFailure(ENOENT, "write", [&] { return krWriteToSysFile("missing", "x"); });
  expectFailure(ENOSPC, "write", [&] { return krWriteToSysFile("/dev/full", "x"); });
  EXPECT_FALSE(fs::exists("missing"));
}

TEST_F(File, LinesAreReadByteByByte) {
  const struct {
    string bytes;
    int size;
    std::vector<string> lines; // as stored, terminators included
  } table[] = {{"ab\nc", 10, {{"ab\0", 3}, {"c\0", 2}}},
               {{"\n\0x\r\n", 5}, 10, {{"\0", 1}, {"\0", 1}, {"x\r\0", 3}}},
               {"abcd\n", 3, {"abc", {"d\0", 2}}},
               {"abc\n", 3, {"abc", {"\0", 1}}}};
  char buffer[10];
  for (const auto& read : {fioRdString, krFioRdString}) {
    for (const auto& row : table) {
      write("lines", row.bytes);
      const int fd = open("lines", O_RDONLY);
      for (const string& line : row.lines) {
        const int stored = read(fd, buffer, row.size);
        EXPECT_EQ(string(buffer, static_cast<size_t>(std::max(stored, 0))), line);
      }
      EXPECT_EQ(read(fd, buffer, row.size), -1);
      close(fd);
    }
    // A terminal whose other side goes away gives what was written to it, and then EIO.
    const int side = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(grantpt(side) + unlockpt(side), 0);
    const int other = open(ptsname(side), O_RDWR | O_NOCTTY);
    ASSERT_EQ(::write(other, "ab", 2) + close(other), 2);
    EXPECT_EQ(read(side, buffer, 10), read == fioRdString ? 3 : -1);
    close(side);
  }
  EXPECT_EQ(fioRdString(0, nullptr, 4) + krFioRdString(0, nullptr, 4) + fioRdString(0, buffer, 0), 0);
  EXPECT_EQ(errnoOf(krFioRdString(0, buffer, 0)), KR_ERR_INVALID);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Cancellable reader(PTHREAD_CANCEL_ASYNCHRONOUS, [&] { (void)krFioRdString(ends[0], buffer, 4); });
  EXPECT_TRUE(reader.cancel());
}

TEST_F(File, Information) {
  ASSERT_EQ(setenv("TZ", "XYZ-2", 1), 0);
  write("plain", "12345");
  fs::create_directory("dir");
  fs::create_symlink("plain", ".link");
  const timeval times[2] = {{0, 0}, {1236117909, 0}}; // 3 March 2009 22:05:09 UTC
  ASSERT_EQ(chmod("plain", 0347) + chmod("dir", 0500) + utimes("plain", times), 0);
  KrFileInfo info{};
  for (const auto& [path, attributes] : {std::pair{"plain", 2 | 8 | 16},
                                         {"./plain", 2 | 8 | 16 | 128},
                                         {".link", 2 | 8 | 16 | 128},
                                         {"dir", 1 | 4 | 16},
                                         {"dir/../.link", 2 | 8 | 16},
                                         {"/dev/null", 4 | 8}}) {
    EXPECT_EQ(krFileStat(path, &info), 0);
    EXPECT_EQ(info.attributes, attributes) << path;
  }
  ASSERT_EQ(krFileStat("plain", &info), 0);
  EXPECT_EQ(info.size, 5u);
  EXPECT_EQ(string(info.time) + " " + info.date, "00:05:09 03/04/2009");
  EXPECT_EQ((std::vector<int>{info.month, info.day, info.year, info.hour, info.minute, info.second}),
            (std::vector<int>{3, 4, 2009, 0, 5, 9}));
  time_t modified = 1, zero = 1;
  EXPECT_EQ(krFileTimeGet("plain", &modified, &zero) + krFileTimeGet("plain", nullptr, nullptr), 0);
  EXPECT_EQ(modified - zero, 1236117909);

  fs::resize_file("plain", 5'000'000'000);
  const int fd = open("plain", O_RDONLY);
  EXPECT_EQ(krFileSize("plain") + krFileSizeByFd(fd), 10'000'000'000);
  ASSERT_EQ(krFileStat("plain", &info), 0);
  EXPECT_EQ(info.size, UINT32_MAX);
  for (const int on : {1, 0}) {
    EXPECT_EQ(krFdSetCloexecFlag(fd, on), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), on);
  }
  EXPECT_EQ(krFdSetCloexecFlag(-1, 1) + krFileSizeByFd(-1) + krFileSize("x") + krFileStat("x", &info), -4);
  ASSERT_EQ(mkfifo("fifo", 0600), 0); // must not block
  EXPECT_EQ(errnoOf(krFileStatAttrib("x")), ENOENT);
  EXPECT_EQ(errnoOf(krFileTimeSet("fifo")), ENOSYS);
  EXPECT_EQ(krFileFStatAttrib(fd) + krFileFTimeSet(fd), -2);
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
}

TEST_F(File, Copy) {
  write("to", string(9'999, 'o'));
  for (const size_t size : {0u, 1u, 1024u, 1025u, 300'000u}) {
    write("from", string(size, 'f'));
    EXPECT_EQ(krFileCopy("from", "to"), 0);
    EXPECT_EQ(contents("to"), string(size, 'f'));
  }
  write("from", "keep");
  char target[9] = "--------";
  EXPECT_EQ(krFileSymLink("from", "link") + krFileReadLink("link", target, 8), 4);
  EXPECT_STREQ(target, "from----");
  EXPECT_EQ(errnoOf(krFileCopy("from", "link")), EINVAL);
  EXPECT_EQ(errnoOf(krFileCopy("missing", "from")), ENOENT);
  EXPECT_EQ(errnoOf(krFileCopy(".", "from")), EISDIR);
  EXPECT_EQ(errnoOf(krFileCopy("from", "/dev/full")), ENOSPC);
  EXPECT_EQ(contents("from"), "keep");
  EXPECT_EQ(krFileDelete("link") + krFileDelete("link"), -1);
}

TEST_F(File, Directories) {
  fs::create_directories("from/sub/deep");
  write("from/a", "1");
  write("from/" + string(255, 'n'), "2");
  ASSERT_EQ(mkfifo("from/fifo", 0600) + mknod("from/socket", S_IFSOCK | 0600, 0), 0);
  EXPECT_EQ(errnoOf(krDirCopy("from", "to")), ENOENT);
  EXPECT_EQ(krDirMake("to") + krDirCopy("from", "to"), 0);
  EXPECT_EQ(contents("to/a") + contents("to/" + string(255, 'n')), "12");
  EXPECT_EQ(std::distance(fs::directory_iterator("to"), {}), 2);
  fs::create_symlink("nowhere", "from/link");
  EXPECT_EQ(errnoOf(krDirCopy("from", "to")), ENOENT);

  KrDir dir{};
  ASSERT_EQ(krDirOpen("from", &dir), 0);
  std::map<string, int> types;
  for (KrDirEntry entry{}; krDirRead(&dir, &entry) == 0;)
    types[entry.name] = entry.type;
  EXPECT_EQ(
      types,
      (std::map<string, int>{
          {".", 3}, {"..", 3}, {"sub", 3}, {"fifo", 4}, {"link", 5}, {"a", 6}, {string(255, 'n'), 6}, {"socket", 7}}));
  EXPECT_EQ(krDirClose(&dir) + krDirClose(&dir), -1);
  EXPECT_EQ(errnoOf(krDirOpen("from/link", &dir)), ENOENT);

  EXPECT_EQ(errnoOf(krDirClean("from")), ENOTEMPTY);
  EXPECT_EQ(std::distance(fs::directory_iterator("from"), {}), 1);
  EXPECT_EQ(krDirRemove("from/sub/deep") + krDirClean("from"), 0);
  EXPECT_TRUE(fs::is_empty("from"));
  EXPECT_EQ(krDirClean("missing") + krDirRemove("to") + krDirMake("to") + krDirChange("missing"), -4);

  const int list = open("list", O_RDWR | O_CREAT, 0600);
  EXPECT_EQ(krDirList(list, "from"), 0);
  EXPECT_TRUE(contents("list") == ".\n..\n" || contents("list") == "..\n.\n");
  EXPECT_EQ(krDirList(-1, "from") + krDirList(list, "missing"), -2);
  char path[255];
  for (int depth = 0; depth < 2; ++depth, fs::current_path(string(200, 'd'))) {
    EXPECT_EQ(krDirGet(path), 0);
    EXPECT_EQ(path, fs::current_path());
    ASSERT_EQ(krDirMake(string(200, 'd').c_str()), 0);
  }
  EXPECT_EQ(errnoOf(krDirGet(path)), ERANGE);
  EXPECT_EQ(krDirChange("/"), 0);
  EXPECT_EQ(fs::current_path(), "/");
}

TEST_F(File, RemovalTakesThePathAsOneArgument) {
  EXPECT_EQ(krShellQuote("") + krShellQuote("AZaz09@%+=:,./_-") + krShellQuote("a'b"), "''AZaz09@%+=:,./_-'a'\\''b'");
  const auto entries = [] { return std::distance(fs::directory_iterator("."), {}); };
  write("keep", "");
  for (const auto& remove : {krDirRemoveRecursively, krDirDelete}) {
    for (const char* name :
         {"a", "-rf", "--", "a b", "$(touch n)", "x; touch n", "'", "*", "~", "\n", "\\", "`touch n`"}) {
      fs::create_directories(string("./") + name + "/deep");
      EXPECT_EQ(remove(name), 0);
      EXPECT_EQ(entries(), 1) << name;
    }
    EXPECT_EQ(remove("missing") + remove(""), 0);
  }
  ASSERT_EQ(setenv("PATH", "/nowhere", 1), 0);
  EXPECT_EQ(krDirDelete("keep"), -1);
}

TEST_F(File, Disks) {
  if (!ownMounts() || mount("tmpfs", "/opt", "tmpfs", 0, "size=1M") != 0)
    GTEST_SKIP() << "no mounts of its own: " << strerror(errno);
  krDiskClean(); // nothing there
  fs::create_directories("/opt/tev/user/full/x");
  fs::create_directories("/opt/tev/user/empty");
  for (const char* name : {"/opt/tev/user/file", "/opt/tev/PROG.TKN", "/opt/tev/other"})
    write(name, string(5000, 'x'));
  KrFsStat figures{1, 1, 1, 1};
  EXPECT_EQ(krFileSystemStat("/opt/tev", &figures), 0);
  EXPECT_EQ(figures.zero, 0u);
  EXPECT_EQ(uint64_t{figures.blockSize} * figures.blocks, 1u << 20);
  EXPECT_EQ(krDiskSize(), (1u << 20) + fs::space("/").capacity);
  EXPECT_EQ(krDiskFree(), uint64_t{figures.blockSize} * figures.freeBlocks);
  EXPECT_EQ(krDiskFree(), fs::space("/opt").free);
  EXPECT_EQ(krDiskPathSize("/missing") + krDiskPathFree("/missing"), 0u);
  EXPECT_EQ(krFileSystemStat("/missing", &figures), -1);
  krDiskClean();
  EXPECT_FALSE(fs::exists("/opt/tev/PROG.TKN"));
  EXPECT_TRUE(fs::exists("/opt/tev/other") && fs::exists("/opt/tev/user/full/x"));
  EXPECT_EQ(std::distance(fs::directory_iterator("/opt/tev/user"), {}), 1);
}

TEST_F(File, Addresses) {
  char buffer[256];
  for (const char* text : {"1.2.3.4", "255.255.255.255", "0.0.0.0"}) {
    krInetNtoa(krInetAddr(text), buffer);
    EXPECT_STREQ(buffer, text);
  }
  EXPECT_EQ(krInetAddr("1.2.3.4"), htonl(0x01020304));
  EXPECT_EQ(krInetAddr("1.2.3.256") + krInetAddr("") + krInetAddr("host"), 0u);
  EXPECT_EQ(krGetHostName(buffer, sizeof buffer), 0);
  EXPECT_EQ(string(buffer) + "\n", contents("/proc/sys/kernel/hostname"));
  write("hosts", "127.0.0.1 loop both\n10.1.2.3 both\n::1 both six\n10.9.9.9 one\n");
  if (!ownMounts() || mount("hosts", "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << strerror(errno);
  for (const auto& [host, address] : {std::pair{"loop", "127.0.0.1"},
                                      {"both", "10.1.2.3"},
                                      {"one", "10.9.9.9"},
                                      {"six", "0.0.0.0"},
                                      {"8.7.6.5", "8.7.6.5"}})
    EXPECT_EQ(krGetHostByName(host), krInetAddr(address)) << host;
}

TEST_F(File, FormattedOutput) {
  CaptureStdout();
  EXPECT_EQ(krPrintf("%s-%d\n", "a", 5), 4);
  EXPECT_EQ(GetCapturedStdout(), "a-5\n");
  const int fd = open("out", O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(krFdPrintf(fd, "%c|", 0), 2);
  EXPECT_EQ(krFdPrintf(fd, "%02000d", 1), 1023);
  EXPECT_EQ(contents("out"), string("\0|", 2) + string(1023, '0'));
  EXPECT_EQ(krFdPrintf(-1, "x"), -1);
}
