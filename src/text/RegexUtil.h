// Regular-expression searches over raw text.
//
// One dialect everywhere: ECMAScript-like, case-insensitive, "[^]" matches any
// character, "." matches neither CR nor LF, "$" only at the very end, search for
// the leftmost match, subject up to its first NUL byte. Patterns are compiled
// at every call; nothing is cached. A pattern that doesn't compile throws
// std::regex_error, and so does a search that cannot finish (error_complexity,
// error_stack); running out of memory throws std::bad_alloc. A search never
// turns such a failure into "no match". PCRE2 stays behind this header.
#ifndef VANTREL_AUTH_TEXT_REGEX_UTIL_H_
#define VANTREL_AUTH_TEXT_REGEX_UTIL_H_

#include <string>
#include <vector>

namespace Vantrel {
namespace Auth {

// Group 1 of the first match as a new owned string; "" if group 1 took no part
// or matched nothing. Null if subject or pattern is null, pattern is empty,
// nothing matches, or the pattern has no group.
char* RegexFirstCapture(const char* subject, const char* pattern);

// Text of the element whose tag name holds `word`: the inner text (whole ==
// false) or the element with its tags. Null for null/empty input or no match.
char* ExtractXmlElement(const char* xml, const char* word, bool whole);

// Searches `subject` once; on a match fills `groups` with groups 1..n (a group
// that took no part gives "") and returns true.
bool RegexSearchGroups(const char* subject, const char* pattern, std::vector<std::string>* groups);

// Removes every match of `pattern` from `subject`.
std::string RegexRemoveAll(const std::string& subject, const char* pattern);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_TEXT_REGEX_UTIL_H_
