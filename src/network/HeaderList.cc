#include "network/HeaderList.h"

#include <string>

#include "VantrelAuthEngine64/HeaderNode.h"
#include "base/Logger.h"
#include "base/StringUtil.h"
#include "network/SecretMask.h"

namespace Vantrel {
namespace Auth {

void PushHeader(HeaderNode** list, const char* name, const char* value) {
  Header* header = new Header();
  HeaderNode* node = nullptr;
  try {
    StrAssign(&header->name, name);
    StrAssign(&header->value, value);
    node = new HeaderNode();
  } catch (...) {
    delete header;
    throw;
  }
  node->header = header;
  node->next = *list;
  *list = node;
}

void LogHeaderList(const char* where, const HeaderNode* list) {
  Logger::LogFormat(kLogLevelDebug, "%s - Printing Header(s) .....", where, nullptr, nullptr,
                    nullptr, nullptr);
  for (const HeaderNode* node = list; node != nullptr; node = node->next) {
    if (node->header == nullptr) continue;
    std::string value = LoggableHeaderValue(node->header->name, node->header->value);
    Logger::LogFormat(kLogLevelDebug, "%s - Header: %s: %s", where, node->header->name,
                      value.c_str(), nullptr, nullptr);
  }
  Logger::LogFormat(kLogLevelDebug, "%s - Printing Header(s) - Done", where, nullptr, nullptr,
                    nullptr, nullptr);
}

}  // namespace Auth
}  // namespace Vantrel
