// Files, directories and disks: one convention over the system's calls.
//
// A call returns 0 (or a count, a size, a value) on success and -1 on failure, with the system's reason in errno. A
// null argument is answered with -1 and errno KR_ERR_INVALID, where nothing else is said. Nothing is retried. Paths may
// be of any length the system takes; relative ones start from the current directory of the process.
//
// All calls are safe from any thread. On a thread that may be cancelled, a cancellation waits until the call is
// through, but takes effect where the call may wait for ever: while it reads or writes, opens a pipe or a device,
// prints, or waits for a command. The call leaves no descriptor, no lock and no memory behind then, except for a
// descriptor that the system opens in the moment of the cancellation. Not cancelled are krGetHostByName, and what a
// file system that does not answer keeps waiting in any other way.
#ifndef TEV_PLATFORM_KRFILE_H
#define TEV_PLATFORM_KRFILE_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <dirent.h>
#include <sys/types.h>

// ---- Device attributes (sysfs)

/// Reads an attribute file in one read, past all caches where its file system knows how to. Returns the number of bytes
/// read, at most `length`; no terminator is added. -1, with a line on standard error, when the file cannot be opened or
/// the read fails or gives nothing (errno ENODATA).
int krReadFromSysFile(const char* path, char* buffer, int length);

/// Writes `text` without its terminator to an existing attribute file, in one write that returns when the device has
/// it. Returns the number of bytes written; -1, with a line on standard error, on failure.
int krWriteToSysFile(const char* path, const char* text);

// ---- Lines from a descriptor

/// Reads one line byte by byte, so that nothing behind it is consumed. A line feed or NUL ends the line and is stored
/// as a terminator; so is the end of the file after at least one byte. Returns the number of bytes stored, the
/// terminator included. A line of `size` bytes or more fills the buffer WITHOUT a terminator, and the rest of it is
/// left for the next call. -1 at the end of the file, or on a read error, before any byte. 0 for a null buffer or no
/// room.
int fioRdString(int fd, char* buffer, int size);

/// The same, except that a size of 0 or less is -1 (errno KR_ERR_INVALID), and so is a read error behind some bytes.
int krFioRdString(int fd, char* buffer, int size);

// ---- Files

constexpr uint16_t KR_FILE_KIND = 0x03; ///< mask of the kind: one of the next two, or 0
constexpr uint16_t KR_FILE_DIRECTORY = 0x01;
constexpr uint16_t KR_FILE_REGULAR = 0x02;
constexpr uint16_t KR_FILE_READ = 0x04; ///< the owner may read, write, execute
constexpr uint16_t KR_FILE_WRITE = 0x08;
constexpr uint16_t KR_FILE_EXECUTE = 0x10;
constexpr uint16_t KR_FILE_HIDDEN = 0x80; ///< the path, as it was given, begins with "."

/// What is known of a file. Times are those of its last modification, in local time.
struct KrFileInfo {
  uint16_t attributes; ///< KR_FILE_ bits
  uint32_t size;       ///< bytes; 4,294,967,295 stands for that and more
  char time[10];       ///< "hh:mm:ss"
  char date[12];       ///< "MM/DD/YYYY"
  uint8_t month;       ///< 1 to 12
  uint8_t day;
  uint16_t year;
  uint8_t hour;
  uint8_t minute;
  uint8_t second;
};

/// Examines a file; a symbolic link stands for its target.
int krFileStat(const char* path, KrFileInfo* info);

/// Size of a file in bytes, also beyond 2 GiB; -1 on failure.
int64_t krFileSize(const char* path);
int64_t krFileSizeByFd(int fd);

/// Stores the time of the last modification (seconds since the epoch) and 0. Either address may be null.
int krFileTimeGet(const char* path, time_t* modified, time_t* zero);

/// Copies the contents of a file to another, which is created or replaced. -1 also when not every byte could be read or
/// written; the destination is then incomplete. A file is not copied onto itself (errno EINVAL).
int krFileCopy(const char* from, const char* to);

