// Shared scaffolding of the callback tests: scripted callbacks that record
// their calls and may act on the list while they run.
#pragma once

#include <functional>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"

namespace cbtest {

// The names of the callbacks called so far, in order.
inline std::string &calls() {
  static std::string text;
  return text;
}

// A callback's argument: its name and what it does when called.
struct Action {
  std::string name;
  std::function<void(D_CB *self, void *object)> then;
};

// The callback function of every Action.
inline void run(void *object, void *data, D_WORD arg) {
  auto *action = reinterpret_cast<Action *>(arg);
  calls() += action->name;
  if (action->then) action->then(static_cast<D_CB_DATA *>(data)->cb, object);
}

inline D_WORD word(Action &a) { return reinterpret_cast<D_WORD>(&a); }

// A type of a number not used before, so that a test may repeat in one
// process.
inline D_CB_TYPE *freshType(const char *name = nullptr) {
  static D_INT4 next = 5000;
  return DutCbTypeCreate(++next, name);
}

// The list a running callback belongs to.
inline D_CB_LIST *listOf(D_CB *cb) {
  D_CB_LIST *list = nullptr;
  DutCbGetList(cb, &list);
  return list;
}

}  // namespace cbtest
