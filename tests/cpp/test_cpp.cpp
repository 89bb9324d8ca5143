// The C++ face: every owning handle releases its object once whatever moves
// happened; lambdas behind C callbacks are called with the call's data,
// released with their owner and never called after; the text wrappers hand
// texts, counts and names to their C calls unchanged; failures come out as
// the library's error codes; the locks work under the standard guards
// across library threads.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <mutex>
#include <shared_mutex>

#include "rwmutex/rw_support.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/vqutil.hpp"

namespace {

// Per key, how often it was released.
using Releases = std::map<D_WORD, int>;

void releaseItem(D_INT4, D_WORD item, void *arg) { ++(*static_cast<Releases *>(arg))[item]; }
void releaseEntry(D_WORD, D_WORD value, void *arg) { ++(*static_cast<Releases *>(arg))[value]; }
// Held by a lambda (or, on the heap, as a ring's value) it counts the
// holder's release under key.
std::shared_ptr<void> token(Releases *r, D_WORD key) {
  return {nullptr, [r, key](void *) { ++(*r)[key]; }};
}
void freeToken(void *value) { delete static_cast<std::shared_ptr<void> *>(value); }

// Objects 1 and 2 go through every move a handle has: construction from a
// handle, assignment over a live one and into an emptied one. What the
// maker counts for object id (its items, values and lambdas, under id or
// id + 10) must come out as `once`, and object 1's only after its last owner.
// A move that leaves its source owning shows up as a second release; handles
// with nothing to count (once empty) are left to the sanitizers and valgrind,
// which see a missing or second destroy.
template <class Make>
void expectReleasedOnce(Make make, const Releases &once = Releases{{1, 1}, {2, 1}}) {
  Releases r;
  {
    auto a = make(&r, 1);
    auto b = std::move(a);
    auto c = make(&r, 2);
    c = std::move(b);
    a = std::move(c);
    for (const auto &[key, count] : r) EXPECT_EQ(key % 10, 2) << "object 1 released early";
  }
  EXPECT_EQ(r, once);
}

TEST(CppHandles, EveryHandleReleasedOnceThroughMoves) {
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        vqutil::PtrArray array(2, releaseItem, r);
        EXPECT_TRUE(vqutil::check(array.append(id)));  // a success passes through
        array.on_change([t = token(r, id + 10)](const D_PTR_ARY_CHANGE &) {});
        return array;
      },
      {{1, 1}, {2, 1}, {11, 1}, {12, 1}});
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        auto table = vqutil::check(vqutil::HashTable(vqutil::HashTable::Keys::Int, 0, releaseEntry, r));
        table.insert(id * 100, id);
        return table;
      });
  DutSetCurrentTime(0.0);  // values go into the buffers only once time is known
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        vqutil::Ring ring(D_RING_TYPE_VOID, "cpp");
        // Three buffers share the value's pointer: it is still freed once.
        EXPECT_TRUE(ring && ring.set_free_func(freeToken) && ring.add_buffer({10, 0}, {0, 0}, 4) &&
                    ring.add_buffer({100, 0}, {1, 0}, 4) && ring.add_fixed_buffer(4, {2, 0}));
        ring.on_overwrite([t = token(r, id + 10)](const D_RING_OVERWRITE_CB_DATA &) {});
        ring.archive({0, 0}, new std::shared_ptr<void>());  // uncounted, freed by the clear
        EXPECT_TRUE(ring.clear());
        const D_RING_ENTRY *entry = vqutil::check(ring.archive({1, 0}, new std::shared_ptr<void>(token(r, id))));
        EXPECT_EQ(entry, ring.current());
        return ring;
      },
      {{1, 1}, {2, 1}, {11, 1}, {12, 1}});
  expectReleasedOnce(
      [](Releases *r, D_WORD id) {
        auto lexer = vqutil::Lexer::from_string("a b");
        lexer.on_token([t = token(r, id)](const D_LEX_TOKEN_CB_DATA &) {});
        return lexer;
      });
  expectReleasedOnce([](Releases *r, D_WORD id) { return vqutil::Thread([t = token(r, id)] { return 0; }); });
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::SafeString("text"); }, {});
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::Path(); }, {});
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::Mutex(); }, {});
  expectReleasedOnce([](Releases *, D_WORD) { return vqutil::RwMutex(); }, {});
  const vqtest::TempDir dir("vqcpplock");
  expectReleasedOnce([&](Releases *, D_WORD id) { return vqutil::FileLock::acquire(dir.file(std::to_string(id))); },
                     {});
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));  // the lock files went with the locks
}

