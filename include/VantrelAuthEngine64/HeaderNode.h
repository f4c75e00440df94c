// HeaderNode: one node of a singly linked header list, newest first.
#ifndef VANTREL_AUTH_HEADER_NODE_H_
#define VANTREL_AUTH_HEADER_NODE_H_

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/Header.h"

namespace Vantrel {
namespace Auth {

struct VANTREL_AUTH_EXPORT HeaderNode {
  Header* header;    // owned by the node
  HeaderNode* next;  // next node, or null

  // Deletes every node from `list` on, with its Header.
  static void FreeList(HeaderNode* list);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_HEADER_NODE_H_
