// The file that takes libcurl's verbose text during one request, for the
// transport to read back into the log afterwards.
//
// Its name is predictable ("<folder>/authengine.<seconds>.log") and the folder
// may be one that others can write to, so nothing found at that name is
// trusted: the file is opened without following a link and used only when it
// is a private regular file of ours. Transports made in the same second with
// the same folder, in this process or another, share the name and take turns
// through a lock on the file.
#ifndef VANTREL_AUTH_NETWORK_VERBOSE_LOG_FILE_H_
#define VANTREL_AUTH_NETWORK_VERBOSE_LOG_FILE_H_

#include <cstdio>

namespace Vantrel {
namespace Auth {

// Opens `path` for writing and reading back, created with mode 0600 if it is
// missing, emptied, and locked until the stream is closed. When another
// transport holds the lock, the stream is an unnamed file in the same folder
// instead and `*unnamed` is set. Null when whatever is at `path` is refused
// (a link, not a regular file, another user's, a second name of a file, or
// open to group or others) or nothing could be opened: the request then goes
// on without capture, and the refused file is left as it was.
FILE* OpenVerboseLogFile(const char* path, bool* unnamed);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_VERBOSE_LOG_FILE_H_
