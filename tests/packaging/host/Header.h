// The host's own Header.h, like its Cookie.h.
#ifndef HOST_HEADER_H_
#define HOST_HEADER_H_

struct HostHeader {
  const char* name = "X-Host";
};

#endif  // HOST_HEADER_H_
