// vqcpp: a C++ host of the vqutil library, written with vqutil.hpp.
//
// It reads "name = number;" settings with the lexer (a syntax error is
// reported, not fatal), files them in a hash table, lets worker threads
// read them under shared locks while one updates them under the write
// lock, watches an array with a lambda, and prints a failed call's error
// code in the library's words.
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "vqutil/vqutil.hpp"

namespace {

// The settings: names (owned here) to values (kept as words, scaled).
struct Settings {
  std::vector<std::string> names;
  vqutil::HashTable table{vqutil::HashTable::Keys::Str};
};

bool parse(std::string_view text, Settings &out) {
  auto lexer = vqutil::Lexer::from_string(text);
  while (lexer && lexer.token() != D_TOK_EOF) {
    D_REAL8 value = 0;
    if (!lexer.accept_id()) break;
    std::string name(lexer.text());
    if (!lexer.accept(D_TOK_EQUALS) || !lexer.accept_real(value) || !lexer.accept(D_TOK_SEMICOLON)) break;
    out.names.push_back(std::move(name));
    // Values are never null in a table: store value + 1 thousandths.
    out.table.insert(out.names.back().c_str(), static_cast<D_WORD>(value * 1000) + 1);
  }
  if (!lexer) std::printf("settings: %s\n", lexer.error_message().c_str());
  return static_cast<bool>(lexer);
}

// The host's work, kept out of main's frame: a long jump to the default
// error buffer lands in main, and must not skip destructors on the way.
int run() {
  Settings settings;
  settings.names.reserve(16);  // the table keeps pointers to these names
  parse("rate = 2.5; depth = 40; limit = 7;", settings);
  parse("broken = ;", settings);
  std::printf("%d settings\n", settings.table.size());

  // Readers look values up while a writer doubles them.
  vqutil::RwMutex lock;
  std::vector<D_WORD> seen(3);
  {
    std::vector<vqutil::Thread> threads;
    for (size_t r = 0; r < seen.size(); ++r) {
      threads.emplace_back([&, r] {
        std::shared_lock<vqutil::RwMutex> read(lock);
        seen[r] = settings.table.lookup(std::string_view("depth")) - 1;
      });
    }
    threads.emplace_back([&] {
      std::lock_guard<vqutil::RwMutex> write(lock);
      settings.table.for_each([&](D_WORD key, D_WORD value) {
        DutHashReplace(settings.table.get(), key, (value - 1) * 2 + 1);
        return 0;
      });
    });
  }
  for (size_t r = 0; r < seen.size(); ++r) {
    std::printf("reader %zu saw depth %.3f\n", r, static_cast<double>(seen[r]) / 1000);
  }
  std::printf("depth is now %.3f\n",
              static_cast<double>(settings.table.lookup(std::string_view("depth")) - 1) / 1000);

  vqutil::PtrArray watched(4);
  watched.on_change([](const D_PTR_ARY_CHANGE &c) {
    std::printf("array change %ld: item %ld at %ld\n", static_cast<long>(c.event), static_cast<long>(c.item),
                static_cast<long>(c.index));
  });
  watched.append(11);
  watched.append(22);
  watched.remove(11);

  if (!watched.remove(99)) {
    const std::error_code code = vqutil::last_error();
    std::printf("remove 99: %s error %d: %s\n", code.category().name(), code.value(), code.message().c_str());
  }
  return 0;
}

}  // namespace

int main() {
  D_INIT("vqcpp");
  return run();
}
