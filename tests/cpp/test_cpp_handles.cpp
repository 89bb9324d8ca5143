// The C++ face: every owning handle releases its object once whatever moves
// happened; lambdas behind C callbacks are called with the call's data,
// released with their owner and never called after; the text wrappers do
// what their C calls do; failures come out as the library's error codes.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>

#include "support/temp_dir.hpp"
#include "vqutil/vqutil.hpp"

namespace {

// Per key, how often it was released.
using Releases = std::map<D_WORD, int>;

void releaseItem(D_INT4, D_WORD item, void *arg) { ++(*static_cast<Releases *>(arg))[item]; }
void releaseEntry(D_WORD, D_WORD value, void *arg) { ++(*static_cast<Releases *>(arg))[value]; }
// Ring values are words on the heap; the ring's free function has no argument.
Releases *freed;
void freeValue(void *value) {
  ++(*freed)[*static_cast<D_WORD *>(value)];
  delete static_cast<D_WORD *>(value);
}
// Captured by a lambda, it counts the lambda's release under key.
std::shared_ptr<void> token(Releases *r, D_WORD key) {
  return {nullptr, [r, key](void *) { ++(*r)[key]; }};
}

template <class H>
bool live(const H &handle) {
  if constexpr (std::is_same_v<H, vqutil::Thread>) {
    return handle.joinable();
  } else {
    return static_cast<bool>(handle);
  }
}

// Objects 1 and 2 go through every move a handle has: construction from a
// handle, assignment over a live one and into an emptied one. Each key
// id + offset (its items, values, lambdas) is released once, and object 1
// only after its last owner. Handles with nothing to count are left to the
// sanitizers and valgrind, which see a missing or a second destroy.
template <class Make>
void expectReleasedOnce(Make make, std::initializer_list<D_WORD> offsets = {}) {
  Releases r, once;
  for (D_WORD id : {1, 2}) {
    for (D_WORD offset : offsets) once[id + offset] = 1;
  }
  {
    auto a = make(&r, 1);
    auto b = std::move(a);
    auto c = make(&r, 2);
    EXPECT_TRUE(!live(a) && live(b) && live(c));
    c = std::move(b);
    a = std::move(c);
    EXPECT_TRUE(live(a) && !live(c));
    for (const auto &[key, count] : r) EXPECT_EQ(key % 10, 2) << "object 1 released early";
  }
  EXPECT_EQ(r, once);
}

TEST(CppHandles, EveryHandleReleasedOnceThroughMoves) {
  static D_CB_TYPE *type = DutCbTypeCreate(4712, "cpp_moves");
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        vqutil::PtrArray array(2, releaseItem, r);
        array.append(id);
        array.on_change([t = token(r, id + 10)](const D_PTR_ARY_CHANGE &) {});
        return array;
      },
      {0, 10});
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        vqutil::HashTable table(vqutil::HashTable::Keys::Int, 0, releaseEntry, r);
        table.insert(id * 100, id);
        return table;
      },
      {0});
  DutSetCurrentTime(0.0);  // values go into the buffers only once time is known
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        vqutil::Ring ring(D_RING_TYPE_VOID, "cpp");
        freed = r;
        // Three buffers share the pointer; it must still be freed once.
        EXPECT_TRUE(ring.set_free_func(freeValue) && ring.add_buffer({10, 0}, {0, 0}, 4) &&
                    ring.add_buffer({100, 0}, {1, 0}, 4) && ring.add_fixed_buffer(4, {2, 0}));
        ring.on_overwrite([t = token(r, id + 10)](const D_RING_OVERWRITE_CB_DATA &) {});
        const D_RING_ENTRY *entry = ring.archive({1, 0}, new D_WORD(id));
        EXPECT_TRUE(entry != nullptr && entry == ring.current());
        return ring;
      },
      {0, 10});
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        auto lexer = vqutil::Lexer::from_string("a b");
        lexer.on_token([t = token(r, id + 10)](const D_LEX_TOKEN_CB_DATA &) {});
        return lexer;
      },
      {10});
  expectReleasedOnce([](Releases *r, D_WORD id) { return vqutil::on_type(type, nullptr, [t = token(r, id)](void *, void *) {}); },
                     {0});
  expectReleasedOnce([](Releases *r, D_WORD id) { return vqutil::on_quit([t = token(r, id)](void *, void *) {}); }, {0});
  expectReleasedOnce([](Releases *r, D_WORD id) { return vqutil::Thread([t = token(r, id)] { return 0; }); }, {0});
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::SafeString("text"); });
  expectReleasedOnce([](Releases *, D_WORD) {
    vqutil::Path path;
    path.add_dir("dir");
    return path;
  });
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::Mutex(); });
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::RwMutex(); });
  // A lock's file goes with its release.
  const vqtest::TempDir dir("vqcpplock");
  expectReleasedOnce([&](Releases *, D_WORD id) { return vqutil::FileLock::acquire(dir.file(std::to_string(id))); });
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

