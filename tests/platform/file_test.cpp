#include "platform/krFile.h"

#include "tests/Isolation.h"
#include "tests/Threads.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <map>
#include <pty.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using std::string;

using File = Scratch;

/// The results of calls that fail.
template <class... Results>
static void expectFailures(Results... results) {
  int position = 0;
  for (const int64_t result : {int64_t{results}...})
    EXPECT_EQ(result, -1) << "of call " << ++position;
}

static auto entriesOf(const char* directory) { return std::distance(fs::directory_iterator(directory), {}); }

TEST_F(File, AttributeIsReadInOneReadAndWrittenInOneWrite) {
  write("node", "25\n");
  write("empty", "");
  char buffer[9] = "--------"; // aligned for no disk
  EXPECT_EQ(krReadFromSysFile("node", buffer + 1, 5), 3);
  EXPECT_STREQ(buffer, "-25\n----");
  EXPECT_EQ(krWriteToSysFile("node", "31"), 2);
  EXPECT_EQ(contents("node"), "31\n");
  EXPECT_EQ(krReadFromSysFile("/sys/devices/system/cpu/online", buffer, 1), 1);
  for (const char* path : {".", "node"})
    fs::permissions(path, fs::perms::all);
  if (seteuid(65534) == 0) { // another user's file: no way around its access time
    EXPECT_EQ(krWriteToSysFile("node", "4"), 1);
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(reported([&] { EXPECT_EQ(krReadFromSysFile("node", buffer, 1), 1); }), "");
  const auto expectFailure = [](int error, const char* verb, auto call) {
    EXPECT_EQ(reported([&] { EXPECT_EQ(errnoOf(call()), error); }),
              string("Failed to ") + verb + " to sysfile\n: " + strerror(error) + "\n");
  };
  expectFailure(ENOENT, "read", [&] { return krReadFromSysFile("missing", buffer, 1); });
  expectFailure(EISDIR, "read", [&] { return krReadFromSysFile(".", buffer, 1); });
  expectFailure(ENODATA, "read", [&] { return krReadFromSysFile("empty", buffer, 1); });
  expectFailure(KR_ERR_INVALID, "read", [&] { return krReadFromSysFile("node", nullptr, 1); });
  expectFailure(ENOENT, "write", [&] { return krWriteToSysFile("missing", "x"); });
  expectFailure(ENOSPC, "write", [&] { return krWriteToSysFile("/dev/full", "x"); });
}

TEST_F(File, LinesAreReadByteByByte) {
  const std::pair<string, string> table[] = {
      {"ab\nc", {"ab\0c\0", 5}}, {{"\n\0x\r\n", 5}, {"\0\0x\r\0", 5}}, {"abcd\nabc\n", {"abcd\0abc\0", 9}}};
  char buffer[10];
  for (const auto& read : {fioRdString, krFioRdString}) {
    for (const auto& [bytes, stored] : table) {
      write("lines", bytes);
      const int fd = open("lines", O_RDONLY);
      string lines;
      for (int count = 0; count != -1; count = read(fd, buffer, 3)) {
        lines.append(buffer, static_cast<size_t>(count));
        if (count == 1 || count == 2) {
          EXPECT_EQ(lines.back(), '\0');
        }
      }
      EXPECT_EQ(lines, stored);
      close(fd);
    }
    // A terminal whose other side goes away gives what was written to it, and then EIO.
    int side = -1, other = -1;
    ASSERT_EQ(openpty(&side, &other, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(::write(other, "ab", 2), 2);
    ASSERT_EQ(close(other), 0);
    EXPECT_EQ(read(side, buffer, 10), read == fioRdString ? 3 : -1);
    EXPECT_EQ(read(0, nullptr, 4), 0);
  }
  EXPECT_EQ(fioRdString(0, buffer, 0), 0);
  EXPECT_EQ(errnoOf(krFioRdString(0, buffer, 0)), KR_ERR_INVALID);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  expectCancellable([&] { (void)krFioRdString(ends[0], buffer, 4); });
}

TEST_F(File, Information) {
  ASSERT_EQ(setenv("TZ", "XYZ-2", 1), 0);
  write("plain", "12345");
  const timeval times[2] = {{0, 0}, {1236117909, 0}}; // 3 March 2009 22:05:09 UTC
  fs::create_symlink("plain", ".link");
  fs::permissions("plain", fs::perms(0347));
  ASSERT_EQ(utimes("plain", times), 0);
  KrFileInfo info{};
  for (const auto& [path, attributes] : std::map<string, int>{{"./plain", 2 | 8 | 16 | 128},
                                                              {".link", 2 | 8 | 16 | 128},
                                                              {"/dev/../dev", 1 | 4 | 8 | 16},
                                                              {"/dev/null", 4 | 8},
                                                              {"plain", 2 | 8 | 16}}) {
    EXPECT_EQ(krFileStat(path.c_str(), &info), 0);
    EXPECT_EQ(info.attributes, attributes) << path;
  }
  EXPECT_STREQ(info.time, "00:05:09");
  EXPECT_STREQ(info.date, "03/04/2009");
  EXPECT_EQ(info.size, 5u);
  for (const auto& [number, expected] : {std::pair<int, int>{info.year, 2009},
                                         {info.month, 3},
                                         {info.day, 4},
                                         {info.hour, 0},
                                         {info.minute, 5},
                                         {info.second, 9}})
    EXPECT_EQ(number, expected);
  time_t modified = 1, zero = 1;
  EXPECT_EQ(krFileTimeGet("plain", &modified, &zero), 0);
  EXPECT_EQ(modified, 1236117909);
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(krFileTimeGet("plain", nullptr, nullptr), 0);

  fs::permissions("plain", fs::perms(0600));
  fs::resize_file("plain", 5'000'000'000);
  const int fd = open("plain", O_RDONLY);
  EXPECT_EQ(krFileSize("plain"), 5'000'000'000);
  EXPECT_EQ(krFileSizeByFd(fd), 5'000'000'000);
  EXPECT_EQ(krFileStat("plain", &info), 0);
  EXPECT_EQ(info.size, UINT32_MAX);
  for (const int on : {1, 0}) {
    EXPECT_EQ(krFdSetCloexecFlag(fd, on), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), on);
  }
  ASSERT_EQ(mkfifo("fifo", 0600), 0); // must not block
  EXPECT_EQ(errnoOf(krFileTimeSet("fifo")), ENOSYS);
  EXPECT_EQ(errnoOf(krFileStatAttrib("x")), ENOENT);
  expectFailures(krFdSetCloexecFlag(-1, 1), krFileSizeByFd(-1), krFileSize("x"), krFileStat("x", &info),
                 krFileFStatAttrib(fd), krFileFTimeSet(fd));
}

TEST_F(File, NullArguments) {
  KrFileInfo info{};
  KrDir dir{};
  KrDirEntry entry{};
  char buffer[300];
  KrFsStat figures{};
  expectFailures(krFileStat(nullptr, &info), krFileStat(".", nullptr), krFileSize(nullptr),
                 krFileTimeGet(nullptr, nullptr, nullptr), krFileCopy(nullptr, "x"), krFileCopy(".", nullptr),
                 krFileDelete(nullptr), krFileReadLink(nullptr, buffer, 1), krFileReadLink("x", nullptr, 1),
                 krFileSymLink(nullptr, "x"), krFileSymLink("x", nullptr), krFileStatAttrib(nullptr),
                 krFileTimeSet(nullptr), krDirOpen(nullptr, &dir), krDirOpen(".", nullptr), krDirRead(nullptr, &entry),
                 krDirRead(&dir, &entry), krDirClose(nullptr), krDirClose(&dir), krDirMake(nullptr),
                 krDirRemove(nullptr), krDirDelete(nullptr), krDirRemoveRecursively(nullptr), krDirClean(nullptr),
                 krDirCopy(nullptr, "."), krDirCopy(".", nullptr), krDirList(1, nullptr), krDirGet(nullptr),
                 krDirChange(nullptr), krFileSystemStat(nullptr, &figures), krFileSystemStat("/", nullptr),
                 krGetHostName(nullptr, 9));
  const uint64_t none[] = {krDiskPathSize(nullptr), krDiskPathFree(nullptr), krInetAddr(nullptr),
                           krGetHostByName(nullptr)};
  for (const uint64_t result : none)
    EXPECT_EQ(result, 0u);
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
  EXPECT_EQ(krFileSymLink("from", "link"), 0);
  EXPECT_EQ(krFileReadLink("link", target, 8), 4);
  EXPECT_STREQ(target, "from----");
  EXPECT_EQ(errnoOf(krFileCopy("from", "link")), EINVAL);
  EXPECT_EQ(errnoOf(krFileCopy("missing", "from")), ENOENT);
  EXPECT_EQ(errnoOf(krFileCopy(".", "from")), EISDIR);
  EXPECT_EQ(errnoOf(krFileCopy("from", "/dev/full")), ENOSPC);
  EXPECT_EQ(contents("from"), "keep");
  EXPECT_EQ(krFileDelete("link"), 0);
  EXPECT_EQ(krFileDelete("link"), -1);
}

TEST_F(File, Directories) {
  const string longest(255, 'n'), deep(200, 'd');
  fs::create_directories("from/sub/deep");
  write("from/a", "1");
  write("from/" + longest, "2");
  ASSERT_EQ(mkfifo("from/fifo", 0600), 0);
  ASSERT_EQ(mknod("from/socket", S_IFSOCK | 0600, 0), 0);
  EXPECT_EQ(errnoOf(krDirCopy("from", "to")), ENOENT);
  EXPECT_EQ(krDirMake("to"), 0);
  EXPECT_EQ(krDirCopy("from", "to"), 0);
  EXPECT_EQ(contents("to/a"), "1");
  EXPECT_EQ(contents("to/" + longest), "2");
  EXPECT_EQ(entriesOf("to"), 2);
  fs::create_symlink("nowhere", "from/link");
  EXPECT_EQ(errnoOf(krDirCopy("from", "to")), ENOENT);

  KrDir dir{};
  ASSERT_EQ(krDirOpen("from", &dir), 0);
  std::map<string, int> types;
  for (KrDirEntry entry{}; krDirRead(&dir, &entry) == 0;)
    types[entry.name] = entry.type;
  EXPECT_EQ(types,
            (std::map<string, int>{
                {".", 3}, {"..", 3}, {"sub", 3}, {"fifo", 4}, {"link", 5}, {"a", 6}, {longest, 6}, {"socket", 7}}));
  EXPECT_EQ(krDirClose(&dir), 0);
  EXPECT_EQ(krDirOpen("from/link", &dir), -1);

  EXPECT_EQ(errnoOf(krDirClean("from")), ENOTEMPTY);
  EXPECT_EQ(entriesOf("from"), 1);
  EXPECT_EQ(krDirRemove("from/sub/deep"), 0);
  EXPECT_EQ(krDirClean("from"), 0);
  EXPECT_EQ(entriesOf("from"), 0);
  const int list = open("list", O_RDWR | O_CREAT, 0600);
  EXPECT_EQ(krDirList(list, "from"), 0);
  EXPECT_EQ(contents("list").size(), 5u) << "the folder and the one above, in any order";
  expectFailures(krDirClean("missing"), krDirRemove("to"), krDirMake("to"), krDirChange("missing"),
                 krDirList(-1, "from"), krDirList(list, "missing"));
  char path[255];
  for (int depth = 0; depth < 2; ++depth) {
    EXPECT_EQ(krDirGet(path), 0);
    EXPECT_EQ(path, fs::current_path());
    EXPECT_EQ(krDirMake(deep.c_str()), 0);
    EXPECT_EQ(krDirChange(deep.c_str()), 0);
  }
  EXPECT_EQ(errnoOf(krDirGet(path)), ERANGE);
}

TEST_F(File, RemovalTakesThePathAsOneArgument) {
  write("keep", "");
  for (const auto& remove : {krDirRemoveRecursively, krDirDelete}) {
    for (const char* name :
         {"a", "-rf", "--", "a b", "$(touch n)", "x; touch n", "'", "*", "~", "\n", "\\", "`touch n`"}) {
      fs::create_directories(string("./") + name + "/deep");
      EXPECT_EQ(remove(name), 0);
      EXPECT_EQ(entriesOf("."), 1) << name;
    }
    for (const char* nothing : {"missing", ""})
      EXPECT_EQ(remove(nothing), 0);
  }
  ASSERT_EQ(setenv("PATH", "/nowhere", 1), 0);
  EXPECT_EQ(krDirDelete("keep"), -1);
}

TEST_F(File, Disks) {
  if (!whyNotIsolated().empty()) GTEST_SKIP() << whyNotIsolated();
  ASSERT_EQ(mount("tmpfs", "/opt", "tmpfs", 0, "size=1M"), 0);
  krDiskClean(); // nothing there
  fs::create_directories("/opt/tev/user/full/x");
  fs::create_directories("/opt/tev/user/empty");
  for (const char* name : {"/opt/tev/user/file", "/opt/tev/PROG.TKN", "/opt/tev/other"})
    write(name, string(5000, 'x'));
  KrFsStat figures{1, 1, 1, 1};
  EXPECT_EQ(krFileSystemStat("/opt/tev", &figures), 0);
  EXPECT_EQ(uint64_t{figures.blockSize} * figures.blocks, 1u << 20);
  EXPECT_EQ(figures.zero, 0u);
  EXPECT_EQ(krFileSystemStat("/missing", &figures), -1);
  EXPECT_EQ(krDiskSize(), (1u << 20) + fs::space("/").capacity);
  EXPECT_EQ(krDiskFree(), fs::space("/opt").free);
  EXPECT_EQ(krDiskPathSize("/missing"), 0u);
  EXPECT_EQ(krDiskPathFree("/missing"), 0u);
  krDiskClean();
  EXPECT_FALSE(fs::exists("/opt/tev/PROG.TKN"));
  for (const char* kept : {"/opt/tev/other", "/opt/tev/user/full/x"})
    EXPECT_TRUE(fs::exists(kept)) << kept;
  EXPECT_EQ(entriesOf("/opt/tev/user"), 1);
}

TEST_F(File, Addresses) {
  char buffer[256];
  krInetNtoa(htonl(0xFF020304), buffer);
  EXPECT_STREQ(buffer, "255.2.3.4");
  EXPECT_EQ(krInetAddr("255.2.3.4"), htonl(0xFF020304));
  for (const char* wrong : {"1.2.3.256", "", "host"})
    EXPECT_EQ(krInetAddr(wrong), 0u) << wrong;
  EXPECT_EQ(krGetHostName(buffer, sizeof buffer), 0);
  EXPECT_EQ(string(buffer) + "\n", contents("/proc/sys/kernel/hostname"));
  if (!whyNotIsolated().empty()) GTEST_SKIP() << whyNotIsolated();
  write("hosts", "127.0.0.1 loop both\n10.1.2.3 both\n::1 both six\n10.9.9.9 one\n");
  ASSERT_EQ(mount("hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
  for (const auto& [host, address] : std::map<string, const char*>{{"loop", "127.0.0.1"},
                                                                   {"both", "10.1.2.3"},
                                                                   {"one", "10.9.9.9"},
                                                                   {"six", "0.0.0.0"},
                                                                   {"8.7.6.5", "8.7.6.5"}})
    EXPECT_EQ(krGetHostByName(host.c_str()), krInetAddr(address)) << host;
}

TEST_F(File, FormattedOutput) {
  EXPECT_EQ(printed([] { EXPECT_EQ(krPrintf("%s-%d\n", "a", 5), 4); }), "a-5\n");
  const int fd = open("out", O_WRONLY | O_CREAT, 0600);
  Growing out("out");
  EXPECT_EQ(krFdPrintf(fd, "%c|", 0), 2);
  EXPECT_EQ(out.news(), string("\0|", 2));
  EXPECT_EQ(krFdPrintf(fd, "%02000d", 1), 1023);
  EXPECT_EQ(out.news(), string(1023, '0'));
  EXPECT_EQ(krFdPrintf(-1, "x"), -1);
}
