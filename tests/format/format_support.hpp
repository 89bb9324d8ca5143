// Shared pieces of the format tests: the conversion function type, running
// one conversion on a copy of some bytes, and counting warnings.
#pragma once

#include <array>
#include <bit>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/format.h"

namespace vqfmt {

using Convert = D_BOOL (*)(void *, D_INT4, D_INT4);
using B4 = std::array<unsigned char, 4>;
using B8 = std::array<unsigned char, 8>;
// The output function runs under the process-wide lock, so one capture
// serves warnings from several threads.
using Capture = vqtest::OutputCapture;

constexpr D_INT4 kLittle = D_INT_LITTLE_ENDIAN;
constexpr D_INT4 kBig = D_INT_BIG_ENDIAN;
constexpr D_INT4 kHost = std::endian::native == std::endian::little ? kLittle : kBig;

template <std::size_t N>
struct Result {
  D_BOOL status;
  std::array<unsigned char, N> bytes;
};

template <std::size_t N>
Result<N> run(Convert fn, std::array<unsigned char, N> bytes, D_INT4 in, D_INT4 out) {
  const D_BOOL status = fn(bytes.data(), in, out);
  return {status, bytes};
}

// Number of non-overlapping occurrences of needle in haystack.
inline int countOf(const std::string &haystack, const std::string &needle) {
  int count = 0;
  for (std::size_t at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + needle.size()))
    ++count;
  return count;
}

}  // namespace vqfmt
