// The verify function of the option "time_format": a new value names the
// converter that becomes current.
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/time.h"

extern "C" {

D_EXPORT D_BOOL DutTimeFormatCheck(D_OPTION *, void *new_value, void *) {
  // Becoming unknown leaves the current converter as it is.
  if (new_value == nullptr) return D_TRUE;
  const char *name = static_cast<const char *>(new_value);
  D_TIME_CVT *time_cvtr = DutTimeCvtLookup(name);
  if (time_cvtr == nullptr) {
    DutWarning("Time converter <%s> does not exist.\n", name);
    return D_FALSE;
  }
  DutTimeCvtSetCurrent(time_cvtr);
  return D_TRUE;
}

}  // extern "C"
