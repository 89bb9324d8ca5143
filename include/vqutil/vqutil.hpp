/*
 * vqutil: a header-only C++17 face of the C API for C++ hosts.
 *
 * What it adds, and nothing more:
 *   - owning, move-only handles that call the right destroy function once:
 *     HashTable, PtrArray, SafeString, Lexer, Ring, Path, Mutex, RwMutex,
 *     FileLock, Thread and Callback;
 *   - Mutex (Lockable, TimedLockable) and RwMutex (Lockable and
 *     SharedLockable), so std::lock_guard, std::unique_lock and
 *     std::shared_lock work with them;
 *   - std::string_view overloads; where the C call needs a NUL-terminated
 *     text the view is copied into a temporary std::string first (a view
 *     with an embedded NUL therefore ends there for the library);
 *   - callbacks from lambdas: the lambda lives on the heap, its address is
 *     the callback's argument word and a trampoline per lambda type calls
 *     it, so no global is involved. The object that registered the lambda
 *     keeps it alive as long as the callback can be called;
 *   - the calling thread's error number as a std::error_code
 *     (last_error()), in the category named "vqutil" whose messages are the
 *     library's texts (DutErrNumToStr).
 *
 * Errors: nothing here throws unless the host asks for it with check(),
 * which throws std::system_error carrying last_error(). Failed creations
 * give an empty handle (operator bool false) and leave the error number
 * set, exactly as the C call did. Lambdas called from the library must not
 * throw: the trampolines are noexcept, an escaping exception terminates.
 *
 * Thread safety is that of the C API underneath: tables, arrays, safe
 * strings, lexers, rings and paths are not locked (one thread at a time, or
 * the host locks around them); mutexes, read-write mutexes and file locks
 * are what the host locks with. The read-write mutex tells threads apart
 * only when the library started them (Thread below, or DutThreadCreate):
 * every other thread, the main one included, counts as one and the same
 * thread. A host that uses the locks from threads of its own calls
 * DutInitThreads first (Thread does it for its threads).
 */
#ifndef VQUTIL_VQUTIL_HPP
#define VQUTIL_VQUTIL_HPP

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "util.h"

namespace vqutil {

// ---- Error numbers ---------------------------------------------------------

// The library's error numbers as a std::error_category; message() is the
// library's own short text of the number.
class ErrorCategory final : public std::error_category {
 public:
  const char *name() const noexcept override { return "vqutil"; }
  std::string message(int ev) const override { return DutErrNumToStr(static_cast<D_INT4>(ev)); }
};

inline const std::error_category &error_category() noexcept {
  static const ErrorCategory category;
  return category;
}

// An error number of the library as an error code of its category.
inline std::error_code make_error_code(int err_num) noexcept { return {err_num, error_category()}; }

// The calling thread's error number. Success does not clear it, so read it
// only after a call reported failure.
inline std::error_code last_error() noexcept { return make_error_code(DutErrNumGet()); }

// Throwing helpers for hosts that want exceptions: a D_FALSE result or a
// null pointer throws std::system_error(last_error(), what); anything else
// is passed through.
inline D_BOOL check(D_BOOL ok, const char *what = "vqutil") {
  if (ok == D_FALSE) throw std::system_error(last_error(), what);
  return ok;
}
template <class T>
T *check(T *pointer, const char *what = "vqutil") {
  if (pointer == nullptr) throw std::system_error(last_error(), what);
  return pointer;
}
// Handles: an lvalue is checked in place, a new handle passed through.
template <class H, std::enable_if_t<std::is_class_v<H>, int> = 0>
H &check(H &handle, const char *what = "vqutil") {
  if (!static_cast<bool>(handle)) throw std::system_error(last_error(), what);
  return handle;
}
template <class H, std::enable_if_t<std::is_class_v<H> && !std::is_reference_v<H>, int> = 0>
H check(H &&handle, const char *what = "vqutil") {
  if (!static_cast<bool>(handle)) throw std::system_error(last_error(), what);
  return std::move(handle);
}

// ---- Lambdas behind C callbacks ----------------------------------------------

namespace detail {

// A heap-held callable of any type; its address is the argument word.
struct ThunkBase {
  virtual ~ThunkBase() = default;
};
template <class F>
struct Thunk final : ThunkBase {
  explicit Thunk(F f) : fn(std::move(f)) {}
  F fn;

