#include "network/VerboseLogFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace Vantrel {
namespace Auth {
namespace {

// What may be written to. Another user's file, a FIFO or device, a hard link
// to a file of ours planted under this name, or a file that others may have
// opened for reading while it let them (a descriptor outlives a chmod): each
// would take text meant for this user alone, or lose what it holds.
bool IsPrivateRegularFile(int fd) {
  struct stat info;
  return fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
         info.st_nlink == 1 && (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// Created under a random name (O_EXCL, mode 0600) and unlinked at once: no
// one else can reach it, and nothing is left behind.
int OpenUnnamedBeside(const char* path) {
  std::string name = std::string(path) + ".XXXXXX";
  int fd = mkostemp(&name[0], O_CLOEXEC);
  if (fd >= 0) unlink(name.c_str());
  return fd;
}

FILE* StreamOf(int fd) {
  // "w+" on a descriptor truncates nothing; it only asks for both directions.
  FILE* stream = fdopen(fd, "w+");
  if (stream == nullptr) close(fd);
  return stream;
}

}  // namespace

FILE* OpenVerboseLogFile(const char* path, bool* unnamed) {
  *unnamed = false;
  // No O_TRUNC: a file about to be refused keeps what it holds. O_NONBLOCK
  // only so that a FIFO planted at the name can't hold the open up; it does
  // nothing to a regular file.
  int fd = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                S_IRUSR | S_IWUSR);
  if (fd < 0) return nullptr;
  if (!IsPrivateRegularFile(fd)) {
    close(fd);
    return nullptr;
  }
  // flock rather than fcntl locks: it belongs to the open file, so two
  // transports of one process exclude each other as well.
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    close(fd);
    // Busy with another transfer: waiting would tie this sign-in to the other
    // one's server, so this request writes to a file of its own instead.
    fd = OpenUnnamedBeside(path);
    if (fd < 0) return nullptr;
    *unnamed = true;
  } else if (ftruncate(fd, 0) != 0) {
    close(fd);
    return nullptr;
  }
  return StreamOf(fd);
}

}  // namespace Auth
}  // namespace Vantrel
