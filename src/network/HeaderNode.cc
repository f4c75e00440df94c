#include "VantrelAuthEngine64/HeaderNode.h"

namespace Vantrel {
namespace Auth {

void HeaderNode::FreeList(HeaderNode* list) {
  // Iterative: a response with thousands of header lines must not recurse.
  while (list != nullptr) {
    HeaderNode* next = list->next;
    delete list->header;
    delete list;
    list = next;
  }
}

}  // namespace Auth
}  // namespace Vantrel
