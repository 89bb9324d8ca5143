// The command table and the open-file registry used by several library
// threads at once.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "rwmutex/rw_support.hpp"
#include "vqutil/command.h"
#include "vqutil/file.h"

using rwtest::LibThread;

namespace {

constexpr int kThreads = 6;

std::vector<D_WORD> runTogether(const std::function<D_WORD(int)> &body) {
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<std::unique_ptr<LibThread>> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.push_back(std::make_unique<LibThread>([&, i] {
      ready++;
      while (!go.load()) DutWinSleep(0.0);
      return body(i);
    }));
  }
  rwtest::waitUntil([&] { return ready.load() == kThreads; });
  go = true;
  std::vector<D_WORD> codes;
  for (auto &t : threads) codes.push_back(t->join());
  return codes;
}

// Each thread counts the runs of its own commands: parse functions run
// on the thread that parses.
thread_local int t_runs = 0;
void countRun(D_LEX *) { ++t_runs; }

TEST(RegistryThreads, CommandsCreatedAndRunFromManyThreads) {
  constexpr int kPerThread = 10;
  const std::string stem = "tsancmd" + std::to_string(getpid());
  // The table keeps names by pointer: they must outlive the commands.
  std::vector<std::vector<std::string>> names(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    for (int k = 0; k < kPerThread; ++k) names[i].push_back(stem + "_" + std::to_string(i) + "_" + std::to_string(k));
  }
  DutCommandSetFeedbackMode(D_FEEDBACK_NEVER);
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    t_runs = 0;
    std::vector<D_COMMAND *> mine;
    for (const std::string &name : names[i]) {
      D_COMMAND *command = DutCommandCreate(name.c_str(), countRun);
      if (command == nullptr || DutCommandLookup(name.c_str()) != command) bad++;
      mine.push_back(command);
    }
    for (const std::string &name : names[i]) DutCommandParseStr(name.c_str());
    if (t_runs != kPerThread) bad += 1000;
    for (D_COMMAND *command : mine) {
      if (command != nullptr && DutCommandDestroy(command) != D_TRUE) bad++;
    }
    return bad;
  });
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;
  EXPECT_EQ(nullptr, DutCommandLookup(names[0][0].c_str()));
}

TEST(RegistryThreads, OpenFilesSharedAndPrivate) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("vq_tsan_files_" + std::to_string(getpid()));
  fs::create_directories(dir);
  const std::string shared = (dir / "shared.txt").string();
  std::ofstream(shared) << "shared\n";
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    const std::string mine = (dir / ("own" + std::to_string(i) + ".txt")).string();
    for (int round = 0; round < 50; ++round) {
      FILE *s = DutOpenFile(shared.c_str(), "r");
      if (s == nullptr || DutLookupFile(shared.c_str()) != s) bad++;
      FILE *own = DutOpenFile(mine.c_str(), "a");
      if (own == nullptr) {
        bad++;
      } else {
        std::fprintf(own, "%d\n", round);
        if (DutCloseFile(own) != D_TRUE) bad++;
      }
      if (s != nullptr && DutCloseFile(s) != D_TRUE) bad++;
    }
    return bad;
  });
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;
  // Every reference was dropped: the shared file is closed and gone from
  // the registry, and each private file got all its lines.
  EXPECT_EQ(nullptr, DutLookupFile(shared.c_str()));
  for (int i = 0; i < kThreads; ++i) {
    std::ifstream in(dir / ("own" + std::to_string(i) + ".txt"));
    int lines = 0;
    for (std::string line; std::getline(in, line);) lines++;
    EXPECT_EQ(50, lines) << "thread " << i;
  }
  std::error_code ignored;
  fs::remove_all(dir, ignored);
}

}  // namespace
