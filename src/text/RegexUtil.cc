#include "text/RegexUtil.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <regex>

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// Every search starts in the interpreter, which needs no preparation, with a
// budget of backtracking steps. The parse of a header line takes 20 to 150
// steps at some 12 ns each, and ends within it. A search that runs out goes to
// the JIT, whose compile costs 4 to 8 us and whose steps are ten times
// cheaper: the seven greedy groups of a cookie line take 3,000 steps for 80
// bytes, 36 us interpreted against 12 us compiled. A budget of about half the
// compile keeps a search within twice its cheaper way. A subject of 4 KB or
// more costs the interpreter more than the compile even in a single pass, and
// goes to the JIT at once.
const uint32_t kInterpreterBudget = 250;
const size_t kJitThreshold = 4096;
// The JIT stack is reserved address space, committed page by page as a match
// needs it, so a generous bound costs nothing for ordinary subjects.
const size_t kJitStackStart = 32 * 1024;
const size_t kJitStackMax = 64 * 1024 * 1024;

// "." outside a class becomes "[^\n\r]". PCRE2 makes "." stop at both CR and LF
// only under a newline setting that counts both, and such a setting also makes an
// unanchored search step over the LF of a CRLF, losing matches that begin
// there (such as "\s(b)" in "a\r\nb"). With LF as the newline, the translated
// class gives ECMAScript's "." and the search tries every position. The
// pattern itself says so with a leading "(*LF)", which spares each compile a
// context of its own.
std::string TranslatePattern(const char* pattern) {
  std::string out = "(*LF)";
  out.reserve(std::strlen(pattern) + 32);
  const char* p = pattern;
  while (*p != '\0') {
    char c = *p;
    if (c == '\\') {
      out += *p++;
      if (*p != '\0') out += *p++;
      continue;
    }
    if (c == '.') {
      out += "[^\\n\\r]";
      ++p;
      continue;
    }
    if (c != '[') {
      out += *p++;
      continue;
    }
    // A class: copied as it is up to its closing bracket. A "]" right behind
    // "[" or "[^" closes an empty class, as in ECMAScript.
    out += *p++;
    if (*p == '^') out += *p++;
    if (*p == ']') {
      out += *p++;
      continue;
    }
    while (*p != '\0' && *p != ']') {
      if (*p == '\\') {
        out += *p++;
        if (*p != '\0') out += *p++;
      } else if (*p == '[' && (p[1] == ':' || p[1] == '.' || p[1] == '=')) {
        // A POSIX item such as "[:alpha:]" holds a "]" of its own.
        char kind = p[1];
        const char* close = p + 2;
        while (*close != '\0' && !(close[0] == kind && close[1] == ']')) ++close;
        const char* end = *close != '\0' ? close + 2 : close;
        out.append(p, end - p);
        p = end;
      } else {
        out += *p++;
      }
    }
    if (*p == ']') out += *p++;
  }
  return out;
}

std::regex_constants::error_type CompileErrorType(int error) {
  switch (error) {
    case PCRE2_ERROR_MISSING_SQUARE_BRACKET:
      return std::regex_constants::error_brack;
    case PCRE2_ERROR_MISSING_CLOSING_PARENTHESIS:
    case PCRE2_ERROR_UNMATCHED_CLOSING_PARENTHESIS:
      return std::regex_constants::error_paren;
    case PCRE2_ERROR_QUANTIFIER_OUT_OF_ORDER:
    case PCRE2_ERROR_QUANTIFIER_TOO_BIG:
      return std::regex_constants::error_badbrace;
    case PCRE2_ERROR_CLASS_RANGE_ORDER:
    case PCRE2_ERROR_CLASS_INVALID_RANGE:
      return std::regex_constants::error_range;
    case PCRE2_ERROR_END_BACKSLASH:
    case PCRE2_ERROR_UNKNOWN_ESCAPE:
    case PCRE2_ERROR_ESCAPE_INVALID_IN_CLASS:
      return std::regex_constants::error_escape;
    case PCRE2_ERROR_BAD_SUBPATTERN_REFERENCE:
    case PCRE2_ERROR_BAD_RELATIVE_REFERENCE:
      return std::regex_constants::error_backref;
    case PCRE2_ERROR_NOMEMORY:
      return std::regex_constants::error_space;
    default:  // mostly misplaced quantifiers and malformed groups
      return std::regex_constants::error_badrepeat;
  }
}

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};
struct MatchContextDeleter {
  void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
};
struct JitStackDeleter {
  void operator()(pcre2_jit_stack* stack) const { pcre2_jit_stack_free(stack); }
};

