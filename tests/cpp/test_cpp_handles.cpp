// The C++ face's owning handles: every object is released exactly once,
// through the right destroy function, whatever moves happened before.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <unistd.h>

#include "vqutil/vqutil.hpp"

namespace {

// Counts, per item, how often a release function saw it.
struct Releases {
  std::map<D_WORD, int> seen;
  void note(D_WORD item) { ++seen[item]; }
  // Every item in [1, n] exactly once, nothing else.
  bool exactlyOnce(int n) const {
    if (static_cast<int>(seen.size()) != n) return false;
    for (int i = 1; i <= n; ++i) {
      auto it = seen.find(i);
      if (it == seen.end() || it->second != 1) return false;
    }
    return true;
  }
};

void releaseItem(D_INT4, D_WORD item, void *arg) { static_cast<Releases *>(arg)->note(item); }
void releaseEntry(D_WORD, D_WORD value, void *arg) { static_cast<Releases *>(arg)->note(value); }

// The moves a handle goes through before it dies.
enum class Path { Plain, MoveConstruct, MoveAssignOverLive, SelfSwapViaMove };

template <class Make, class Fill>
void expectReleasedOnce(Path path, Make make, Fill fill) {
  Releases kept, dropped;
  {
    auto a = make(&kept);
    fill(a, 5);
    if (path == Path::MoveConstruct) {
      auto b = std::move(a);
      EXPECT_FALSE(a);
      EXPECT_TRUE(kept.seen.empty());
    } else if (path == Path::MoveAssignOverLive) {
      auto b = make(&dropped);
      fill(b, 3);
      b = std::move(a);
      // The target's old object goes at once, the moved one with b.
      EXPECT_TRUE(dropped.exactlyOnce(3));
      EXPECT_TRUE(kept.seen.empty());
    } else if (path == Path::SelfSwapViaMove) {
      auto b = std::move(a);
      a = std::move(b);
    }
  }
  EXPECT_TRUE(kept.exactlyOnce(5)) << static_cast<int>(path);
  EXPECT_TRUE(path == Path::MoveAssignOverLive || dropped.seen.empty());
}

const Path kPaths[] = {Path::Plain, Path::MoveConstruct, Path::MoveAssignOverLive, Path::SelfSwapViaMove};

TEST(CppHandles, PtrArrayItemsReleasedOnce) {
  for (Path path : kPaths) {
    expectReleasedOnce(
        path, [](Releases *r) { return vqutil::PtrArray(2, releaseItem, r); },
        [](vqutil::PtrArray &a, int n) {
          for (D_WORD i = 1; i <= n; ++i) ASSERT_TRUE(a.append(i));
          ASSERT_EQ(a.size(), n);
        });
  }
}

TEST(CppHandles, HashTableEntriesReleasedOnce) {
  for (Path path : kPaths) {
    expectReleasedOnce(
        path, [](Releases *r) { return vqutil::HashTable(vqutil::HashTable::Keys::Int, 0, releaseEntry, r); },
        [](vqutil::HashTable &t, int n) {
          for (D_WORD i = 1; i <= n; ++i) t.insert(i * 100, i);
          ASSERT_EQ(t.size(), n);
        });
  }
}

int g_ring_frees = 0;
void countRingFree(void *value) {
  ++g_ring_frees;
  delete static_cast<int *>(value);
}

TEST(CppHandles, RingPointersFreedOnceAndRecordReleased) {
  g_ring_frees = 0;
  DutSetCurrentTime(0.0);  // values go into the buffers only once time is known
  {
    vqutil::Ring ring(D_RING_TYPE_VOID, "cpp");
    ASSERT_TRUE(ring);
    ASSERT_TRUE(ring.set_free_func(countRingFree));
    // Two buffers share each pointer; it must still be freed once.
    ASSERT_NE(ring.add_buffer({10, 0}, {0, 0}, 4), nullptr);
    ASSERT_NE(ring.add_buffer({100, 0}, {1, 0}, 4), nullptr);
    int overwrites = 0;
    ring.on_overwrite([&](const D_RING_OVERWRITE_CB_DATA &d) { overwrites += d.entry != nullptr; });
    for (int s = 1; s <= 3; ++s) ASSERT_NE(ring.archive({s, 0}, new int(s)), nullptr);
    vqutil::Ring moved = std::move(ring);
    EXPECT_FALSE(ring);
    EXPECT_EQ(g_ring_frees, 0);
    EXPECT_EQ(overwrites, 0);
  }
  EXPECT_EQ(g_ring_frees, 3);
}

TEST(CppHandles, RingOfUnknownTypeIsEmptyWithError) {
  DutErrNumSet(0);
  vqutil::Ring ring(77);
  EXPECT_FALSE(ring);
  EXPECT_EQ(vqutil::last_error(), vqutil::make_error_code(D_ERR_TYPE_INVALID));
}

TEST(CppHandles, SafeStringTakesViewsAndMoves) {
  const std::string source = "alpha-beta-gamma";
  struct Case {
    size_t from, count;
  } cases[] = {{0, 5}, {6, 4}, {11, 5}, {0, 0}};
  for (const Case &c : cases) {
    vqutil::SafeString s(std::string_view(source).substr(c.from, c.count));
    EXPECT_EQ(s.view(), source.substr(c.from, c.count));
    s += '!';
    vqutil::SafeString t = std::move(s);
    EXPECT_FALSE(s);
    EXPECT_EQ(t.view(), source.substr(c.from, c.count) + "!");
  }
  // Growth past the first quantum keeps the text and its length.
  vqutil::SafeString big(8);
  for (int i = 0; i < 100; ++i) big.append("0123456789", 16);
  EXPECT_EQ(big.view().size(), 1000u);
  EXPECT_GE(big.capacity(), 1001);
  EXPECT_TRUE(big.shorten(990));
  EXPECT_EQ(big.view(), "0123456789");
  EXPECT_FALSE(big.shorten(11));
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_VAL_INVALID);
}

