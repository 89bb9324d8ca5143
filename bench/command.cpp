// Command dispatch rate: DutCommandParseStr on a setopt line and on a line
// that goes through an alias, against Tcl's Tcl_Eval of "set x 5" (and of
// the same through an interp alias) when Tcl is available.
#include <benchmark/benchmark.h>

#include <cstdarg>

#include "vqutil/command.h"
#include "vqutil/option.h"
#include "vqutil/output.h"

#ifdef VQ_HAVE_TCL
#include <tcl.h>
#endif

namespace {

// Error messages would be a different workload; a correct line prints
// nothing in the program's parse mode, and the check below makes sure.
int g_printed = 0;

int countOutput(const char *, va_list) {
  ++g_printed;
  return 0;
}

// The option and the alias the lines use; false when the interpreter does
// not set the option as asked (then the figures would mean nothing).
bool setUpCommands(benchmark::State &state) {
  static bool ready = [] {
    DutSetOutputFunc(countOutput);
    if (DutOptionLookup("some_option") == nullptr && DutOptionCreate("some_option", D_OPT_TYPE_NUMERIC) == nullptr)
      return false;
    DutCommandParseStr("alias so setopt some_option");
    return true;
  }();
  if (!ready) {
    state.SkipWithError("cannot create the option some_option");
    return false;
  }
  D_OPTION *option = DutOptionLookup("some_option");
  struct Check {
    const char *line;
    D_REAL8 expected;
  };
  for (const Check &check : {Check{"setopt some_option 7", 7.0}, Check{"so 9", 9.0}}) {
    g_printed = 0;
    DutCommandParseStr(check.line);
    D_REAL8 value = 0;
    if (!DutOptionGetNum(option, &value) || value != check.expected || g_printed != 0) {
      state.SkipWithError("the command line did not set the option quietly");
      return false;
    }
  }
  return true;
}

void runLine(benchmark::State &state, const char *line) {
  if (!setUpCommands(state)) return;
  g_printed = 0;
  for (auto _ : state) DutCommandParseStr(line);
  if (g_printed != 0) state.SkipWithError("the command line printed output");
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_ParseSetopt(benchmark::State &state) { runLine(state, "setopt some_option 5"); }
BENCHMARK(BM_ParseSetopt);

void BM_ParseAlias(benchmark::State &state) { runLine(state, "so 5"); }
BENCHMARK(BM_ParseAlias);

#ifdef VQ_HAVE_TCL

// Reference: the same assignment in a Tcl interpreter, the script given as
// a string each time (as a command line arrives).
void runTcl(benchmark::State &state, const char *script) {
  Tcl_Interp *interp = Tcl_CreateInterp();
  if (Tcl_Eval(interp, "interp alias {} so {} set x") != TCL_OK || Tcl_Eval(interp, script) != TCL_OK) {
    state.SkipWithError(Tcl_GetStringResult(interp));
    Tcl_DeleteInterp(interp);
    return;
  }
  for (auto _ : state) {
    int status = Tcl_Eval(interp, script);
    benchmark::DoNotOptimize(status);
  }
  Tcl_DeleteInterp(interp);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_TclEvalSet(benchmark::State &state) { runTcl(state, "set x 5"); }
BENCHMARK(BM_TclEvalSet);

void BM_TclEvalAlias(benchmark::State &state) { runTcl(state, "so 5"); }
BENCHMARK(BM_TclEvalAlias);

#endif

}  // namespace

BENCHMARK_MAIN();
