// Error-message files and the reports with numbered parameters built on
// them.
//
// The messages of every open file live in a process-wide list (newest file
// last) guarded by the process-wide lock; a report copies its message out
// under the lock and formats and prints outside it. Parameters are per
// thread, under a key of their own: the next report takes them, and the
// key's clean-up frees what a thread leaves set when it ends.
#include <algorithm>
#include <csetjmp>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "errors/restore.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/hash.h"
#include "vqutil/init.h"
#include "vqutil/output.h"

namespace {

struct Message {
  D_INT4 severity;
  std::string text;
};

// One loaded file: its messages, and a table from number to position + 1
// (the table reads 0 for a number it does not hold).
struct MessageFile {
  std::string name;
  std::vector<Message> messages;
  D_HASH_TABLE *index = nullptr;
};

// Guarded by the process-wide lock; made by the first open and freed when
// the last file closes, so that a program that never opens one (or closes
// all it opened) leaves nothing behind at exit.
std::vector<MessageFile> *utOpenFiles = nullptr;

// ---- Reading a file -------------------------------------------------------

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// A decimal number at the front of rest (optional sign), which it leaves
// behind; false when there is none or it does not fit 32 bits.
bool takeNumber(std::string_view &rest, D_INT4 *value) {
  std::size_t i = 0;
  bool negative = false;
  if (i < rest.size() && (rest[i] == '-' || rest[i] == '+')) negative = rest[i++] == '-';
  std::int64_t n = 0;
  std::size_t first = i;
  for (; i < rest.size() && rest[i] >= '0' && rest[i] <= '9'; ++i) {
    n = n * 10 + (rest[i] - '0');
    if (n > INT32_MAX + std::int64_t{1}) return false;
  }
  if (i == first || (!negative && n > INT32_MAX)) return false;
  *value = static_cast<D_INT4>(negative ? -n : n);
  rest.remove_prefix(i);
  return true;
}

void skipBlanks(std::string_view &rest) {
  while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
}

// What is wrong with a line, or null when it is a message (stored in *out)
// or nothing (a comment or blank line: *out's text left empty).
const char *parseLine(std::string_view line, D_INT4 *number, Message *out) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || isBlank(line.back()))) line.remove_suffix(1);
  std::string_view rest = line;
  skipBlanks(rest);
  if (rest.empty() || rest.front() == '#') return nullptr;
  auto fieldEnds = [&rest] { return rest.empty() || isBlank(rest.front()); };
  if (!takeNumber(rest, number) || !fieldEnds()) return "no message number";
  skipBlanks(rest);
  if (!takeNumber(rest, &out->severity) || out->severity < 0 || !fieldEnds()) return "no severity";
  skipBlanks(rest);
  if (rest.empty()) return "no text";
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] != '%') continue;
    if (i + 1 < rest.size() && (rest[i + 1] == '%' || (rest[i + 1] >= '1' && rest[i + 1] <= '9'))) {
      ++i;
      continue;
    }
    return "'%' not followed by 1-9 or '%'";
  }
  out->text.assign(rest);
  return nullptr;
}

// The whole of one line (any length) into line; false at the end.
bool readLine(FILE *stream, std::string &line) {
  line.clear();
  char chunk[256];
  while (std::fgets(chunk, sizeof chunk, stream) != nullptr) {
    line += chunk;
    if (line.back() == '\n') return true;
  }
  return !line.empty();
}

// The caller holds the process-wide lock.
bool isOpen(std::string_view name) {
  if (utOpenFiles == nullptr) return false;
  for (const MessageFile &file : *utOpenFiles)
    if (file.name == name) return true;
  return false;
}

void forgetFile(MessageFile &file) {
  if (file.index != nullptr) DutHashDestroy(file.index, nullptr, nullptr);
  file.index = nullptr;
}

// ---- Parameters -------------------------------------------------------------

struct ThreadParams {
  std::string text[D_ERR_PARAM_COUNT];
  bool set[D_ERR_PARAM_COUNT] = {};
};

void freeParams(void *params) { delete static_cast<ThreadParams *>(params); }

