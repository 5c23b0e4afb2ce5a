// Files, directories, disks, host names and formatted output.
#ifndef TEV_PLATFORM_KRFILE_H
#define TEV_PLATFORM_KRFILE_H
#endif
