// Random texts for the tests that compare the library with a small
// reference: short texts over an alphabet chosen to hit the edge cases.
#pragma once

#include <cstring>
#include <random>
#include <string>

namespace vqtest {

// Up to longest characters, each drawn from alphabet.
inline std::string RandomText(std::mt19937 &rng, unsigned longest, const char *alphabet) {
  std::string text(rng() % (longest + 1), ' ');
  for (char &c : text) c = alphabet[rng() % std::strlen(alphabet)];
  return text;
}

}  // namespace vqtest