// Each way of registering a lambda, with the call that reaches it: the lambda
// sees the call's object and data until its Callback lets go (after a
// move), is released then, and is never called again.
TEST(CppCallbacks, LambdaCalledUntilReleasedThenNever) {
  static D_CB_TYPE *type = DutCbTypeCreate(4711, "cpp_test");
  D_CB_LIST *list = DutCbListCreate(type, nullptr);
  int object = 0;
  D_CB_DATA data{nullptr};
  using Lambda = std::function<void(void *, void *)>;
  const std::tuple<std::function<vqutil::Callback(Lambda)>, std::function<void()>, void *> forms[] = {
      {[&](Lambda f) { return vqutil::on_list(list, f); }, [&] { DutCbListCall(list, &object, &data); }, &object},
      {[&](Lambda f) { return vqutil::on_type(type, &object, f); }, [&] { DutCbTypeCall(type, &object, &data); }, &object},
      {[](Lambda f) { return vqutil::on_quit(f); }, [&] { DutCbTypeNumCbCall(D_CB_TYPE_QUIT, nullptr, &data); }, nullptr},
  };
  for (const auto &[make, call, expected] : forms) {
    auto life = std::make_shared<int>(0);
    int calls = 0;
    {
      vqutil::Callback cb = make([life, &calls, &data, expected = expected](void *o, void *d) {
        calls += o == expected && d == &data;
      });
      ASSERT_TRUE(cb && life.use_count() == 2);
      call();
      vqutil::Callback moved = std::move(cb);
      call();
      moved.reset();
      EXPECT_EQ(life.use_count(), 1);
      call();
    }
    EXPECT_EQ(calls, 2);
  }
  EXPECT_TRUE(DutCbListDestroy(list));
  // A failed registration keeps nothing of the lambda.
  auto life = std::make_shared<int>(0);
  vqutil::Callback none = vqutil::on_list(nullptr, [life](void *, void *) {});
  EXPECT_TRUE(!none && vqutil::last_error().value() == D_ERR_NULL_PTR && life.use_count() == 1);
}

