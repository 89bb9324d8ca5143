// Lexer throughput on a generated command file of about 10 MB, against a
// loop that only classifies the same bytes (the memory-bound limit).
#include <benchmark/benchmark.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "vqutil/lex.h"

namespace {

const std::string &commandText() {
  static const std::string text = [] {
    std::mt19937 rng(12345);
    const char *words[] = {"setopt", "real_number_format", "alias", "echo", "history", "load", "unsetopt"};
    std::string t;
    t.reserve(10u << 20);
    while (t.size() < (10u << 20)) {
      t += words[rng() % 7];
      t += ' ';
      t += "name_" + std::to_string(rng() % 1000);
      t += ' ';
      switch (rng() % 4) {
        case 0: t += std::to_string(rng() % 100000) + "." + std::to_string(rng() % 100); break;
        case 1: t += "\"a string value\""; break;
        case 2: t += "(* a comment *) true"; break;
        default: t += "/tmp/some/file.dat"; break;
      }
      t += rng() % 3 == 0 ? " ; " : "\n";
    }
    return t;
  }();
  return text;
}

void BM_LexString(benchmark::State &state) {
  const std::string &text = commandText();
  for (auto _ : state) {
    D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, text.c_str(), 0);
    long n = 0;
    while (DutLexGetToken(lexer) != D_TOK_EOF) {
      DutLexAccept(lexer, DutLexGetToken(lexer));
      ++n;
    }
    benchmark::DoNotOptimize(n);
    DutLexDestroy(lexer);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_LexString)->Unit(benchmark::kMillisecond);

void BM_LexFile(benchmark::State &state) {
  const std::string &text = commandText();
  std::filesystem::path file = std::filesystem::temp_directory_path() / "vq_bench_lex_input.cm";
  std::ofstream(file, std::ios::binary) << text;
  for (auto _ : state) {
    D_LEX *lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, file.c_str(), 0);
    long n = 0;
    while (DutLexGetToken(lexer) != D_TOK_EOF) {
      DutLexAccept(lexer, DutLexGetToken(lexer));
      ++n;
    }
    benchmark::DoNotOptimize(n);
    DutLexDestroy(lexer);
  }
  std::filesystem::remove(file);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_LexFile)->Unit(benchmark::kMillisecond);

// Reference: classify every byte and count the class changes.
void BM_ClassifyOnly(benchmark::State &state) {
  const std::string &text = commandText();
  for (auto _ : state) {
    long changes = 0;
    int last = 0;
    for (unsigned char c : text) {
      int cls = std::isalnum(c) ? 1 : (std::isspace(c) ? 2 : 3);
      changes += cls != last;
      last = cls;
    }
    benchmark::DoNotOptimize(changes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ClassifyOnly)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
