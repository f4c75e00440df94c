// Symbol visibility for the library's exported interface.
//
// The library is built with hidden visibility; only declarations marked with
// VANTREL_AUTH_EXPORT reach the dynamic symbol table. Hosts see the same macro
// as a no-op-equivalent default-visibility attribute, which is harmless.
#ifndef VANTREL_AUTH_AUTH_EXPORT_H_
#define VANTREL_AUTH_AUTH_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define VANTREL_AUTH_EXPORT __attribute__((visibility("default")))
#else
#define VANTREL_AUTH_EXPORT
#endif

#endif  // VANTREL_AUTH_AUTH_EXPORT_H_