// A failed creation, a D_FALSE result or a null pointer throws the error
// number left by the call, with the caller's text and the library's words;
// a success passes through.
TEST(CppErrors, CheckThrowsTheLastErrorOnlyOnFailure) {
  vqutil::PtrArray good = vqutil::check(vqutil::PtrArray(4), "create");
  EXPECT_EQ(vqutil::check(DutPtrAryAppend(good.get(), 7, nullptr)), D_TRUE);
  EXPECT_EQ(vqutil::check(good.get()), good.get());
  const std::pair<std::function<void(const char *)>, int> cases[] = {
      {[](const char *what) { vqutil::check(vqutil::PtrArray(0), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(vqutil::RwMutex(0), what); }, D_ERR_VAL_INVALID},
      {[](const char *what) { vqutil::check(vqutil::Ring(77), what); }, D_ERR_TYPE_INVALID},
      {[&](const char *what) { vqutil::check(DutPtrAryRemove(good.get(), 99), what); }, D_ERR_DOESNT_EXIST},
      {[](const char *what) { vqutil::check(DutPtrAryCreate(0), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(vqutil::FileLock::acquire(""), what); }, D_ERR_VAL_INVALID},
  };
  for (const auto &[fail, err] : cases) {
    const std::string what = "case " + std::to_string(err);
    DutErrNumSet(0);
    try {
      fail(what.c_str());
      ADD_FAILURE() << what << ": no exception";
    } catch (const std::system_error &e) {
      EXPECT_TRUE(e.code() == vqutil::make_error_code(err) && e.code().message() == DutErrNumToStr(err)) << what;
      EXPECT_STREQ(e.code().category().name(), "vqutil");
      EXPECT_NE(std::string(e.what()).find(what), std::string::npos) << e.what();
    }
  }
}

// String tables take views that need not end in a NUL; for_each sees every
// entry once, and a non-zero answer stops the walk and comes back.
TEST(CppHandles, StringTableByViewsAndWalks) {
  vqutil::HashTable table(vqutil::HashTable::Keys::Stri);
  const char *keys[] = {"alpha", "Beta", "gamma"};
  for (D_WORD i = 0; i < 3; ++i) table.insert(keys[i], i + 1);
  EXPECT_EQ(table.lookup(std::string_view("ALPHABET", 5)), 1);
  EXPECT_EQ(table.erase(std::string_view("betamax", 4)), 2);
  EXPECT_TRUE(table.size() == 2 && table.lookup(std::string_view("beta")) == 0);
  Releases seen;
  const D_WORD walked = table.for_each([&](D_WORD key, D_WORD value) {
    ++seen[value];
    return std::string_view(reinterpret_cast<const char *>(key)) != keys[value - 1];
  });
  EXPECT_TRUE(walked == 0 && vqutil::last_error().value() == D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(seen, (Releases{{1, 1}, {3, 1}}));
  EXPECT_EQ(table.for_each([](D_WORD, D_WORD value) { return value == 3 ? 30 : 0; }), 30);
}

// Random edits against a std::string: appends growing a tiny buffer by
// various quanta, characters, shortening within and past the text (with
// its error numbers), clearing (size kept), and a moved-from string that
// starts again.
TEST(CppText, SafeStringFollowsAStringModel) {
  vqutil::SafeString s(2);
  std::string model;
  std::mt19937 rng(11);
  for (int i = 0; i < 400; ++i) {
    const auto n = static_cast<D_INT4>(rng() % 12) - 2;
    const char c = static_cast<char>('a' + i % 26);
    switch (rng() % 5) {
      case 0:
        s.append(std::string(n + 2, c), n + 3);
        model.append(n + 2, c);
        break;
      case 1:
        s += c;
        model += c;
        break;
      case 2:
        if (n < 0 || n > static_cast<D_INT4>(model.size())) {
          EXPECT_FALSE(s.shorten(n));
          EXPECT_EQ(vqutil::last_error().value(), n < 0 ? D_ERR_VAL_TOO_SMALL : D_ERR_VAL_INVALID);
        } else {
          EXPECT_TRUE(s.shorten(n));
          model.resize(model.size() - n);
        }
        break;
      case 3: {
        const D_INT4 size = s.capacity();
        s.clear();
        model.clear();
        EXPECT_EQ(s.capacity(), size);
        break;
      }
      default: {
        const vqutil::SafeString taken(std::move(s));
        EXPECT_TRUE(!s && taken.view() == model);
        s += std::string_view(&c, 1);
        model = c;
      }
    }
    ASSERT_EQ(s.view(), model) << i;
    ASSERT_EQ(s.c_str(), model);
  }
}

// The first directory holding the file wins, however long its name (the
// answer is sized for the longest); a deleted directory is no longer asked.
TEST(CppFiles, PathFindsInOrderAndForgetsDeletedDirectories) {
  const vqtest::TempDir tmp("vqcpppath");
  const std::string near = tmp.file("near"), far = tmp.file(std::string(180, 'f'));
  for (const std::string &dir : {near, far}) {
    std::filesystem::create_directory(dir);
    vqtest::WriteFile(dir + "/both", "");
  }
  vqtest::WriteFile(far + "/far", "");
  vqutil::Path path;
  ASSERT_TRUE(path.add_dir(near) && path.add_dir(far));
  for (const char *name : {"both", "far", "none"}) {
    const std::string found = std::filesystem::exists(near + "/" + name) ? near : far;
    EXPECT_EQ(path.find_file(name), std::filesystem::exists(found + "/" + name) ? found + "/" + name : "");
  }
  EXPECT_TRUE(path.delete_dir(near));
  EXPECT_EQ(path.find_file("both"), far + "/both");
  EXPECT_FALSE(path.delete_dir(near));
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_DOESNT_EXIST);
}

// "name = value;" with the row's typed accept: the value reaches its out
// argument only when accepted, the token callback sees every token read
// after the first, and a syntax error leaves an empty lexer (the library
// destroyed it) with the error's message.
TEST(CppLexer, TypedAcceptsAndSyntaxErrors) {
  struct Row {
    const char *text;
    char kind;
    D_REAL8 value;  // after the row; -1 (1 for flags) when nothing was accepted
    bool ok;
  };
  const Row rows[] = {
      {"rate = -2.5;", 'r', -2.5, true}, {"n = +42;", 'i', 42, true},   {"on = TRUE;", 'b', 1, true},
      {"off = false;", 'b', 0, true},    {"n = 4.5;", 'i', -1, false},  {"on = maybe;", 'b', 1, false},
      {"rate = ;", 'r', -1, false},      {"= 1;", 'r', -1, false},      {"n = 7,", 'i', 7, false},
  };
  for (const Row &row : rows) {
    auto lexer = vqutil::Lexer::from_string(row.text);
    std::ptrdiff_t spaces = 0;
    lexer.on_token([&](const D_LEX_TOKEN_CB_DATA &) { spaces += lexer.token() == D_TOK_WHITE_SPACE; });
    D_REAL8 real = -1;
    D_INT4 whole = -1;
    bool flag = true;
    const bool ok = lexer.accept_id() && lexer.accept(D_TOK_EQUALS) &&
                    (row.kind == 'r'   ? lexer.accept_real(real)
                     : row.kind == 'i' ? lexer.accept_int(whole)
                                       : lexer.accept_bool(flag)) &&
                    lexer.accept(D_TOK_SEMICOLON);
    EXPECT_TRUE(ok == row.ok && static_cast<bool>(lexer) == row.ok) << row.text;
    EXPECT_EQ(lexer.error_message().empty(), row.ok) << row.text;
    EXPECT_EQ(row.kind == 'r' ? real : row.kind == 'i' ? whole : flag, row.value) << row.text;
    // Token callbacks run after each white space read past the first token.
    const std::string_view text(row.text);
    if (row.ok) {
      EXPECT_TRUE(lexer.token() == D_TOK_EOF && spaces == std::count(text.begin(), text.end(), ' '));
    }
  }
}

}  // namespace