  D_WORD word() { return reinterpret_cast<D_WORD>(this); }
  static Thunk &from(D_WORD arg) { return *reinterpret_cast<Thunk *>(arg); }

  // The callback-family calling convention: (object, data, arg).
  static void callback(void *object, void *data, D_WORD arg) noexcept { from(arg).fn(object, data); }
  // Thread start: one word in, the exit code out.
  static D_WORD thread(D_WORD arg) noexcept {
    if constexpr (std::is_void_v<decltype(std::declval<F &>()())>) {
      from(arg).fn();
      return 0;
    } else {
      return static_cast<D_WORD>(from(arg).fn());
    }
  }
};

using ThunkPtr = std::unique_ptr<ThunkBase>;

// Adapts a lambda taking the typed data record to the untyped convention.
template <class Data, class F>
auto typed(F f) {
  return [f = std::move(f)](void *, void *data) mutable { f(*static_cast<const Data *>(data)); };
}

// The lambdas an object keeps for the callbacks registered on it: the C
// side destroys those callbacks with the object, so the lambdas may go
// only after it.
class ThunkStore {
 public:
  template <class F>
  D_CB *add(D_CB *(*create)(void *, D_CB_FUNC, D_WORD), void *object, F f) {
    auto thunk = std::make_unique<Thunk<F>>(std::move(f));
    D_CB *cb = create(object, &Thunk<F>::callback, thunk->word());
    if (cb != nullptr) thunks_.push_back(std::move(thunk));
    return cb;
  }

 private:
  std::vector<ThunkPtr> thunks_;
};

}  // namespace detail

// One registered callback, owned: the destructor (or reset()) destroys the
// callback first, then the lambda it called. It must go before the list it
// lives in; callbacks on objects wrapped here (PtrArray, Ring, Lexer) are
// registered through those objects instead, which keep their lambdas.
class Callback {
 public:
  Callback() = default;
  Callback(Callback &&other) noexcept : cb_(std::exchange(other.cb_, nullptr)), thunk_(std::move(other.thunk_)) {}
  Callback &operator=(Callback &&other) noexcept {
    if (this != &other) {
      reset();
      cb_ = std::exchange(other.cb_, nullptr);
      thunk_ = std::move(other.thunk_);
    }
    return *this;
  }
  ~Callback() { reset(); }

  // Registers f(object, data) through create(..., func, arg); an empty
  // Callback when create fails (error number as create set it).
  template <class F, class Create>
  static Callback make(Create &&create, F f) {
    auto thunk = std::make_unique<detail::Thunk<F>>(std::move(f));
    Callback result;
    result.cb_ = create(&detail::Thunk<F>::callback, thunk->word());
    if (result.cb_ != nullptr) result.thunk_ = std::move(thunk);
    return result;
  }

  void reset() noexcept {
    if (cb_ != nullptr) DutCbDestroy(std::exchange(cb_, nullptr));
    thunk_.reset();
  }
  D_CB *get() const noexcept { return cb_; }
  explicit operator bool() const noexcept { return cb_ != nullptr; }

 private:
  D_CB *cb_ = nullptr;
  detail::ThunkPtr thunk_;
};

// f(object, data) in a callback list of the caller's.
template <class F>
Callback on_list(D_CB_LIST *list, F f) {
  return Callback::make([list](D_CB_FUNC fn, D_WORD arg) { return DutCbListCbCreate(list, fn, arg); }, std::move(f));
}
// f(object, data) for calls of type about object (null object: the type's
// global list).
template <class F>
Callback on_type(D_CB_TYPE *type, void *object, F f) {
  return Callback::make([type, object](D_CB_FUNC fn, D_WORD arg) { return DutCbTypeCbCreate(type, object, fn, arg); },
                        std::move(f));
}
// f(object, data) when the process quits.
template <class F>
Callback on_quit(F f) {
  return Callback::make([](D_CB_FUNC fn, D_WORD arg) { return DutQuitCbCreate(fn, arg); }, std::move(f));
}

// ---- Hash tables and pointer arrays ----------------------------------------------

namespace detail {

// Owns a T destroyed by Destroy(object, release, release_arg): the entry or
// item function given at creation sees each remaining element once.
template <class T, class ReleaseFn, auto Destroy>
class Releasing {
 public:
  Releasing() = default;
  Releasing(T *object, ReleaseFn release, void *release_arg) : p_(object), release_(release), arg_(release_arg) {}
  Releasing(Releasing &&other) noexcept { swap(other); }
  Releasing &operator=(Releasing &&other) noexcept {
    Releasing(std::move(other)).swap(*this);
    return *this;
  }
  ~Releasing() {
    if (p_ != nullptr) static_cast<void>(Destroy(p_, release_, arg_));
  }

