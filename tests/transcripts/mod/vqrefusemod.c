/* A module that refuses to be initialised, so "load" must report it. */
#include "vqutil/module.h"

int DptModuleInit(D_WORD arg) {
  (void)arg;
  return 0;
}
