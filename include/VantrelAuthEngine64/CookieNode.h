// CookieNode: one node of a singly linked cookie list.
#ifndef VANTREL_AUTH_COOKIE_NODE_H_
#define VANTREL_AUTH_COOKIE_NODE_H_

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/Cookie.h"

namespace Vantrel {
namespace Auth {

struct VANTREL_AUTH_EXPORT CookieNode {
  Cookie* cookie;    // owned by the node
  CookieNode* next;  // next node, or null

  // Deletes every node from `list` on, with its Cookie.
  static void FreeList(CookieNode* list);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_COOKIE_NODE_H_