  void swap(Releasing &other) noexcept {
    std::swap(p_, other.p_);
    std::swap(release_, other.release_);
    std::swap(arg_, other.arg_);
  }
  T *get() const noexcept { return p_; }
  // Gives up ownership; the caller destroys the object.
  T *release() noexcept { return std::exchange(p_, nullptr); }
  explicit operator bool() const noexcept { return p_ != nullptr; }

 private:
  T *p_ = nullptr;
  ReleaseFn release_ = nullptr;
  void *arg_ = nullptr;
};

}  // namespace detail

// Owns a D_HASH_TABLE; keys and values stay the caller's, as in C. The
// destructor runs DutHashDestroy with the entry function given at creation
// (or none), so that function sees each remaining entry exactly once.
class HashTable : public detail::Releasing<D_HASH_TABLE, D_HASH_ENTRY_FUNC, &DutHashDestroy> {
 public:
  enum class Keys { Int, Str, Stri, Ptr };

  HashTable() = default;
  explicit HashTable(Keys keys, D_INT4 size = 0, D_HASH_ENTRY_FUNC release = nullptr, void *release_arg = nullptr)
      : Releasing(create(keys, size), release, release_arg) {}

  D_INT4 size() const { return DutHashGetSize(get()); }
  void insert(D_WORD key, D_WORD value) { DutHashInsert(get(), key, value); }
  // The table keeps the key pointer: text keys must outlive their entry.
  void insert(const char *key, D_WORD value) { insert(reinterpret_cast<D_WORD>(key), value); }
  D_WORD lookup(D_WORD key) const { return DutHashLookup(get(), key); }
  // Text lookup (string tables): the view is copied to end in a NUL.
  D_WORD lookup(std::string_view key) const {
    const std::string text(key);
    return lookup(reinterpret_cast<D_WORD>(text.c_str()));
  }
  D_WORD erase(D_WORD key) { return DutHashDelete(get(), key); }
  D_WORD erase(std::string_view key) {
    const std::string text(key);
    return erase(reinterpret_cast<D_WORD>(text.c_str()));
  }
  // f(key, value) on every entry; a non-zero result stops the walk and is
  // returned (0 after a full walk, with D_ERR_END_OF_TRAVERSAL set).
  template <class F>
  D_WORD for_each(F &&f) const {
    auto visit = [](D_WORD key, D_WORD value, void *arg) noexcept -> D_WORD {
      return static_cast<D_WORD>((*static_cast<std::remove_reference_t<F> *>(arg))(key, value));
    };
    return DutHashTraverse(get(), visit, const_cast<void *>(static_cast<const void *>(&f)));
  }

