// The library's standard options: one table row per option, created in
// row order the first time the option table is touched.
#include <array>
#include <cstddef>

#include "frame/check.hpp"
#include "options/option_internal.hpp"

namespace {

constexpr const char *kFile = "option.c";

enum class Default { None, Bool, Num, Text };

struct StandardOption {
  const char *name;
  D_INT4 type;
  bool required;
  std::array<const char *, 4> legal_values;  // null-terminated when shorter
  D_OPTION_VERIFY_FUNC verify;
  Default default_kind;
  D_INT4 default_bool;
  D_REAL8 default_num;
  const char *default_text;  // enumerated and string defaults
};

#if defined(_WIN32)
constexpr const char *kDefaultEditor = "notepad";
#else
constexpr const char *kDefaultEditor = "vi";
#endif

constexpr StandardOption kStandardOptions[] = {
    {"backup_name", D_OPT_TYPE_STRING, false, {}, nullptr, Default::None, 0, 0.0, nullptr},
    {"editor", D_OPT_TYPE_STRING, true, {}, nullptr, Default::Text, 0, 0.0, kDefaultEditor},
    {"real_number_format", D_OPT_TYPE_STRING, true, {}, DutOptionRealNumberFormatVf, Default::Text, 0, 0.0, "%g"},
};

void setDefault(D_OPTION *option, const StandardOption &row) {
  D_BOOL status = D_TRUE;
  switch (row.default_kind) {
    case Default::None:
      return;
    case Default::Bool:
      status = DutOptionSetBool(option, row.default_bool);
      break;
    case Default::Num:
      status = DutOptionSetNum(option, row.default_num);
      break;
    case Default::Text:
      status = row.type == D_OPT_TYPE_ENUM ? DutOptionSetEnum(option, row.default_text)
                                           : DutOptionSetStr(option, row.default_text);
      break;
  }
  VQ_ASSERT(status == D_TRUE, "D_TRUE == status", kFile);
}

}  // namespace

namespace vq::options {

void createStandardOptions() {
  for (const StandardOption &row : kStandardOptions) {
    D_OPTION *option = DutOptionCreate(row.name, row.type);
    VQ_ASSERT(option != nullptr, "option != NULL", kFile);
    D_BOOL status = D_TRUE;
    if (row.required) {
      status = DutOptionSetRequired(option, 1);
      VQ_ASSERT(status == D_TRUE, "status == TRUE", kFile);
    }
    for (const char *legal : row.legal_values) {
      if (legal == nullptr) break;
      status = DutOptionLegValAdd(option, legal);
      VQ_ASSERT(status == D_TRUE, "status == TRUE", kFile);
    }
    if (row.verify != nullptr) {
      status = DutOptionSetVerifyFunc(option, row.verify, nullptr);
      VQ_ASSERT(status == D_TRUE, "status == TRUE", kFile);
    }
    setDefault(option, row);
  }
}

}  // namespace vq::options