// Each way of registering a lambda, with the call that reaches it: the lambda
// sees the call's object and data until its Callback lets go, is released
// then and never called again; each form's Callback goes through the moves.
TEST(CppCallbacks, LambdaCalledUntilReleasedThenNever) {
  static D_CB_TYPE *type = DutCbTypeCreate(4711, "cpp_test");
  D_CB_LIST *list = DutCbListCreate(type, nullptr);
  int object = 0;
  D_CB_DATA data{nullptr};
  using Fn = std::function<void(void *, void *)>;
  const std::tuple<std::function<vqutil::Callback(Fn)>, std::function<void()>, void *> forms[] = {
      {[&](Fn f) { return vqutil::on_list(list, f); }, [&] { DutCbListCall(list, &object, &data); }, &object},
      {[&](Fn f) { return vqutil::on_type(type, &object, f); }, [&] { DutCbTypeCall(type, &object, &data); }, &object},
      {[](Fn f) { return vqutil::on_quit(f); }, [&] { DutCbTypeNumCbCall(D_CB_TYPE_QUIT, nullptr, &data); }, nullptr},
  };
  for (const auto &[make, call, expected] : forms) {
    auto life = std::make_shared<int>(0);
    int calls = 0;
    auto cb = make([life, &calls, &data, o = expected](void *obj, void *d) { calls += obj == o && d == &data; });
    ASSERT_TRUE(cb && life.use_count() == 2);
    call();
    cb.reset();
    call();
    EXPECT_TRUE(calls == 1 && life.use_count() == 1);
    expectReleasedOnce([&make = make](Releases *r, D_WORD id) { return make([t = token(r, id)](void *, void *) {}); });
  }
  EXPECT_TRUE(DutCbListDestroy(list));
}

// A failed creation, a D_FALSE result or a null pointer throws the error
// number left by the call, with the caller's text and the library's words
// (successes pass through check() in the handles' makers above). A failed
// registration keeps nothing of its lambda.
TEST(CppErrors, CheckThrowsTheLastErrorOnlyOnFailure) {
  auto life = std::make_shared<int>(0);
  const std::pair<std::function<void(const char *)>, int> cases[] = {
      {[](const char *what) { vqutil::check(vqutil::PtrArray(4).remove(99), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(DutPtrAryCreate(0), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(vqutil::FileLock::acquire(""), what); }, D_ERR_VAL_INVALID},
      {[&](const char *what) { vqutil::check(vqutil::on_list(nullptr, [life](void *, void *) {}), what); },
       D_ERR_NULL_PTR},
  };
  for (const auto &[fail, err] : cases) {
    const std::string what = "case " + std::to_string(&fail - &cases[0].first);
    DutErrNumSet(0);
    try {
      fail(what.c_str());
      ADD_FAILURE() << what << ": no exception";
    } catch (const std::system_error &e) {
      EXPECT_TRUE(e.code() == vqutil::make_error_code(err) && e.code().message() == DutErrNumToStr(err)) << what;
      EXPECT_TRUE(e.code().category().name() == std::string_view("vqutil") &&
                  std::string_view(e.what()).find(what) != std::string_view::npos) << e.what();
    }
  }
  EXPECT_EQ(life.use_count(), 1);
}

// String tables take views that need not end in a NUL; for_each sees every
// entry once with its own key, and a non-zero answer stops the walk and
// comes back.
TEST(CppHandles, StringTableByViewsAndWalks) {
  vqutil::HashTable table(vqutil::HashTable::Keys::Stri);
  const char *keys[] = {"alpha", "Beta", "gamma"};
  for (D_WORD i = 0; i < 3; ++i) table.insert(keys[i], i + 1);
  EXPECT_TRUE(table.lookup(std::string_view("ALPHABET", 5)) == 1 && table.erase(std::string_view("betamax", 4)) == 2);
  EXPECT_TRUE(table.size() == 2 && table.lookup(std::string_view("beta")) == 0);
  Releases seen;  // per value, the entries walked with their own key
  EXPECT_EQ(table.for_each([&](D_WORD key, D_WORD value) {
    seen[value] += std::string_view(reinterpret_cast<const char *>(key)) == keys[value - 1];
    return 0;
  }), 0);
  EXPECT_TRUE(seen == (Releases{{1, 1}, {3, 1}}) && vqutil::last_error().value() == D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(table.for_each([](D_WORD, D_WORD value) { return value == 3 ? 30 : 0; }), 30);
}

// Appends (growing a tiny buffer by the given quantum), characters,
// shortening and clearing reach the text.
TEST(CppText, SafeStringEdits) {
  vqutil::SafeString s(2);
  (s += "abc").append("defgh", 1) += 'i';
  EXPECT_TRUE(s.shorten(4) && s.view() == "abcde" && s.c_str() == std::string_view("abcde"));
  (s += "x").clear();
  EXPECT_TRUE(s.view().empty() && s.capacity() >= 10);
}

// The first directory holding the file wins, however long its name (the
// answer is sized for the longest); a deleted directory is no longer asked.
TEST(CppText, PathFindsInOrderAndForgetsDeletedDirectories) {
  const vqtest::TempDir tmp("vqcpppath");
  const std::string near = tmp.file("near"), far = tmp.file(std::string(180, 'f'));
  // Joined with the platform's separator, as the library joins them.
  auto in = [](const std::string &dir, const char *name) { return (std::filesystem::path(dir) / name).string(); };
  for (const std::string &file : {in(near, "both"), in(far, "both"), in(far, "far")}) {
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    vqtest::WriteFile(file, "");
  }
  vqutil::Path path;
  ASSERT_TRUE(path.add_dir(near) && path.add_dir(far));
  EXPECT_EQ(path.find_file("far"), in(far, "far"));  // found past a short directory
  EXPECT_TRUE(path.find_file("both") == in(near, "both") && path.find_file("none").empty());
  EXPECT_TRUE(path.delete_dir(near) && path.find_file("both") == in(far, "both"));
}

// Typed accepts hand their values out; a syntax error leaves an empty lexer
// (the library destroyed it) with the error's message, and the out argument
// untouched.
TEST(CppText, LexerTypedAcceptsAndSyntaxErrors) {
  auto lexer = vqutil::Lexer::from_string("rate = -2.5 +42 TRUE 4.5");
  D_REAL8 real = 0;
  D_INT4 whole = 0;
  bool flag = false;
  ASSERT_TRUE(lexer.accept_id() && lexer.text() == "rate" && lexer.accept(D_TOK_EQUALS));
  EXPECT_TRUE(lexer.accept_real(real) && lexer.accept_int(whole) && lexer.accept_bool(flag));
  EXPECT_TRUE(real == -2.5 && whole == 42 && flag && lexer.error_message().empty());
  EXPECT_FALSE(lexer.accept_int(whole));  // 4.5 is no whole number
  EXPECT_TRUE(!lexer && whole == 42 && !lexer.error_message().empty());
}

// ---- The locks under the standard guards, across library threads

using namespace std::chrono_literals;

// Writers under lock_guard (and, for the read-write lock, readers under
// shared_lock on the same threads) on a plain counter: only the lock keeps
// it whole; a reader let in beside a writer is a race the thread sanitizer
// reports.
template <class Lock>
void guardedCounter(Lock &&lock) {
  long value = 0;
  std::atomic<bool> odd{false};  // a torn value seen beside a writer
  std::vector<vqutil::Thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        if constexpr (std::is_same_v<Lock, vqutil::RwMutex>) {
          std::shared_lock<vqutil::RwMutex> shared(lock);
          if (value % 2 != 0) odd = true;
        }
        std::lock_guard<Lock> guard(lock);
        value += 2;
      }
    });
  }
  EXPECT_TRUE(threads.back().joinable());
  threads.clear();  // joined
  EXPECT_TRUE(value == 8000 && !odd);
}

