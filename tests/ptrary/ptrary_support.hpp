// Shared helpers of the pointer-array tests: an owning handle and a view of
// the contents as a vector, so expectations compare whole arrays at once.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "vqutil/error.h"
#include "vqutil/ptrary.h"

namespace ptrary_test {

using Items = std::vector<D_WORD>;

// Destroys the array at scope exit unless a test took it over.
class Array {
 public:
  explicit Array(D_INT4 size) : array_(DutPtrAryCreate(size)) {}
  Array(D_INT4 size, const Items &items) : Array(size) {
    for (D_WORD item : items) DutPtrAryAppend(array_, item, nullptr);
  }
  ~Array() {
    if (array_ != nullptr) DutPtrAryDestroy(array_, nullptr, nullptr);
  }
  Array(const Array &) = delete;
  Array &operator=(const Array &) = delete;

  D_PTR_ARY *get() const { return array_; }
  D_PTR_ARY *operator->() const { return array_; }
  D_PTR_ARY *release() {
    D_PTR_ARY *array = array_;
    array_ = nullptr;
    return array;
  }

  Items items() const {
    const D_WORD *slots = DutPtrAryGetArray(array_);
    return Items(slots, slots + D_GPA_COUNT(array_));
  }

 private:
  D_PTR_ARY *array_;
};

// Starts each expectation of an error number from a value no operation
// sets, so a stale number from an earlier call cannot pass for a new one.
inline void resetErr() { DutErrNumSet(-12345); }

}  // namespace ptrary_test
