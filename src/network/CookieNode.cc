#include "VantrelAuthEngine64/CookieNode.h"

namespace Vantrel {
namespace Auth {

void CookieNode::FreeList(CookieNode* list) {
  while (list != nullptr) {
    CookieNode* next = list->next;
    delete list->cookie;
    delete list;
    list = next;
  }
}

}  // namespace Auth
}  // namespace Vantrel
