// What the request and the response do alike with their header lists.
// Internal.
#ifndef VANTREL_AUTH_NETWORK_HEADER_LIST_H_
#define VANTREL_AUTH_NETWORK_HEADER_LIST_H_

namespace Vantrel {
namespace Auth {

struct HeaderNode;

// Puts a node with copies of `name` and `value` in front of `*list`, so the
// list reads newest first. A failed allocation leaves the list as it was.
void PushHeader(HeaderNode** list, const char* name, const char* value);

// The header part of a LogDump at debug level: one line per header between
// "Printing Header(s) ....." and "Printing Header(s) - Done", each line led by
// `where`.
void LogHeaderList(const char* where, const HeaderNode* list);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_HEADER_LIST_H_
