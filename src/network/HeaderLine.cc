#include "network/HeaderLine.h"

#include <cstring>

#include "VantrelAuthEngine64/NetworkResult.h"
#include "base/SecretString.h"
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
  // see it up to its first NUL, like every other subject. Line and value are
  // wiped when they go: a Set-Cookie line carries a session.
  OwnedSecret line(new char[length + 1]);
  std::memcpy(line.get(), data, length);
  line[length] = '\0';
  OwnedString name(RegexFirstCapture(line.get(), kNamePattern));
  OwnedSecret value(RegexFirstCapture(line.get(), kValuePattern));
  if (result != nullptr && name && name[0] != '\0') result->AddHeader(name.get(), value.get());
  // The bytes behind a NUL inside the line are out of the deleter's sight.
  WipeMemory(line.get(), length);
}

}  // namespace Auth
}  // namespace Vantrel
