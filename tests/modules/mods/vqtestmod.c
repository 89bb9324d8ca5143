/* A module that accepts every argument except 13 and counts its calls. */
#include "vqutil/module.h"

D_MODULE_INFO ModuleInfo = {7, (D_WORD) "test module", 3, 2};

static int init_calls;

int DptModuleInit(D_WORD arg) {
  ++init_calls;
  return arg != 13;
}

D_WORD DptModuleCleanUp(D_WORD arg) { return arg * 2; }

int vqTestModuleInitCalls(void) { return init_calls; }
