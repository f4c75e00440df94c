#include "RegexUtil.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <regex>
#include <stdexcept>

#include "StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Subjects at least this long go through the JIT; below it compiling machine
// code costs more than interpreting the match.
const size_t kJitThreshold = 1024;
// The JIT's stack grows on demand up to this bound (reserved, not committed).
const size_t kJitStackStart = 32 * 1024;
const size_t kJitStackMax = 512 * 1024 * 1024;

// Owns one compiled pattern with its match data.
class CompiledPattern {
 public:
  explicit CompiledPattern(const char* pattern) {
    pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
    // CR and LF both end a line, so "." matches neither of them.
    pcre2_set_newline(context, PCRE2_NEWLINE_ANYCRLF);
    int error = 0;
    PCRE2_SIZE offset = 0;
    // "[^]" is any character, "$" only at the very end, case ignored.
    uint32_t options = PCRE2_CASELESS | PCRE2_ALLOW_EMPTY_CLASS | PCRE2_DOLLAR_ENDONLY;
    code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED, options,
                          &error, &offset, context);
    pcre2_compile_context_free(context);
    if (code_ == nullptr) {
      throw std::regex_error(std::regex_constants::error_badrepeat);
    }
    match_data_ = pcre2_match_data_create_from_pattern(code_, nullptr);
  }

  ~CompiledPattern() {
    pcre2_match_data_free(match_data_);
    pcre2_code_free(code_);
  }

  CompiledPattern(const CompiledPattern&) = delete;
  CompiledPattern& operator=(const CompiledPattern&) = delete;

  // Searches `subject`; true on a match. Limits are lifted so that a large
  // subject never turns a match into a silent "no match".
  bool Search(const char* subject, size_t length, size_t start_offset = 0) {
    pcre2_match_context* context = pcre2_match_context_create(nullptr);
    pcre2_set_match_limit(context, UINT32_MAX);
    pcre2_set_depth_limit(context, UINT32_MAX);
    pcre2_set_heap_limit(context, UINT32_MAX);
    int rc = PCRE2_ERROR_NOMATCH;
    bool done = false;
    if (length >= kJitThreshold && pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE) == 0) {
      pcre2_jit_stack* stack = pcre2_jit_stack_create(kJitStackStart, kJitStackMax, nullptr);
      if (stack != nullptr) {
        pcre2_jit_stack_assign(context, nullptr, stack);
        rc = pcre2_jit_match(code_, reinterpret_cast<PCRE2_SPTR>(subject), length, start_offset, 0,
                             match_data_, context);
        pcre2_jit_stack_free(stack);
        done = rc >= 0 || rc == PCRE2_ERROR_NOMATCH;
      }
    }
    if (!done) {
      // The interpreter keeps its backtracking frames on the heap, so it
      // stands in wherever the JIT could not finish.
      rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject), length, start_offset, PCRE2_NO_JIT,
                       match_data_, context);
    }
    pcre2_match_context_free(context);
    if (rc == PCRE2_ERROR_NOMATCH) return false;
    if (rc < 0) throw std::runtime_error("regular-expression search failed");
    return true;
  }

  uint32_t GroupCount() const {
    uint32_t count = 0;
    pcre2_pattern_info(code_, PCRE2_INFO_CAPTURECOUNT, &count);
    return count;
  }

  // Text of group `n` of the last match; "" if it took no part.
  std::string Group(const char* subject, uint32_t n) const {
    if (n >= pcre2_get_ovector_count(match_data_)) return std::string();
    PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match_data_);
    PCRE2_SIZE start = ovector[2 * n];
    PCRE2_SIZE end = ovector[2 * n + 1];
    if (start == PCRE2_UNSET || end < start) return std::string();
    return std::string(subject + start, end - start);
  }

  // Start and end of the whole last match.
  void MatchBounds(size_t* start, size_t* end) const {
    PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match_data_);
    *start = ovector[0];
    *end = ovector[1];
  }

 private:
  pcre2_code* code_;
  pcre2_match_data* match_data_;
};

char* NewOwnedString(const std::string& text) {
  char* copy = new char[text.size() + 1];
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

}  // namespace

char* RegexFirstCapture(const char* subject, const char* pattern) {
  if (pattern == nullptr || pattern[0] == '\0' || subject == nullptr) return nullptr;
  CompiledPattern compiled(pattern);
  if (!compiled.Search(subject, std::strlen(subject))) return nullptr;
  if (compiled.GroupCount() < 1) return nullptr;
  return NewOwnedString(compiled.Group(subject, 1));
}

char* ExtractXmlElement(const char* xml, const char* word, bool whole) {
  if (xml == nullptr || xml[0] == '\0' || word == nullptr || word[0] == '\0') return nullptr;
  const char* format = whole ? "(<[^<]*%s[^>]*>[^]+</[^<]*%s[^>]*>)"
                             : "<[^<]*%s[^>]*>([^]+)</[^<]*%s[^>]*>";
  size_t size = std::strlen(format) + 2 * std::strlen(word) + 1;
  char* pattern = new char[size];
  std::snprintf(pattern, size, format, word, word);
  char* result = nullptr;
  try {
    result = RegexFirstCapture(xml, pattern);
  } catch (...) {
    delete[] pattern;
    throw;
  }
  delete[] pattern;
  return result;
}

bool RegexSearchGroups(const char* subject, const char* pattern, std::vector<std::string>* groups) {
  groups->clear();
  if (pattern == nullptr || pattern[0] == '\0' || subject == nullptr) return false;
  CompiledPattern compiled(pattern);
  if (!compiled.Search(subject, std::strlen(subject))) return false;
  uint32_t count = compiled.GroupCount();
  for (uint32_t n = 1; n <= count; ++n) groups->push_back(compiled.Group(subject, n));
  return true;
}

std::string RegexRemoveAll(const std::string& subject, const char* pattern) {
  // Operates on the text up to its first NUL, like every search here.
  const char* text = subject.c_str();
  size_t length = std::strlen(text);
  CompiledPattern compiled(pattern);
  std::string out;
  size_t copied = 0;  // text[0, copied) is settled
  size_t from = 0;    // where the next search starts
  while (from <= length && compiled.Search(text, length, from)) {
    size_t start = 0, end = 0;
    compiled.MatchBounds(&start, &end);
    out.append(text + copied, start - copied);
    copied = end;
    // An empty match removes nothing; the next search starts one further on.
    from = end > start ? end : end + 1;
  }
  if (copied < length) out.append(text + copied, length - copied);
  return out;
}

}  // namespace Auth
}  // namespace Vantrel
