// The command table and the open-file registry used by several library
// threads at once.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "rwmutex/rw_support.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/command.h"
#include "vqutil/file.h"

namespace {

constexpr int kThreads = 6;

// Each thread counts the runs of its own commands: parse functions run
// on the thread that parses.
thread_local int t_runs = 0;
void countRun(D_LEX *) { ++t_runs; }

TEST(RegistryThreads, CommandsCreatedAndRunFromManyThreads) {
  constexpr int kPerThread = 10;
  // The table keeps names by pointer: they must outlive the commands.
  std::vector<std::vector<std::string>> names(kThreads);
  for (int i = 0; i < kThreads * kPerThread; ++i) {
    names[i / kPerThread].push_back("tsancmd" + std::to_string(getpid()) + "_" + std::to_string(i));
  }
  DutCommandSetFeedbackMode(D_FEEDBACK_NEVER);
  EXPECT_EQ(std::vector<D_WORD>(kThreads, 0), rwtest::Threads(kThreads, [&](int i) {
    D_WORD bad = 0;
    for (const std::string &name : names[i]) {
      D_COMMAND *command = DutCommandCreate(name.c_str(), countRun);
      bad += command == nullptr || DutCommandLookup(name.c_str()) != command;
    }
    for (const std::string &name : names[i]) DutCommandParseStr(name.c_str());
    bad += t_runs != kPerThread;
    for (const std::string &name : names[i]) bad += !DutCommandDestroy(DutCommandLookup(name.c_str()));
    return bad;
  }, true).join());
  EXPECT_EQ(nullptr, DutCommandLookup(names[0][0].c_str()));
}

// While one reference is held, every open of the shared file is that one
// stream; every reference is dropped in the end, so it is closed and gone
// from the registry; each private file gets all its lines.
TEST(RegistryThreads, OpenFilesSharedAndPrivate) {
  const vqtest::TempDir dir("vq_tsan_files");
  const std::string shared = dir.file("shared.txt");
  vqtest::WriteFile(shared, "shared\n");
  FILE *const anchor = DutOpenFile(shared.c_str(), "r");
  ASSERT_NE(anchor, nullptr);
  EXPECT_EQ(std::vector<D_WORD>(kThreads, 0), rwtest::Threads(kThreads, [&](int i) {
    D_WORD bad = 0;
    const std::string mine = dir.file("own" + std::to_string(i) + ".txt");
    for (int round = 0; round < 50; ++round) {
      FILE *s = DutOpenFile(shared.c_str(), "r"), *own = DutOpenFile(mine.c_str(), "a");
      bad += s != anchor || DutLookupFile(shared.c_str()) != s || own == nullptr;
      if (own != nullptr) std::fprintf(own, "%d\n", round), bad += !DutCloseFile(own);
      if (s != nullptr) bad += !DutCloseFile(s);
    }
    return bad;
  }, true).join());
  EXPECT_TRUE(DutCloseFile(anchor));
  EXPECT_EQ(nullptr, DutLookupFile(shared.c_str()));
  for (int i = 0; i < kThreads; ++i) {
    const std::string text = vqtest::ReadFile(dir.file("own" + std::to_string(i) + ".txt"));
    EXPECT_EQ(50, std::count(text.begin(), text.end(), '\n')) << "thread " << i;
  }
}

}  // namespace
