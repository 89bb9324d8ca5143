// Arbitrary bytes as command lines through DutCommandParseStr, with the
// commands that end the process, run the shell, touch files, load modules
// or keep memory on purpose left out through "allowed_commands". Any line
// must end in the command's effect or a clear message.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "quiet.hpp"
#include "vqutil/command.h"
#include "vqutil/option.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  fuzz::quietLibrary();
  static const char *allowed[] = {"echo",  "alias",     "unalias",          "history", "help",  "helpopt",
                                  "setopt", "unsetopt", "_set_frame_count", "_set_time", "_sigint", "_alarm",
                                  "_print_sbrk", "_set_fd_limit", "stats"};
  static D_OPTION_STR_NODE nodes[sizeof allowed / sizeof allowed[0]];
  const std::size_t n = sizeof allowed / sizeof allowed[0];
  for (std::size_t i = 0; i < n; ++i) {
    nodes[i].str = allowed[i];
    nodes[i].next = i + 1 < n ? &nodes[i + 1] : nullptr;
  }
  if (!DutOptionSetStrList(DutOptionLookup("allowed_commands"), nodes)) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *line = static_cast<char *>(std::malloc(size + 1));
  std::memcpy(line, data, size);
  line[size] = '\0';
  DutCommandParseStr(line);
  std::free(line);
  return 0;
}