// One compiled pattern with its match data, for the length of one call.
class CompiledPattern {
 public:
  explicit CompiledPattern(const char* pattern) {
    std::string translated = TranslatePattern(pattern);
    int error = 0;
    PCRE2_SIZE offset = 0;
    const uint32_t options = PCRE2_CASELESS | PCRE2_ALLOW_EMPTY_CLASS | PCRE2_DOLLAR_ENDONLY;
    code_.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(translated.c_str()), translated.size(),
                              options, &error, &offset, nullptr));
    // The standard engine's exception: callers and hosts see one type for a
    // pattern that doesn't compile, whichever engine stands behind it.
    if (!code_) throw std::regex_error(CompileErrorType(error));
    match_data_.reset(pcre2_match_data_create_from_pattern(code_.get(), nullptr));
    if (!match_data_) throw std::bad_alloc();
  }

  CompiledPattern(const CompiledPattern&) = delete;
  CompiledPattern& operator=(const CompiledPattern&) = delete;

  // Searches subject[start_offset, length); true on a match. `options` may
  // add PCRE2_ANCHORED and PCRE2_NOTEMPTY_ATSTART.
  bool Search(const char* subject, size_t length, size_t start_offset, uint32_t options) {
    PCRE2_SPTR text = reinterpret_cast<PCRE2_SPTR>(subject);
    int rc = PCRE2_ERROR_MATCHLIMIT;  // not searched yet
    if (length < kJitThreshold) {
      rc = pcre2_match(code_.get(), text, length, start_offset, options | PCRE2_NO_JIT,
                       match_data_.get(), BudgetContext());
    }
    bool finished = rc != PCRE2_ERROR_MATCHLIMIT;
    if (!finished && EnsureJit()) {
      rc = pcre2_match(code_.get(), text, length, start_offset, options, match_data_.get(),
                       Context());
      finished = rc != PCRE2_ERROR_JIT_STACKLIMIT && rc != PCRE2_ERROR_NOMEMORY;
    }
    if (!finished) {
      // The interpreter keeps its backtracking frames on the heap: it
      // finishes what the JIT could not, or stands in where there is no JIT.
      rc = pcre2_match(code_.get(), text, length, start_offset, options | PCRE2_NO_JIT,
                       match_data_.get(), Context());
    }
    if (rc >= 0) return true;
    if (rc == PCRE2_ERROR_NOMATCH) return false;
    // Never a silent "no match": a search that could not finish raises what
    // the standard engine raises for the same cases, or the allocator's error.
    if (rc == PCRE2_ERROR_NOMEMORY) throw std::bad_alloc();
    if (rc == PCRE2_ERROR_MATCHLIMIT) throw std::regex_error(std::regex_constants::error_complexity);
    throw std::regex_error(std::regex_constants::error_stack);
  }

  uint32_t GroupCount() const {
    uint32_t count = 0;
    pcre2_pattern_info(code_.get(), PCRE2_INFO_CAPTURECOUNT, &count);
    return count;
  }

  // Bounds of group `n` of the last match; false if it took no part.
  bool GroupBounds(uint32_t n, size_t* start, size_t* end) const {
    if (n >= pcre2_get_ovector_count(match_data_.get())) return false;
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match_data_.get());
    *start = ovector[2 * n];
    *end = ovector[2 * n + 1];
    return *start != PCRE2_UNSET && *end >= *start;
  }

 private:
  pcre2_match_context* Context() {
    if (!context_) {
      context_.reset(pcre2_match_context_create(nullptr));
      if (!context_) throw std::bad_alloc();
      // The default limits end a greedy "[^]+" over a few megabytes; only the
      // memory of the machine bounds a search here, as it bounds std::regex.
      pcre2_set_match_limit(context_.get(), UINT32_MAX);
      pcre2_set_depth_limit(context_.get(), UINT32_MAX);
      pcre2_set_heap_limit(context_.get(), UINT32_MAX);
    }
    return context_.get();
  }

  // Compiles the machine code on first use and gives it the thread's stack;
  // false where the JIT is not to be had.
  bool EnsureJit() {
    if (!jit_tried_) {
      jit_tried_ = true;
      if (pcre2_jit_compile(code_.get(), PCRE2_JIT_COMPLETE) != 0) return false;
      pcre2_jit_stack* stack = ThreadJitStack();
      if (stack == nullptr) return false;
      pcre2_jit_stack_assign(Context(), nullptr, stack);
      jit_ready_ = true;
    }
    return jit_ready_;
  }

  // The limits of the first, interpreted attempt. Never changed once made,
  // so every thread may read it.
  static pcre2_match_context* BudgetContext() {
    static const std::unique_ptr<pcre2_match_context, MatchContextDeleter> context = [] {
      std::unique_ptr<pcre2_match_context, MatchContextDeleter> made(
          pcre2_match_context_create(nullptr));
      if (made) pcre2_set_match_limit(made.get(), kInterpreterBudget);
      return made;
    }();
    return context.get();
  }

  // Without a stack of its own the JIT would work on the caller's machine
  // stack, which may be a small thread's. Making one costs about as much as
  // compiling a pattern (it maps its whole bound), so each thread keeps one
  // for all its searches; a JIT stack serves one match at a time, and a
  // thread runs one at a time.
  static pcre2_jit_stack* ThreadJitStack() {
    thread_local std::unique_ptr<pcre2_jit_stack, JitStackDeleter> stack(
        pcre2_jit_stack_create(kJitStackStart, kJitStackMax, nullptr));
    return stack.get();
  }

  std::unique_ptr<pcre2_code, CodeDeleter> code_;
  std::unique_ptr<pcre2_match_data, MatchDataDeleter> match_data_;
  std::unique_ptr<pcre2_match_context, MatchContextDeleter> context_;
  bool jit_tried_ = false;
  bool jit_ready_ = false;
};

