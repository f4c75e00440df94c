#include "VantrelAuthEngine64/StrList.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace Vantrel {
namespace Auth {

// Nodes and their texts are allocated singly (not as arrays), which is why a
// node's text is not an owned string in the StrFree sense.
StrList* StrList::Append(StrList* list, const char* text) {
  StrList* node = new StrList;
  node->str = nullptr;
  node->next = list;
  if (text != nullptr) {
    size_t size = std::strlen(text) + 1;
    node->str = static_cast<char*>(std::malloc(size));
    if (node->str == nullptr) {
      delete node;
      throw std::bad_alloc();
    }
    std::memcpy(node->str, text, size);
  }
  return node;
}

void StrList::Free(StrList* list) {
  while (list != nullptr) {
    StrList* next = list->next;
    std::free(list->str);
    delete list;
    list = next;
  }
}

StrList& StrList::operator=(const StrList& other) {
  str = other.str;
  next = other.next;
  return *this;
}

}  // namespace Auth
}  // namespace Vantrel
