// Helpers of the option tests: output capture, lexers over strings, and
// building list values.
#pragma once

#include <csetjmp>
#include <string>
#include <vector>

#include "vqutil/error.h"
#include "vqutil/lex.h"
#include "vqutil/option.h"
#include "support/output_capture.hpp"
#include "vqutil/output.h"

#define OPT_EXPECT_ASSERTION VQTEST_EXPECT_ASSERTION


namespace opttest {

using vqtest::CapturePrint;
using vqtest::Captured;
using vqtest::OutputCapture;

enum class ParseEnd { Committed, Refused, LexError };

// Runs DutOptionParseValue over text with the quiet long-jump error
// function. The frame holding the setjmp owns nothing with a destructor.
inline ParseEnd Parse(D_OPTION *option, const char *text) {
  std::jmp_buf jump;
  D_LEX *volatile lexer = nullptr;
  if (setjmp(jump) == D_LEX_JUMP_VALUE) return ParseEnd::LexError;
  lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
                       D_LEX_ATT_ERROR_ARG, static_cast<void *>(&jump), 0);
  D_BOOL ok = DutOptionParseValue(option, lexer);
  DutLexDestroy(lexer);
  return ok ? ParseEnd::Committed : ParseEnd::Refused;
}

// Nodes over caller-owned strings, linked in order.
class NodeChain {
 public:
  explicit NodeChain(std::vector<std::string> items) : items_(std::move(items)), nodes_(items_.size()) {
    for (size_t i = 0; i < items_.size(); ++i) {
      nodes_[i].str = items_[i].c_str();
      nodes_[i].next = i + 1 < items_.size() ? &nodes_[i + 1] : nullptr;
    }
  }
  const D_OPTION_STR_NODE *first() const { return nodes_.empty() ? nullptr : &nodes_[0]; }
  D_OPTION_STR_NODE &node(size_t i) { return nodes_[i]; }

 private:
  std::vector<std::string> items_;
  std::vector<D_OPTION_STR_NODE> nodes_;
};

// The stored value of a numeric option.
inline D_REAL8 Num(D_OPTION *option) { return *static_cast<D_REAL8 *>(D_GOPT_VALUE(option)); }
inline const char *Stored(D_OPTION *option) {
  return static_cast<const char *>(D_GOPT_VALUE(option));
}

inline std::vector<std::string> Items(const D_OPTION_STR_NODE *node) {
  std::vector<std::string> out;
  for (; node != nullptr; node = node->next) out.emplace_back(node->str);
  return out;
}

}  // namespace opttest
