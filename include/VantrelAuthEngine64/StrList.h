// StrList: a singly linked list of strings, for hosts.
//
// The caller holds the head; an empty list is null. Nodes and their texts
// belong to the list and are released only by StrList::Free.
#ifndef VANTREL_AUTH_STR_LIST_H_
#define VANTREL_AUTH_STR_LIST_H_

#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

struct VANTREL_AUTH_EXPORT StrList {
  char* str;      // this node's own copy of the text, or null
  StrList* next;  // rest of the list, or null

  // Puts a new node holding a copy of `text` (null allowed) in FRONT of
  // `list` and returns it: the new head. Successive appends read newest first.
  static StrList* Append(StrList* list, const char* text);
  // Releases every node from `list` on, with its text. Null is allowed.
  static void Free(StrList* list);

  // Copies both fields: the two nodes then share text and tail, and only one
  // of them may be passed to Free.
  StrList& operator=(const StrList& other);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_STR_LIST_H_
