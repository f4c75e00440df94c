// Raw header lines as libcurl hands them over: any bytes, no terminator.
#include <cstdint>
#include <string>

#include "HeaderLine.h"
#include "NetworkResult.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  NetworkResult result;
  ParseHeaderLine(reinterpret_cast<const char*>(data), size, &result);
  for (HeaderNode* node = result.GetHeaders(); node != nullptr; node = node->next) {
    if (node->header->name != nullptr) result.GetHeader(node->header->name);
  }
  ParseHeaderLine(reinterpret_cast<const char*>(data), size, nullptr);
  return 0;
}