 private:
  static D_HASH_TABLE *create(Keys keys, D_INT4 size) {
    switch (keys) {
      case Keys::Int: return DutHashCreateInt(size);
      case Keys::Str: return DutHashCreateStr(size);
      case Keys::Stri: return DutHashCreateStri(size);
      case Keys::Ptr: return DutHashCreatePtr(size);
    }
    return nullptr;
  }
};

// Owns a D_PTR_ARY and the lambdas of its change callbacks. Items stay the
// caller's; the destructor runs DutPtrAryDestroy with the item function
// given at creation (or none), which also destroys the change callbacks,
// and only then frees their lambdas (the store is the first base, so it
// goes last).
class PtrArray : private detail::ThunkStore,
                 public detail::Releasing<D_PTR_ARY, D_PTR_ARY_ITEM_FUNC, &DutPtrAryDestroy> {
 public:
  PtrArray() = default;
  explicit PtrArray(D_INT4 increment, D_PTR_ARY_ITEM_FUNC release = nullptr, void *release_arg = nullptr)
      : Releasing(DutPtrAryCreate(increment), release, release_arg) {}
  PtrArray(PtrArray &&) noexcept = default;
  // Through a temporary, so the old array goes before its lambdas.
  PtrArray &operator=(PtrArray &&other) noexcept {
    PtrArray(std::move(other)).swap(*this);
    return *this;
  }
  void swap(PtrArray &other) noexcept {
    Releasing::swap(other);
    std::swap(static_cast<ThunkStore &>(*this), static_cast<ThunkStore &>(other));
  }

  D_INT4 size() const { return D_GPA_COUNT(get()); }
  D_WORD operator[](D_INT4 index) const { return DutPtrAryGetArray(get())[index]; }
  const D_WORD *begin() const { return DutPtrAryGetArray(get()); }
  const D_WORD *end() const { return begin() + size(); }
  bool append(D_WORD item) { return DutPtrAryAppend(get(), item, nullptr) != D_FALSE; }
  bool insert(D_INT4 index, D_WORD item) { return DutPtrAryInsertItemAtIndex(get(), item, index) != D_FALSE; }
  bool remove(D_WORD item) { return DutPtrAryRemove(get(), item) != D_FALSE; }
  bool remove_at(D_INT4 index, D_WORD *item = nullptr) {
    return DutPtrAryRemoveItemAtIndex(get(), index, item) != D_FALSE;
  }
  bool contains(D_WORD item) const { return DutPtrAryItemExists(get(), item) != D_FALSE; }

  // f(const D_PTR_ARY_CHANGE &) after every change. The callback is
  // destroyed with the array; the lambda is kept until then.
  template <class F>
  D_CB *on_change(F f) {
    return add(
        [](void *array, D_CB_FUNC fn, D_WORD arg) {
          return DutPtrAryChangeCbCreate(static_cast<D_PTR_ARY *>(array), fn, arg);
        },
        get(), detail::typed<D_PTR_ARY_CHANGE>(std::move(f)));
  }
};

// ---- Safe strings ----------------------------------------------------------------

// Owns a D_SAFE_STRING's buffer; DutSafeStringDestroy runs once.
class SafeString {
 public:
  explicit SafeString(D_INT4 size = D_SAFE_STRING_QUANTUM) : s_(DutSafeStringQCreate(size)) {}
  explicit SafeString(std::string_view text) : SafeString() { append(text); }
  SafeString(SafeString &&other) noexcept : s_(std::exchange(other.s_, D_SAFE_STRING{})) {}
  SafeString &operator=(SafeString &&other) noexcept {
    std::swap(s_, other.s_);
    return *this;
  }
  ~SafeString() {
    if (s_.str != nullptr) DutSafeStringDestroy(s_);
  }

  // The record, for C calls that take one (it stays owned here).
  D_SAFE_STRING *get() noexcept { return &s_; }
  explicit operator bool() const noexcept { return s_.str != nullptr; }
  const char *c_str() const noexcept { return s_.str; }
  std::string_view view() const noexcept { return {s_.str, static_cast<size_t>(s_.length)}; }
  D_INT4 capacity() const noexcept { return s_.size; }

  // Copies the view to end in a NUL, then appends it.
  SafeString &append(std::string_view text, D_INT4 quantum = D_SAFE_STRING_QUANTUM) {
    if (s_.str == nullptr) DutSafeStringClear(&s_);
    DutSafeStringQAppend(&s_, std::string(text).c_str(), quantum);
    return *this;
  }
  SafeString &operator+=(std::string_view text) { return append(text); }
  SafeString &operator+=(char c) {
    if (s_.str == nullptr) DutSafeStringClear(&s_);
    DutSafeStringAppendChar(&s_, c);
    return *this;
  }
  void clear() { DutSafeStringClear(&s_); }
  bool shorten(D_INT4 count) { return DutSafeStringShorten(&s_, count) != D_FALSE; }

