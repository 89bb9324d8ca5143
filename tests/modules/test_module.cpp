// Dynamic modules: reference counts, entry points, ModuleInfo, symbols.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>

#include "vqutil/error.h"
#include "vqutil/module.h"

namespace {

std::string path(const char *file) { return std::string(VQ_TEST_MODULE_DIR) + "/" + file; }

TEST(Module, SameNameTwiceSharesOneRecord) {
  std::string name = path("vqtestmod.so");
  D_MODULE *a = DptModuleCreate(name.c_str(), 1);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(a->handle, nullptr);
  D_MODULE *b = DptModuleCreate(name.c_str(), 1);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a->ref_count, 2);
  EXPECT_EQ(DptModuleLookup(name.c_str()), a);
  auto calls = reinterpret_cast<int (*)()>(DptModuleGetSymbol(a, "vqTestModuleInitCalls"));
  ASSERT_NE(calls, nullptr);
  EXPECT_EQ(calls(), 1) << "the second creation only counts a reference";
  EXPECT_EQ(DptModuleDestroy(a, 5), 1);
  EXPECT_EQ(DptModuleLookup(name.c_str()), a) << "still loaded";
  EXPECT_EQ(DptModuleDestroy(a, 5), 10) << "the last destruction returns the clean-up result";
  EXPECT_EQ(DptModuleLookup(name.c_str()), nullptr);
}

TEST(Module, InfoWords) {
  D_MODULE *m = DptModuleCreate(path("vqtestmod.so").c_str(), 0);
  ASSERT_NE(m, nullptr);
  D_WORD id = 0, name = 0, version = 0, type = 0;
  EXPECT_EQ(DptModuleGetId(m, &id), D_TRUE);
  EXPECT_EQ(DptModuleGetName(m, &name), D_TRUE);
  EXPECT_EQ(DptModuleGetVersion(m, &version), D_TRUE);
  EXPECT_EQ(DptModuleGetType(m, &type), D_TRUE);
  EXPECT_EQ(id, 7);
  EXPECT_STREQ(reinterpret_cast<const char *>(name), "test module");
  EXPECT_EQ(version, 3);
  EXPECT_EQ(type, 2);
  const char *file = nullptr;
  EXPECT_EQ(DptModuleGetFileName(m, &file), D_TRUE);
  EXPECT_EQ(std::string(file), path("vqtestmod.so"));
  DptModuleDestroy(m, 0);
}

TEST(Module, ModuleWithoutInfoOrEntryPoints) {
  D_MODULE *m = DptModuleCreate(path("vqbaremod.so").c_str(), 13);
  ASSERT_NE(m, nullptr) << "no DptModuleInit: nothing can refuse";
  D_WORD version = -1;
  DutErrNumSet(0);
  EXPECT_EQ(DptModuleGetVersion(m, &version), D_FALSE);
  EXPECT_EQ(version, -1);
  EXPECT_EQ(DutErrNumGet(), 0) << "no error number for a missing ModuleInfo";
  auto answer = reinterpret_cast<int (*)()>(DptModuleGetSymbol(m, "vqBareModuleAnswer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(DptModuleGetSymbol(m, "noSuchSymbol"), nullptr);
  EXPECT_EQ(DptModuleDestroy(m, 0), 1);
}

TEST(Module, AnInitThatRefusesLeavesNothingBehind) {
  std::string name = path("vqtestmod.so");
  EXPECT_EQ(DptModuleCreate(name.c_str(), 13), nullptr);
  EXPECT_EQ(DptModuleLookup(name.c_str()), nullptr);
}

TEST(Module, BareNameGetsTheExtensionButIsKeptAsGiven) {
  // Without a '.', ".so" is appended for loading; the table keeps the bare
  // name, so the same bare name loads a second record.
  // The whole name must be free of dots: link the module into a dot-free
  // directory of its own.
  std::filesystem::path dir = "/tmp/vqmodtest" + std::to_string(::getpid());
  std::filesystem::create_directories(dir);
  std::filesystem::create_symlink(path("vqbaremod.so"), dir / "vqbaremod.so");
  std::string bare = (dir / "vqbaremod").string();
  ASSERT_EQ(bare.find('.'), std::string::npos);
  D_MODULE *a = DptModuleCreate(bare.c_str(), 0);
  ASSERT_NE(a, nullptr);
  EXPECT_NE(a->handle, nullptr);
  D_MODULE *b = DptModuleCreate(bare.c_str(), 0);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(DptModuleLookup(bare.c_str()), a);
  DptModuleDestroy(b, 0);
  DptModuleDestroy(a, 0);
  std::filesystem::remove_all(dir);
}

TEST(Module, UnloadableModuleStillGetsARecord) {
  D_MODULE *m = DptModuleCreate("/nonexistent/vq_module_xyz.so", 0);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->handle, nullptr);
  EXPECT_EQ(DptModuleGetSymbol(m, "DptModuleInit"), nullptr);
  DptModuleDestroy(m, 0);
}

TEST(Module, NullArguments) {
  EXPECT_EQ(DptModuleLookup(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DptModuleDestroy(nullptr, 0), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DptModuleGetSymbol(nullptr, "x"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

}  // namespace
