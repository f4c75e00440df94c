// The host's own Cookie.h, first on its include path: the library's headers
// share the name and must neither pick this one up nor hide it.
#ifndef HOST_COOKIE_H_
#define HOST_COOKIE_H_

struct HostCookieJar {
  int cookies = 0;
};

#endif  // HOST_COOKIE_H_