 private:
  D_SAFE_STRING s_{};
};

// ---- Lexers --------------------------------------------------------------------------

// Owns a D_LEX, the copy of its input text and the lambdas of its token
// callbacks. A syntax error does not end the program or long-jump: the
// lexer's error function keeps the message (error_message()) and returns;
// the library then destroys the lexer, and this object lets go of it
// (operator bool turns false), so it is destroyed exactly once.
class Lexer {
 public:
  Lexer() = default;
  // Lexes a copy of text (the library keeps the text by pointer).
  static Lexer from_string(std::string_view text) {
    Lexer lexer;
    lexer.state_->text.assign(text);
    lexer.adopt(DutLexCreate(D_LEX_ATT_STRING, lexer.state_->text.c_str(), D_LEX_ATT_ERROR_FUNC, &Lexer::on_error,
                             D_LEX_ATT_ERROR_ARG, lexer.state_.get(), 0));
    return lexer;
  }
  // Lexes the named file (a file that cannot be opened is fatal, as in C).
  static Lexer from_file(std::string_view file_name) {
    Lexer lexer;
    const std::string name(file_name);
    lexer.adopt(DutLexCreate(D_LEX_ATT_FILE_NAME, name.c_str(), D_LEX_ATT_ERROR_FUNC, &Lexer::on_error,
                             D_LEX_ATT_ERROR_ARG, lexer.state_.get(), 0));
    return lexer;
  }
  Lexer(Lexer &&other) noexcept : lex_(std::exchange(other.lex_, nullptr)), state_(std::move(other.state_)) {}
  Lexer &operator=(Lexer &&other) noexcept {
    std::swap(lex_, other.lex_);
    std::swap(state_, other.state_);
    return *this;
  }
  ~Lexer() {
    if (lex_ != nullptr) DutLexDestroy(lex_);
  }

  D_LEX *get() const noexcept { return lex_; }
  // False once a syntax error destroyed the lexer.
  explicit operator bool() const noexcept { return lex_ != nullptr; }
  // The last syntax error's message, "" when there was none.
  const std::string &error_message() const noexcept { return state_->error; }

  D_INT4 token() const { return DutLexGetToken(lex_); }
  std::string_view token_text() const { return DutLexGetTokenText(lex_); }
  std::string_view text() const { return DutLexGetText(lex_); }
  D_REAL8 value() const { return DutLexGetValue(lex_); }

  bool accept(D_INT4 kind) { return guard(DutLexAccept(lex_, kind)) != D_FALSE; }
  bool accept_id() { return guard(DutLexAcceptId(lex_)) != D_FALSE; }
  // The typed accepts: the value goes to out only when accepted.
  bool accept_real(D_REAL8 &out) { return typed_accept(out, DutLexAcceptSignedReal); }
  bool accept_int(D_INT4 &out) { return typed_accept(out, DutLexAcceptSignedInt); }
  bool accept_bool(bool &out) {
    D_BOOL value = D_FALSE;
    if (!typed_accept(value, DutLexAcceptBool)) return false;
    out = value != D_FALSE;
    return true;
  }

  // f(const D_LEX_TOKEN_CB_DATA &) for each token read. The callback is
  // destroyed with the lexer; the lambda is kept until this object goes.
  template <class F>
  D_CB *on_token(F f) {
    return state_->thunks.add(
        [](void *lex, D_CB_FUNC fn, D_WORD arg) { return DutLexTokenCbCreate(static_cast<D_LEX *>(lex), fn, arg); },
        lex_, detail::typed<D_LEX_TOKEN_CB_DATA>(std::move(f)));
  }

