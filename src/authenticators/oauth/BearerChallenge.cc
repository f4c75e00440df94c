#include "authenticators/oauth/BearerChallenge.h"

#include <cstring>
#include <utility>

namespace Vantrel {
namespace Auth {
namespace {

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = LowerAscii(c);
  return lower;
}

bool IsTokenChar(char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  return c != '\0' && std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

bool IsToken68Char(char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  return c != '\0' && std::strchr("-._~+/", c) != nullptr;
}

// Inside quotes: tab, space and every visible or non-ASCII byte; no control
// character (a NUL, CR or LF there is a broken or hostile header).
bool IsQuotedChar(char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  return u == '\t' || (u >= 0x20 && u != 0x7f);
}

// Walks a header value challenge by challenge. A comma ends a list element,
// which is either a parameter of the current challenge ("name=value") or the
// start of the next challenge ("scheme" and its first parameter or token68),
// so the two are told apart by the "=" after the first token.
class ChallengeReader {
 public:
  using Parameters = std::map<std::string, std::string>;

  explicit ChallengeReader(std::string_view value) : value_(value) {}

  // Reads up to the end of the first Bearer challenge. False when there is no
  // Bearer challenge or the grammar breaks before it ends.
  bool FindBearer(Parameters* parameters) {
    bool in_bearer = false;
    bool takes_parameters = false;  // false before any challenge and after a token68
    for (;;) {
      SkipSpace();
      if (AtEnd()) return in_bearer;
      if (Peek() == ',') {
        ++pos_;
        continue;
      }
      std::string_view token = ReadToken();
      if (token.empty()) return false;
      const size_t after_token = pos_;
      SkipSpace();
      const bool is_parameter = !AtEnd() && Peek() == '=';
      pos_ = after_token;
      if (is_parameter) {
        if (!takes_parameters || !ReadParameter(token, in_bearer ? parameters : nullptr)) {
          return false;
        }
      } else {
        if (in_bearer) return true;  // the next challenge begins: Bearer is whole
        in_bearer = Lower(token) == "bearer";
        if (!ReadChallengeStart(in_bearer ? parameters : nullptr, &takes_parameters)) return false;
      }
      if (!AtElementEnd()) return false;
    }
  }

 private:
  bool AtEnd() const { return pos_ >= value_.size(); }
  char Peek() const { return value_[pos_]; }

  void SkipSpace() {
    while (!AtEnd() && (Peek() == ' ' || Peek() == '\t')) ++pos_;
  }

  std::string_view ReadToken() {
    const size_t start = pos_;
    while (!AtEnd() && IsTokenChar(Peek())) ++pos_;
    return value_.substr(start, pos_ - start);
  }

  // Whitespace, then the end of the value or a comma.
  bool AtElementEnd() {
    SkipSpace();
    return AtEnd() || Peek() == ',';
  }

  // After the scheme: nothing, a token68, or the first parameter.
  bool ReadChallengeStart(Parameters* parameters, bool* takes_parameters) {
    *takes_parameters = true;
    const size_t after_scheme = pos_;
    SkipSpace();
    if (AtEnd() || Peek() == ',') return true;
    if (pos_ == after_scheme) return false;  // the scheme runs into something else
    if (SkipToken68()) {
      *takes_parameters = false;
      return true;
    }
    std::string_view name = ReadToken();
    return !name.empty() && ReadParameter(name, parameters);
  }

  // A token68 stands alone in its challenge: it is followed by the end of
  // the element. "realm=x" starts like one but goes on after its "=".
  bool SkipToken68() {
    const size_t start = pos_;
    while (!AtEnd() && IsToken68Char(Peek())) ++pos_;
    if (pos_ == start) return false;
    while (!AtEnd() && Peek() == '=') ++pos_;
    const size_t end = pos_;
    if (AtElementEnd()) {
      pos_ = end;
      return true;
    }
    pos_ = start;
    return false;
  }

  // From just after the name: "=" and a token or quoted string, whitespace
  // allowed around the "=". The first of a repeated name holds; `parameters`
  // null reads without keeping.
  bool ReadParameter(std::string_view name, Parameters* parameters) {
    SkipSpace();
    if (AtEnd() || Peek() != '=') return false;
    ++pos_;
    SkipSpace();
    std::string value;
    if (!AtEnd() && Peek() == '"') {
      if (!ReadQuoted(&value)) return false;
    } else {
      std::string_view token = ReadToken();
      if (token.empty()) return false;
      value.assign(token);
    }
    if (parameters != nullptr) parameters->emplace(Lower(name), std::move(value));
    return true;
  }

  bool ReadQuoted(std::string* value) {
    ++pos_;  // the opening quote
    while (!AtEnd()) {
      char c = value_[pos_++];
      if (c == '"') return true;
      if (c == '\\') {
        if (AtEnd()) return false;
        c = value_[pos_++];
      }
      if (!IsQuotedChar(c)) return false;
      value->push_back(c);
    }
    return false;  // unterminated
  }

  std::string_view value_;
  size_t pos_ = 0;
};

}  // namespace

bool BearerChallenge::Parse(std::string_view value, BearerChallenge* challenge) {
  challenge->Clear();
  if (ChallengeReader(value).FindBearer(&challenge->parameters_)) return true;
  challenge->Clear();
  return false;
}

std::string BearerChallenge::Get(std::string_view name) const {
  auto found = parameters_.find(Lower(name));
  return found != parameters_.end() ? found->second : std::string();
}

bool BearerChallenge::Has(std::string_view name) const {
  return parameters_.count(Lower(name)) > 0;
}

}  // namespace Auth
}  // namespace Vantrel