TEST(CppLockThreads, GuardsKeepACounterWhole) {
  guardedCounter(vqutil::Mutex());
  guardedCounter(vqutil::RwMutex());
}

// What `attempt` answers on another library thread, as its exit code.
D_WORD elsewhere(const std::function<D_WORD()> &attempt) {
  return vqutil::Thread([&attempt] { return attempt(); }).join();
}

// The try forms answer for everyone else: a held mutex times out on another
// thread, at once when the deadline has passed; readers held under
// shared_lock are in at once, and while they are, another thread gets the
// read side only. (What a waiting writer does to new readers is the lock's
// own business, tested with the read-write mutex.)
TEST(CppLockThreads, TryFormsOnAnotherThread) {
  DutInitThreads();
  vqutil::Mutex m = vqutil::check(vqutil::Mutex());  // a new handle passed through
  std::unique_lock<vqutil::Mutex> held(m);
  EXPECT_EQ(elsewhere([&] { return m.try_lock_for(20ms) ? 0 : DutErrNumGet(); }), D_ERR_TIMEOUT_REACHED);
  const auto past = std::chrono::steady_clock::now() - 1s;
  EXPECT_EQ(elsewhere([&] { return m.try_lock_until(past) ? 0 : DutErrNumGet(); }), D_ERR_TIMEOUT_REACHED);
  held.unlock();
  EXPECT_EQ(elsewhere([&] { return std::unique_lock<vqutil::Mutex>(m, std::try_to_lock).owns_lock(); }), 1);

  vqutil::RwMutex rw = vqutil::check(vqutil::RwMutex());
  auto tryBoth = [&] {  // 1: the write side, 2: the read side
    return elsewhere([&] {
      const int write = std::unique_lock<vqutil::RwMutex>(rw, std::try_to_lock).owns_lock();
      return write + 2 * std::shared_lock<vqutil::RwMutex>(rw, std::try_to_lock).owns_lock();
    });
  };
  std::atomic<int> inside{0};
  std::atomic<bool> release{false};
  rwtest::Threads readers(3, [&](int) -> D_WORD {
    std::shared_lock<vqutil::RwMutex> lock(rw);
    ++inside;
    return rwtest::waitUntil([&] { return release.load(); });
  });
  EXPECT_TRUE(rwtest::waitUntil([&] { return inside.load() == 3; }));
  EXPECT_EQ(tryBoth(), 2) << "readers in: another reader only";
  release = true;
  readers.join();
  EXPECT_EQ(tryBoth(), 3) << "free: both";
}

}  // namespace