/// unlink(2), readlink(2) (no terminator is stored) and symlink(2).
int krFileDelete(const char* path);
ssize_t krFileReadLink(const char* path, char* buffer, size_t size);
int krFileSymLink(const char* target, const char* link);

/// Not available on this platform: always -1, with errno ENOSYS if the file could be opened.
int krFileStatAttrib(const char* path);
int krFileTimeSet(const char* path);

/// Not available on this platform: always -1 with errno ENOSYS.
int krFileFStatAttrib(int fd);
int krFileFTimeSet(int fd);

/// Sets (`on` not 0) or clears the close-on-exec flag of a descriptor and leaves its other flags alone.
int krFdSetCloexecFlag(int fd, int on);

// ---- Directories

/// An open directory, in the caller's memory from krDirOpen to krDirClose.
struct KrDir {
  DIR* stream;
};

constexpr uint16_t KR_DIR_UNKNOWN = 0; ///< the file system does not tell
constexpr uint16_t KR_DIR_BLOCK = 1;
constexpr uint16_t KR_DIR_CHARACTER = 2;
constexpr uint16_t KR_DIR_DIRECTORY = 3;
constexpr uint16_t KR_DIR_FIFO = 4;
constexpr uint16_t KR_DIR_LINK = 5;
constexpr uint16_t KR_DIR_REGULAR = 6;
constexpr uint16_t KR_DIR_SOCKET = 7;

struct KrDirEntry {
  char name[257];
  uint16_t type; ///< one of KR_DIR_
};

/// Opens a directory. On failure `dir` holds nothing that needs closing.
int krDirOpen(const char* path, KrDir* dir);

/// The next entry, "." and ".." included; -1 at the end. The type of an entry of a kind without a code is left as it
/// was. Threads that share one handle take turns by means of their own.
int krDirRead(KrDir* dir, KrDirEntry* entry);

/// Closes a directory; -1 if it is not open.
int krDirClose(KrDir* dir);

/// Creates a directory with mode 0755 (less the process's mask), or removes an empty one.
int krDirMake(const char* path);
int krDirRemove(const char* path);

/// Both run "rm -rf" on the path, which may hold any characters. -1 only if the shell or the command cannot be run; how
/// the command fares is not examined.
int krDirRemoveRecursively(const char* path);
int krDirDelete(const char* path);

/// Removes the files and empty directories in a directory. -1 if it cannot be opened or an entry is left; the other
/// entries are gone all the same.
int krDirClean(const char* path);

/// Copies the regular files in a directory (not those in its subdirectories) into another, existing one, under the same
/// names. Stops with -1 at the first entry that cannot be examined or copied.
int krDirCopy(const char* from, const char* to);

/// Writes the name of each entry, "." and ".." included, and a line feed to a descriptor.
int krDirList(int fd, const char* path);

/// Stores the current directory in a buffer of at least 255 bytes. -1 with errno ERANGE if it does not fit into 255.
int krDirGet(char* buffer);

int krDirChange(const char* path);

// ---- Disks

/// Figures of a file system; 4,294,967,295 stands for that and more.
struct KrFsStat {
  uint32_t zero;
  uint32_t blockSize; ///< bytes
  uint32_t blocks;
  uint32_t freeBlocks;
};

int krFileSystemStat(const char* path, KrFsStat* figures);

/// Size, and free space, in bytes of the file system on which `path` lies; 0 if it cannot be examined.
uint64_t krDiskPathSize(const char* path);
uint64_t krDiskPathFree(const char* path);

/// Size of the user disk (/opt/tev/user/) plus that of the root file system; free space on the user disk. In bytes.
uint64_t krDiskSize();
uint64_t krDiskFree();

/// Removes the files and empty directories on the user disk, and then the program token /opt/tev/PROG.TKN. Does nothing
/// if there is no user disk.
void krDiskClean();

#endif
