// Dynamic modules: reference counts, entry points, ModuleInfo, symbols.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/module.h"

namespace {

std::string path(const char *file) { return std::string(VQ_TEST_MODULE_DIR) + "/" + file; }

// Created twice, one record with two references: the second creation does
// not run the init, the last destruction returns the clean-up's result.
TEST(Module, SameNameTwiceSharesOneRecordWithItsInfo) {
  std::string name = path("vqtestmod.so");
  D_MODULE *a = DptModuleCreate(name.c_str(), 1);
  ASSERT_NE(a, nullptr);
  EXPECT_TRUE(DptModuleCreate(name.c_str(), 1) == a && a->ref_count == 2 && DptModuleLookup(name.c_str()) == a);
  EXPECT_EQ(reinterpret_cast<int (*)()>(DptModuleGetSymbol(a, "vqTestModuleInitCalls"))(), 1);
  D_WORD id = 0, text = 0, version = 0, type = 0;
  const char *file = nullptr;
  EXPECT_TRUE(DptModuleGetId(a, &id) && DptModuleGetName(a, &text) && DptModuleGetVersion(a, &version) &&
              DptModuleGetType(a, &type) && DptModuleGetFileName(a, &file));
  EXPECT_TRUE(id == 7 && version == 3 && type == 2 && file == a->name);
  EXPECT_STREQ(reinterpret_cast<const char *>(text), "test module");
  EXPECT_EQ(DptModuleDestroy(a, 5), 1);
  EXPECT_EQ(DptModuleLookup(name.c_str()), a) << "still loaded";
  EXPECT_EQ(DptModuleDestroy(a, 5), 10);
  EXPECT_EQ(DptModuleLookup(name.c_str()), nullptr);
  // An init that refuses leaves nothing behind.
  EXPECT_TRUE(DptModuleCreate(name.c_str(), 13) == nullptr && DptModuleLookup(name.c_str()) == nullptr);
}

// Without DptModuleInit nothing can refuse; without ModuleInfo the info
// calls fail without an error number; a file that does not load still gets
// a record, without symbols.
TEST(Module, ModulesWithoutEntryPointsInfoOrFile) {
  D_MODULE *m = DptModuleCreate(path("vqbaremod.so").c_str(), 13);
  ASSERT_NE(m, nullptr);
  D_WORD version = -1;
  EXPECT_FAILS(DptModuleGetVersion(m, &version), D_FALSE, 0);
  EXPECT_EQ(version, -1);
  EXPECT_EQ(reinterpret_cast<int (*)()>(DptModuleGetSymbol(m, "vqBareModuleAnswer"))(), 42);
  EXPECT_EQ(DptModuleGetSymbol(m, "noSuchSymbol"), nullptr);
  EXPECT_EQ(DptModuleDestroy(m, 0), 1);

  m = DptModuleCreate("/nonexistent/vq_module_xyz.so", 0);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->handle, nullptr);
  EXPECT_EQ(DptModuleGetSymbol(m, "DptModuleInit"), nullptr);
  DptModuleDestroy(m, 0);
  EXPECT_FAILS(DptModuleLookup(nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DptModuleDestroy(nullptr, 0), 0, D_ERR_NULL_PTR);
  EXPECT_FAILS(DptModuleGetSymbol(nullptr, "x"), nullptr, D_ERR_NULL_PTR);
}

TEST(Module, BareNameGetsTheExtensionButIsKeptAsGiven) {
#ifdef _WIN32
  GTEST_SKIP() << "\".dll\" there: tests/windows";
#endif
  // Without a '.', ".so" is appended for loading; the table keeps the bare
  // name, so the same bare name loads a second record, which the table
  // refuses as a duplicate. The whole name must
  // be free of dots: the module is linked into a directory of its own.
  std::filesystem::path dir = "/tmp/vqmodtest" + std::to_string(::getpid());
  std::filesystem::create_directories(dir);
  std::filesystem::create_symlink(path("vqbaremod.so"), dir / "vqbaremod.so");
  std::string bare = (dir / "vqbaremod").string();
  ASSERT_EQ(bare.find('.'), std::string::npos);
  D_MODULE *a = DptModuleCreate(bare.c_str(), 0);
  vqtest::OutputCapture capture;  // the second record's name is already in the table
  D_MODULE *b = DptModuleCreate(bare.c_str(), 0);
  EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key " + bare + " already exists in hash table.\n");
  ASSERT_TRUE(a != nullptr && b != nullptr && a->handle != nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(DptModuleLookup(bare.c_str()), a);
  DptModuleDestroy(b, 0);
  DptModuleDestroy(a, 0);
  std::filesystem::remove_all(dir);
}

}  // namespace
