#include "network/HeaderLine.h"

#include <cstring>

#include "VantrelAuthEngine64/NetworkResult.h"
#include "base/StringUtil.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// The name is what stands before the first colon; the value needs at least
// one character, so a header with nothing behind its colon keeps the line
// feed of its line end as its value.
const char kNamePattern[] = "^\\s*([^]+?)\\s*:\\s*";
const char kValuePattern[] = ":\\s*([^]+?)[\\s\\r\\n]*$";

}  // namespace

void ParseHeaderLine(const char* data, size_t length, NetworkResult* result) {
  if (data == nullptr) return;
  // libcurl's line is neither terminated nor free of NUL bytes; the searches
  // see it up to its first NUL, like every other subject.
  char* line = new char[length + 1];
  std::memcpy(line, data, length);
  line[length] = '\0';
  char* name = nullptr;
  char* value = nullptr;
  try {
    name = RegexFirstCapture(line, kNamePattern);
    value = RegexFirstCapture(line, kValuePattern);
    if (result != nullptr && name != nullptr && name[0] != '\0') result->AddHeader(name, value);
  } catch (...) {
    StrFree(&name);
    StrFree(&value);
    delete[] line;
    throw;
  }
  StrFree(&name);
  StrFree(&value);
  delete[] line;
}

}  // namespace Auth
}  // namespace Vantrel