D_TSD_KEY paramsKey() {
  static const D_TSD_KEY key = vq::os::tlsAlloc(&freeParams);
  return key;
}

// The calling thread's parameters; with `create`, made on first use.
ThreadParams *threadParams(bool create) {
  const D_TSD_KEY key = paramsKey();
  if (key == D_INVALID_TSD_KEY) return nullptr;
  auto *params = static_cast<ThreadParams *>(vq::os::tlsGet(key));
  if (params == nullptr && create) {
    params = new ThreadParams;
    if (!vq::os::tlsSet(key, params)) {
      delete params;
      params = nullptr;
    }
  }
  return params;
}

// Hands the thread's parameters to a report, which clears them by taking
// them: a thread holds memory only between setting and reporting.
std::unique_ptr<ThreadParams> takeParams() {
  ThreadParams *params = threadParams(false);
  if (params != nullptr) vq::os::tlsSet(paramsKey(), nullptr);
  return std::unique_ptr<ThreadParams>(params);
}

// ---- Reporting --------------------------------------------------------------

// The message's text with its places filled; a place without a parameter
// stays as written.
std::string fillPlaces(std::string_view text, const std::string *param[]) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char next = i + 1 < text.size() ? text[i + 1] : '\0';
    if (text[i] == '%' && next == '%') {
      out += '%';
      ++i;
    } else if (text[i] == '%' && next >= '1' && next <= '9' && param[next - '1'] != nullptr) {
      out += *param[next - '1'];
      ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

// Everything a report does short of jumping; all it owns is gone when it
// returns.
D_BOOL report(D_INT4 number, va_list args) {
  D_ERR_SAVE save;
  DutErrNumSave(&save);

  // The arguments first, then the thread's own values for the places they
  // leave open.
  std::string given[D_ERR_PARAM_COUNT];
  const std::string *param[D_ERR_PARAM_COUNT] = {};
  int count = 0;
  for (const char *arg; count < D_ERR_PARAM_COUNT && (arg = va_arg(args, const char *)) != nullptr; ++count) {
    given[count] = arg;
    param[count] = &given[count];
  }
  if (const std::unique_ptr<ThreadParams> mine = takeParams(); mine != nullptr) {
    for (int i = count; i < D_ERR_PARAM_COUNT; ++i) {
      if (!mine->set[i]) continue;
      given[i].swap(mine->text[i]);
      param[i] = &given[i];
    }
  }

  Message message{D_ERR_SEVERITY_ERROR, {}};
  bool found = false;
  {
    vq::ProcessLock lock;
    for (std::size_t i = utOpenFiles != nullptr ? utOpenFiles->size() : 0; i > 0 && !found; --i) {
      const MessageFile &file = (*utOpenFiles)[i - 1];
      if (D_WORD at = DutHashLookup(file.index, number); at != 0) {
        message = file.messages[static_cast<std::size_t>(at - 1)];
        found = true;
      }
    }
  }

  if (message.severity >= DutErrSeverityGet()) {
    std::string text;
    if (found) {
      text = fillPlaces(message.text, param);
    } else {
      const char *known = vq::errors::tableText(number);
      text = known != nullptr ? known : "unknown message " + std::to_string(number);
      const char *separator = " [";
      for (const std::string *p : param) {
        if (p == nullptr) continue;
        text += separator + *p;
        separator = ", ";
      }
      if (*separator == ',') text += ']';
    }
    std::string line;
    D_INT4 level = DutErrFeedbackGet();
    if (level >= 2)
      line = std::to_string(number) + " (severity " + std::to_string(message.severity) + "): ";
    else if (level == 1)
      line = std::to_string(number) + ": ";
    line += text;
    if (message.severity == D_ERR_SEVERITY_WARNING)
      DutWarning("%s\n", line.c_str());
    else
      DutOut("%s\n", line.c_str());
  }
  vq::errors::restoreExactly(save);
  return found ? D_TRUE : D_FALSE;
}

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutErrOpenFile(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  {
    vq::ProcessLock lock;
    if (isOpen(name)) {
      DutErrNumSet(D_ERR_ALREADY_EXISTS);
      return D_FALSE;
    }
  }
  // Lookups that miss leave "doesn't exist" behind; a load that works
  // leaves the caller's number.
  const D_INT4 before = DutErrNumGet();
  FILE *stream = DutFOpen(name, "r");
  if (stream == nullptr) return D_FALSE;

  MessageFile loaded{name, {}, DutHashCreateInt(64)};
  std::string line;
  const char *problem = nullptr;
  long line_number = 0;
  while (problem == nullptr && readLine(stream, line)) {
    ++line_number;
    D_INT4 number = 0;
    Message message{0, {}};
    problem = parseLine(line, &number, &message);
    if (problem != nullptr || message.text.empty()) continue;
    if (DutHashLookup(loaded.index, number) != 0) {
      problem = "message number given twice";
      continue;
    }
    loaded.messages.push_back(std::move(message));
    DutHashInsert(loaded.index, number, static_cast<D_WORD>(loaded.messages.size()));
  }
  std::fclose(stream);
  if (problem != nullptr) {
    forgetFile(loaded);
    DutWarning("DutErrOpenFile: %s line %ld: %s\n", name, line_number, problem);
    DutErrNumSet(D_ERR_FILE_CORRUPT);
    return D_FALSE;
  }

  vq::ProcessLock lock;
  if (isOpen(name)) {  // loaded by another thread meanwhile
    forgetFile(loaded);
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return D_FALSE;
  }
  if (utOpenFiles == nullptr) utOpenFiles = new std::vector<MessageFile>;
  utOpenFiles->push_back(std::move(loaded));
  DutErrNumSet(before);
  return D_TRUE;
}

D_EXPORT D_BOOL DutErrCloseFile(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  if (!isOpen(name)) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  std::erase_if(*utOpenFiles, [name](MessageFile &file) {
    if (file.name != name) return false;
    forgetFile(file);
    return true;
  });
  if (utOpenFiles->empty()) {
    delete utOpenFiles;
    utOpenFiles = nullptr;
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutErrParamSet(D_INT4 index, const char *text) {
  if (index < 1 || index > D_ERR_PARAM_COUNT) {
    DutErrNumSet(index < 1 ? D_ERR_VAL_TOO_SMALL : D_ERR_VAL_TOO_LARGE);
    return D_FALSE;
  }
  ThreadParams *params = threadParams(text != nullptr);
  if (params == nullptr) {
    // Nothing to clear, or no place to keep the text.
    if (text == nullptr) return D_TRUE;
    DutErrNumSet(D_ERR_NO_MEMORY);
    return D_FALSE;
  }
  params->set[index - 1] = text != nullptr;
  params->text[index - 1] = text != nullptr ? text : "";
  if (std::none_of(std::begin(params->set), std::end(params->set), [](bool set) { return set; })) takeParams();
  return D_TRUE;
}

D_EXPORT D_BOOL DutErrVReportParams(D_INT4 number, va_list args) { return report(number, args); }

D_EXPORT D_BOOL DutErrReportParams(D_INT4 number, ...) {
  va_list args;
  va_start(args, number);
  D_BOOL result = report(number, args);
  va_end(args);
  return result;
}

// Nothing in this frame has a destructor: the report has finished and
// released everything before the jump.
D_EXPORT void DutErrReportParamsJmp(jmp_buf *jump_buffer, D_INT4 number, ...) {
  va_list args;
  va_start(args, number);
  report(number, args);
  va_end(args);
  jmp_buf *target = jump_buffer != nullptr ? jump_buffer : DutErrGetJumpBufferPtr();
  // The default buffer is all zero until D_INIT arms it: a jump there would
  // land nowhere, so end the process as an unarmed landing does.
  static const jmp_buf kUnarmed{};
  if (jump_buffer == nullptr && std::memcmp(target, &kUnarmed, sizeof kUnarmed) == 0) DutDefaultJumpLanded();
  std::longjmp(*target, number != 0 ? number : 1);
}

}  // extern "C"