 private:
  // Heap-held so that the lexer's pointers into it survive moves.
  struct State {
    std::string text;
    std::string error;
    bool failed = false;
    detail::ThunkStore thunks;
  };

#if defined(__GNUC__)
  __attribute__((format(printf, 2, 0)))
#endif
  static void on_error(D_LEX *, const char *format, va_list args, void *arg) {
    auto *state = static_cast<State *>(arg);
    char message[512];
    std::vsnprintf(message, sizeof message, format, args);
    state->error = message;
    state->failed = true;
  }
  // Reading the first token may already fail and destroy the lexer.
  void adopt(D_LEX *lex) {
    lex_ = lex;
    guard(0);
  }
  // After an accept: a reported error means the library destroyed the lexer.
  template <class T>
  T guard(T result) {
    if (state_->failed) {
      lex_ = nullptr;
      state_->failed = false;
    }
    return result;
  }
  template <class T, class R>
  bool typed_accept(T &out, R (*accept_fn)(D_LEX *)) {
    const R value = accept_fn(lex_);
    const bool ok = !state_->failed;
    guard(0);
    if (ok) out = static_cast<T>(value);
    return ok;
  }

  D_LEX *lex_ = nullptr;
  std::unique_ptr<State> state_ = std::make_unique<State>();
};

// ---- Ring buffers ------------------------------------------------------------------------

// Owns a D_RING_BUF completely: the destructor runs DutRingDestroy (values
// go to the ring's free function, each pointer once) and then releases what
// that leaves (the overwrite callback list, the buffer list's sentinel, the
// record), then the lambdas of the overwrite callbacks.
class Ring {
 public:
  Ring() = default;
  // A ring of type (D_RING_TYPE_...) named by a copy of name.
  // An empty name gives an unnamed ring.
  explicit Ring(D_UINT4 type, std::string_view name = {}) {
    const std::string copy(name);
    ring_ = DutRingCreate(type, copy.empty() ? nullptr : copy.c_str());
  }
  Ring(Ring &&other) noexcept : ring_(std::exchange(other.ring_, nullptr)), thunks_(std::move(other.thunks_)) {}
  Ring &operator=(Ring &&other) noexcept {
    std::swap(ring_, other.ring_);
    std::swap(thunks_, other.thunks_);
    return *this;
  }
  ~Ring() {
    if (ring_ == nullptr) return;
    DutRingDestroy(ring_);
    if (ring_->overwrite_cb_list != nullptr) DutCbListDestroy(ring_->overwrite_cb_list);
    DutDqClose(&ring_->buffers);
    DutFreeCheck(ring_, "ring", __FILE__, __LINE__);
  }

  D_RING_BUF *get() const noexcept { return ring_; }
  explicit operator bool() const noexcept { return ring_ != nullptr; }

  bool set_free_func(D_RING_FREE_FUNC func) { return DutRingSetFreeFunc(ring_, func) != D_FALSE; }
  D_RING_HDR *add_buffer(D_TIME_VALUE min_span, D_TIME_VALUE incr, D_INT4 size) {
    return DutRingAddBuffer(ring_, &min_span, &incr, size);
  }
  D_RING_HDR *add_fixed_buffer(D_INT4 size, D_TIME_VALUE incr) { return DutRingAddFixedBuffer(ring_, size, &incr); }
  // Type 0 rings take the pointer itself; the others a pointer to the value.
  D_RING_ENTRY *archive(D_TIME_VALUE time, const void *value, D_UINT2 status = D_RING_STATUS_KNOWN,
                        D_UINT2 flag = 0) {
    return DutRingArchiveValue(ring_, &time, value, status, flag);
  }
  D_RING_ENTRY *current() const { return DutRingCurrentEntry(ring_); }
  bool clear() { return DutRingClear(ring_) != D_FALSE; }

  // f(const D_RING_OVERWRITE_CB_DATA &) before a value is overwritten.
  template <class F>
  D_CB *on_overwrite(F f) {
    return thunks_.add(
        [](void *ring, D_CB_FUNC fn, D_WORD arg) {
          return DutRingOverwriteCbCreate(static_cast<D_RING_BUF *>(ring), fn, arg);
        },
        ring_, detail::typed<D_RING_OVERWRITE_CB_DATA>(std::move(f)));
  }

 private:
  D_RING_BUF *ring_ = nullptr;
  detail::ThunkStore thunks_;
};

// ---- Search paths --------------------------------------------------------------------------

struct PathDeleter {
  void operator()(D_PATH *path) const noexcept { DutPathDestroy(path); }
};

// Owns a D_PATH and its copies of the directories.
class Path {
 public:
  Path() : path_(DutPathCreate()) {}
  D_PATH *get() const noexcept { return path_.get(); }
  explicit operator bool() const noexcept { return path_ != nullptr; }