TEST(CppHandles, HashTableTextKeysAndTraversal) {
  vqutil::HashTable t(vqutil::HashTable::Keys::Stri);
  static const char *const keys[] = {"one", "Two", "THREE"};
  for (D_WORD i = 0; i < 3; ++i) t.insert(keys[i], i + 1);
  const std::string probe = "xxTWOxx";
  EXPECT_EQ(t.lookup(std::string_view(probe).substr(2, 3)), 2);
  EXPECT_EQ(t.lookup(std::string_view("four")), 0);
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_DOESNT_EXIST);
  D_WORD sum = 0;
  EXPECT_EQ(t.for_each([&](D_WORD, D_WORD v) { sum += v; return 0; }), 0);
  EXPECT_EQ(sum, 6);
  EXPECT_EQ(t.for_each([](D_WORD, D_WORD v) { return v == 3 ? 42 : 0; }), 42);
  EXPECT_EQ(t.erase(std::string_view("three")), 3);
  EXPECT_EQ(t.size(), 2);
}

TEST(CppHandles, PathFindsFilesBehindLongDirectories) {
  char tmpl[] = "/tmp/vqcppXXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  const std::string root = tmpl;
  // A directory name far longer than any fixed buffer a caller might guess.
  std::string deep = root;
  for (int i = 0; i < 6; ++i) {
    deep += "/" + std::string(60, static_cast<char>('a' + i));
    ASSERT_EQ(mkdir(deep.c_str(), 0700), 0);
  }
  const std::string file = deep + "/target.txt";
  std::FILE *f = std::fopen(file.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);

  vqutil::Path path;
  ASSERT_TRUE(path.add_dir(root));
  EXPECT_EQ(path.find_file("target.txt"), "");
  ASSERT_TRUE(path.add_dir(deep));
  EXPECT_EQ(path.find_file("target.txt"), file);
  EXPECT_TRUE(path.delete_dir(deep));
  EXPECT_FALSE(path.delete_dir(deep));
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(path.find_file("target.txt"), "");

  std::remove(file.c_str());
  for (std::string d = deep; d.size() > root.size(); d = d.substr(0, d.rfind('/'))) rmdir(d.c_str());
  rmdir(root.c_str());
}

TEST(CppHandles, FileLockReleasesItsLockFile) {
  char tmpl[] = "/tmp/vqcpplockXXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  const std::string resource = std::string(tmpl) + "/res";
  const std::string lock_file = resource + D_LOCK_FILE_SUFFIX;
  {
    auto lock = vqutil::FileLock::acquire(resource, vqutil::FileLock::Mode::Shared);
    ASSERT_TRUE(lock);
    EXPECT_EQ(access(lock_file.c_str(), F_OK), 0);
    auto second = vqutil::FileLock::acquire(resource, vqutil::FileLock::Mode::Shared);
    ASSERT_TRUE(second);
    // The first release keeps the file: the other handle still holds it.
    EXPECT_TRUE(lock.unlock());
    EXPECT_FALSE(lock.unlock());
    EXPECT_EQ(access(lock_file.c_str(), F_OK), 0);
    vqutil::FileLock moved = std::move(second);
  }
  EXPECT_NE(access(lock_file.c_str(), F_OK), 0);
  DutErrNumSet(0);
  EXPECT_FALSE(vqutil::FileLock::acquire(""));
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_VAL_INVALID);
  rmdir(tmpl);
}

TEST(CppHandles, LexerSurvivesSyntaxErrors) {
  struct Case {
    const char *text;
    bool ok;  // "name = number ;" accepted
  } cases[] = {{"speed = -12.5;", true}, {"speed = ;", false}, {"= 3;", false}, {"x = 4", false}};
  for (const Case &c : cases) {
    int tokens = 0;
    auto lexer = vqutil::Lexer::from_string(std::string(c.text) + " trailing text not kept by view");
    ASSERT_TRUE(lexer) << c.text;
    lexer.on_token([&](const D_LEX_TOKEN_CB_DATA &) { ++tokens; });
    D_REAL8 number = 0;
    bool ok = lexer.accept_id();
    std::string name = ok ? std::string(lexer.text()) : "";
    ok = ok && lexer.accept(D_TOK_EQUALS) && lexer.accept_real(number) && lexer.accept(D_TOK_SEMICOLON);
    EXPECT_EQ(ok, c.ok) << c.text;
    EXPECT_EQ(static_cast<bool>(lexer), c.ok) << c.text;
    EXPECT_EQ(lexer.error_message().empty(), c.ok) << c.text << ": " << lexer.error_message();
    if (c.ok && ok) {
      EXPECT_EQ(name, "speed");
      EXPECT_DOUBLE_EQ(number, -12.5);
      EXPECT_EQ(lexer.token(), D_TOK_IDENTIFIER);
      EXPECT_GE(tokens, 3);  // "=", the number, ";" at least
    }
  }
}

}  // namespace
