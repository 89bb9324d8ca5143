// Dumps of buffers, entries and traversals through a printf-like function.
#include <cstdio>
#include <string>

#include "frame/hex.hpp"
#include "ringbuf/ring_internal.hpp"
#include "vqutil/output.h"
#include "vqutil/strutil.h"

using namespace vq::ring;

namespace {

D_PRINT_FUNC sink(D_PRINT_FUNC out) { return out != nullptr ? out : DutOut; }

std::string valueText(D_UINT4 type, const D_RING_ENTRY &e) {
  if (e.status == 0) return "<empty>";
  char text[64];
  switch (type) {
    case D_RING_TYPE_VOID:
      std::snprintf(text, sizeof text, "%" PRIxPTR, vq::hexOf(e.value.ptr));
      return text;
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      std::snprintf(text, sizeof text, "%ld", static_cast<long>(e.value.i));
      return text;
    case D_RING_TYPE_DOUBLE:
      return DutRealToStrCopy(*e.value.dp, text);
    case D_RING_TYPE_FLOAT:
      return DutRealToStrCopy(e.value.f, text);
    case D_RING_TYPE_WORD:
      std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(e.value.w));
      return text;
    case D_RING_TYPE_STRING:
      return std::string("\"") + (e.value.rs != nullptr ? e.value.rs->str : "") + "\"";
    default:
      return "<unknown type>";
  }
}

void printEntry(const D_RING_BUF *ring, const D_RING_ENTRY &e, D_PRINT_FUNC out) {
  out("Time: %ld.%06ld Status: %u Flag: %u Value: %s\n", static_cast<long>(e.sec), static_cast<long>(e.usec),
      static_cast<unsigned>(e.status), static_cast<unsigned>(e.flag), valueText(ring->type, e).c_str());
}

const char *kindText(D_INT4 kind) {
  switch (kind) {
    case D_RING_TRAV_CHANGES:
      return "changes";
    case D_RING_TRAV_RING:
      return "ring";
    case D_RING_TRAV_HISTORY:
      return "history";
    default:
      return "none";
  }
}

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutRingDumpBuffer(D_RING_HDR *buffer, D_PRINT_FUNC out) {
  if (buffer == nullptr || buffer->start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  out = sink(out);
  out("Buffer dump: Name: %s Min span: %ld.%06ld, Incr: %ld.%06ld, size: %ld\n", nameOf(buffer->ring),
      sec(buffer->min_span), usec(buffer->min_span), sec(buffer->incr), usec(buffer->incr),
      static_cast<long>(buffer->size));
  D_RING_ITER iter;
  for (D_RING_ENTRY *e = iterFirst(&iter, buffer); e != nullptr; e = iterNext(&iter)) {
    out("  [%ld] ", static_cast<long>(slotOf(buffer, e)));
    printEntry(buffer->ring, *e, out);
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingPrintRbe(D_RING_BUF *ring, D_RING_ENTRY *entry, D_PRINT_FUNC out) {
  if (ring == nullptr || entry == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  printEntry(ring, *entry, sink(out));
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingPrintTraversal(D_RING_CONTEXT *context, D_PRINT_FUNC out) {
  if (context == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  out = sink(out);
  const D_RING_CONTEXT &c = *context;
  if (c.kind == D_RING_TRAV_CHANGES) {
    out("Traversal of %s (changes): position %ld, %ld to go, done: %s\n", nameOf(c.ring),
        static_cast<long>(c.position), static_cast<long>(c.remaining), c.done != 0 ? "YES" : "NO");
  } else {
    out("Traversal of %s (%s): start %ld.%06ld, incr %ld.%06ld, end %ld.%06ld, done: %s\n", nameOf(c.ring),
        kindText(c.kind), sec(c.start), usec(c.start), sec(c.incr), usec(c.incr), sec(c.end), usec(c.end),
        c.done != 0 ? "YES" : "NO");
  }
  if (c.kind == 0) return D_TRUE;
  // The remaining steps of a copy: the caller's context stays where it is.
  D_ERR_SAVE saved;
  DutErrNumSave(&saved);
  D_RING_CONTEXT copy = c;
  D_RING_ENTRY *entry = nullptr;
  D_TIME_VALUE time{};
  while (DutRingTravNext(&copy, &entry, &time) == D_TRUE) {
    out("  at %ld.%06ld: ", sec(time), usec(time));
    if (entry == nullptr) {
      out("no value\n");
    } else {
      printEntry(c.ring, *entry, out);
    }
  }
  DutErrNumRestore(&saved);
  DutErrNumSet(saved.err_num);
  return D_TRUE;
}

}  // extern "C"