  bool add_dir(std::string_view dir) { return DutPathAddDir(get(), std::string(dir).c_str()) != D_FALSE; }
  bool delete_dir(std::string_view dir) { return DutPathDeleteDir(get(), std::string(dir).c_str()) != D_FALSE; }
  // The first directory's name joined with name where that file exists; ""
  // when none holds it. The buffer is sized for the longest directory, so
  // no shared static buffer is involved.
  std::string find_file(std::string_view name) const {
    size_t longest = 0;
    DutPathForEachDir(
        get(),
        [](const char *dir, void *arg) noexcept -> void * {
          auto *n = static_cast<size_t *>(arg);
          *n = std::max(*n, std::char_traits<char>::length(dir));
          return nullptr;
        },
        &longest);
    std::string buffer(longest + name.size() + 2, '\0');
    if (DutPathFindFile(get(), std::string(name).c_str(), buffer.data()) == nullptr) return {};
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    return buffer;
  }

 private:
  std::unique_ptr<D_PATH, PathDeleter> path_;
};

// ---- Threads and mutexes ----------------------------------------------------------------------

// A library thread running a lambda (its result, when it has one, is the
// exit code). Joined by join() or the destructor, like std::jthread; the
// lambda lives until then. Library threads are the ones the read-write
// mutex tells apart.
class Thread {
 public:
  Thread() = default;
  template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, Thread>>>
  explicit Thread(F &&f) {
    auto thunk = std::make_unique<detail::Thunk<std::decay_t<F>>>(std::forward<F>(f));
    thread_ = DutThreadCreate(&detail::Thunk<std::decay_t<F>>::thread, thunk->word());
    if (thread_ != D_INVALID_THREAD) thunk_ = std::move(thunk);
  }
  Thread(Thread &&other) noexcept
      : thread_(std::exchange(other.thread_, D_INVALID_THREAD)), thunk_(std::move(other.thunk_)) {}
  Thread &operator=(Thread &&other) noexcept {
    if (this != &other) {
      join();
      thread_ = std::exchange(other.thread_, D_INVALID_THREAD);
      thunk_ = std::move(other.thunk_);
    }
    return *this;
  }
  ~Thread() { join(); }

  bool joinable() const noexcept { return thread_ != D_INVALID_THREAD; }
  D_THREAD get() const noexcept { return thread_; }
  // Waits for the thread; its exit code, or 0 when it was not running.
  D_WORD join() {
    D_WORD code = 0;
    if (thread_ != D_INVALID_THREAD && DutThreadWait(thread_, &code) != D_FALSE) thread_ = D_INVALID_THREAD;
    thunk_.reset();
    return code;
  }

 private:
  D_THREAD thread_ = D_INVALID_THREAD;
  detail::ThunkPtr thunk_;
};

// The library's recursive mutex, owned (DutMutexDestroy once). Lockable and
// TimedLockable: std::lock_guard, std::unique_lock, std::scoped_lock work.
class Mutex {
 public:
  Mutex() : mutex_(DutMutexCreate(0)) {}
  Mutex(Mutex &&other) noexcept : mutex_(std::exchange(other.mutex_, D_INVALID_MUTEX)) {}
  Mutex &operator=(Mutex &&other) noexcept {
    std::swap(mutex_, other.mutex_);
    return *this;
  }
  ~Mutex() {
    if (mutex_ != D_INVALID_MUTEX) DutMutexDestroy(mutex_);
  }

  D_MUTEX native_handle() const noexcept { return mutex_; }
  explicit operator bool() const noexcept { return mutex_ != D_INVALID_MUTEX; }

