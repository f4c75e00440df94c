#include "network/NetscapeCookie.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "VantrelAuthEngine64/Cookie.h"
#include "base/SecretString.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Greedy groups: a line with more than six tabs still matches, and the extra
// tabs end up in the first field, the domain.
const char kLinePattern[] = "^(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)\\t(.*)$";
const char kHttpOnlyPrefix[] = "#HttpOnly_";

bool IsTrue(const std::string& field) { return field == "TRUE"; }

// atol's reading of the field, but defined for out-of-range text: strtol
// saturates where atol may do anything.
long ParseExpiry(const std::string& field) {
  return std::strtol(field.c_str(), nullptr, 10);
}

}  // namespace

void ParseNetscapeCookie(Cookie* cookie, const char* line) {
  if (cookie == nullptr || line == nullptr || line[0] == '\0') return;
  cookie->Reset();
  // The pattern is anchored at both ends and neither "." nor a tab matches a
  // line end, so a line that holds one cannot match. Saying so up front spares
  // the search, whose backtracking over the seven greedy groups grows with the
  // sixth power of the line's tabs before it gives up.
  if (std::strpbrk(line, "\r\n") != nullptr) return;
  std::vector<std::string> fields;
  // The last field is the cookie's value, a session.
  struct WipeFields {
    ~WipeFields() {
      for (std::string& field : *fields) WipeString(&field);
    }
    std::vector<std::string>* fields;
  } wipe{&fields};
  if (!RegexSearchGroups(line, kLinePattern, &fields) || fields.size() != 7) return;

  const std::string& domain = fields[0];
  const size_t prefix_length = sizeof(kHttpOnlyPrefix) - 1;
  // The prefix is libcurl's own marker and always spelled this way.
  if (domain.compare(0, prefix_length, kHttpOnlyPrefix) == 0) {
    cookie->EnableHttpOnly(true);
    cookie->SetDomain(domain.c_str() + prefix_length);
  } else {
    cookie->EnableHttpOnly(false);
    cookie->SetDomain(domain.c_str());
  }
  cookie->EnableTailMatch(IsTrue(fields[1]));
  cookie->SetPath(fields[2].c_str());
  cookie->EnableSecure(IsTrue(fields[3]));
  cookie->SetExpires(ParseExpiry(fields[4]));
  cookie->SetName(fields[5].c_str());
  cookie->SetValue(fields[6].c_str());
}

}  // namespace Auth
}  // namespace Vantrel