char* NewOwnedString(const char* text, size_t length) {
  char* copy = new char[length + 1];
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

}  // namespace

char* RegexFirstCapture(const char* subject, const char* pattern) {
  if (pattern == nullptr || pattern[0] == '\0' || subject == nullptr) return nullptr;
  CompiledPattern compiled(pattern);
  if (!compiled.Search(subject, std::strlen(subject), 0, 0)) return nullptr;
  if (compiled.GroupCount() < 1) return nullptr;
  size_t start = 0, end = 0;
  if (!compiled.GroupBounds(1, &start, &end)) return NewOwnedString("", 0);
  return NewOwnedString(subject + start, end - start);
}

char* ExtractXmlElement(const char* xml, const char* word, bool whole) {
  if (xml == nullptr || xml[0] == '\0' || word == nullptr || word[0] == '\0') return nullptr;
  const char* format = whole ? "(<[^<]*%s[^>]*>[^]+</[^<]*%s[^>]*>)"
                             : "<[^<]*%s[^>]*>([^]+)</[^<]*%s[^>]*>";
  size_t size = std::strlen(format) + 2 * std::strlen(word) + 1;
  std::unique_ptr<char[]> pattern(new char[size]);
  std::snprintf(pattern.get(), size, format, word, word);
  return RegexFirstCapture(xml, pattern.get());
}

bool RegexSearchGroups(const char* subject, const char* pattern, std::vector<std::string>* groups) {
  groups->clear();
  if (pattern == nullptr || pattern[0] == '\0' || subject == nullptr) return false;
  CompiledPattern compiled(pattern);
  if (!compiled.Search(subject, std::strlen(subject), 0, 0)) return false;
  uint32_t count = compiled.GroupCount();
  // Room for all at once: a vector that grows moves short texts out of
  // buffers that it frees unwiped, and a caller may wipe what it got.
  groups->reserve(count);
  for (uint32_t n = 1; n <= count; ++n) {
    size_t start = 0, end = 0;
    if (compiled.GroupBounds(n, &start, &end)) {
      groups->emplace_back(subject + start, end - start);
    } else {
      groups->emplace_back();
    }
  }
  return true;
}

std::string RegexRemoveAll(const std::string& subject, const char* pattern) {
  const char* text = subject.c_str();
  size_t length = std::strlen(text);
  // An empty pattern matches only empty texts, and those remove nothing.
  if (pattern == nullptr || pattern[0] == '\0') return std::string(text, length);
  CompiledPattern compiled(pattern);
  std::string out;
  size_t copied = 0;  // text[0, copied) is settled
  size_t from = 0;    // where the next search starts
  uint32_t options = 0;
  // The walk of std::regex_iterator: after an empty match the same place is
  // tried once more for a non-empty match anchored there, and only then is
  // one character stepped over.
  while (from <= length) {
    if (!compiled.Search(text, length, from, options)) {
      if (options == 0) break;
      options = 0;
      ++from;
      continue;
    }
    size_t start = 0, end = 0;
    compiled.GroupBounds(0, &start, &end);
    out.append(text + copied, start - copied);
    copied = end;
    from = end;
    if (end == start) {
      if (end == length) break;
      options = PCRE2_ANCHORED | PCRE2_NOTEMPTY_ATSTART;
    } else {
      options = 0;
    }
  }
  out.append(text + copied, length - copied);
  return out;
}

}  // namespace Auth
}  // namespace Vantrel