  void lock() { DutMutexLock(mutex_, D_WAIT_FOREVER); }
  bool try_lock() { return DutMutexLock(mutex_, 0.0) != D_FALSE; }
  // Waits in whole milliseconds (shorter waits do not wait at all).
  template <class Rep, class Period>
  bool try_lock_for(const std::chrono::duration<Rep, Period> &wait) {
    return DutMutexLock(mutex_, std::chrono::duration<double>(wait).count()) != D_FALSE;
  }
  template <class Clock, class Duration>
  bool try_lock_until(const std::chrono::time_point<Clock, Duration> &deadline) {
    const auto left = deadline - Clock::now();
    return try_lock_for(left < decltype(left)::zero() ? decltype(left)::zero() : left);
  }
  void unlock() { DutMutexUnlock(mutex_); }

 private:
  D_MUTEX mutex_ = D_INVALID_MUTEX;
};

// The library's read-write mutex, owned (DutRwMutexDestroy once). Lockable
// and SharedLockable: std::unique_lock / std::lock_guard write,
// std::shared_lock reads. Both modes are recursive, and a reader that takes
// the write lock upgrades, as in C. The try forms look at the lock's state
// under its own mutex and take the lock only when that cannot wait.
class RwMutex {
 public:
  explicit RwMutex(D_INT4 read_quota = 4) : rw_(DutRwMutexCreate(0, read_quota)) {}
  RwMutex(RwMutex &&other) noexcept : rw_(std::exchange(other.rw_, nullptr)) {}
  RwMutex &operator=(RwMutex &&other) noexcept {
    std::swap(rw_, other.rw_);
    return *this;
  }
  ~RwMutex() {
    if (rw_ != nullptr) DutRwMutexDestroy(rw_);
  }

  D_RW_MUTEX *native_handle() const noexcept { return rw_; }
  explicit operator bool() const noexcept { return rw_ != nullptr; }

  void lock() { DutRwMutexWriteLock(rw_); }
  void unlock() { DutRwMutexUnlock(rw_); }
  void lock_shared() { DutRwMutexReadLock(rw_); }
  void unlock_shared() { DutRwMutexUnlock(rw_); }

  // The lock's own mutex is recursive, so the lock call made while holding
  // it finds exactly the state that was checked.
  bool try_lock() {
    DutMutexLock(rw_->mutex, D_WAIT_FOREVER);
    const bool free = rw_->write.lock_count == 0 && rw_->wait_queue->next == rw_->wait_queue;
    const bool ok = free || DutRwMutexWriteLocked(rw_) != D_FALSE;
    if (ok) DutRwMutexWriteLock(rw_);
    DutMutexUnlock(rw_->mutex);
    return ok;
  }
  bool try_lock_shared() {
    DutMutexLock(rw_->mutex, D_WAIT_FOREVER);
    const bool open = rw_->write.lock_count >= 0 && rw_->wait_count == 0;
    const bool ok = open || DutRwMutexReadLocked(rw_) != D_FALSE;
    if (ok) DutRwMutexReadLock(rw_);
    DutMutexUnlock(rw_->mutex);
    return ok;
  }

 private:
  D_RW_MUTEX *rw_ = nullptr;
};

// ---- File locks ----------------------------------------------------------------------------------

// An advisory lock on a resource name, held by this object until unlock()
// or the destructor (DptUnlockFile once). acquire() blocks until granted;
// a failure gives an empty FileLock with the error number set.
class FileLock {
 public:
  enum class Mode { Shared = D_LOCK_SHARED, Exclusive = D_LOCK_EXCLUSIVE };

  FileLock() = default;
  static FileLock acquire(std::string_view resource, Mode mode = Mode::Exclusive) {
    FileLock lock;
    DptLockFile(std::string(resource).c_str(), 0, static_cast<D_INT4>(mode), &lock.handle_);
    return lock;
  }
  FileLock(FileLock &&other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  FileLock &operator=(FileLock &&other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~FileLock() { unlock(); }

  explicit operator bool() const noexcept { return handle_ != nullptr; }
  D_LOCK_HANDLE *get() const noexcept { return handle_; }
  // Releases the lock now; true when it was held and released cleanly.
  bool unlock() noexcept { return handle_ != nullptr && DptUnlockFile(&handle_) != D_FALSE; }

 private:
  D_LOCK_HANDLE *handle_ = nullptr;
};

}  // namespace vqutil

#endif /* VQUTIL_VQUTIL_HPP */
