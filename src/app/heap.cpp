#include "app/heap.h"

#include <cstdlib>  // any header of the C library defines __GLIBC__

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace feature_toggle {

void ReturnFreedMemory() {
#ifdef __GLIBC__
  // The pages of some 10,000 toggles are still served from memory that is kept.
  mallopt(M_MMAP_THRESHOLD, 4 << 20);
  mallopt(M_TRIM_THRESHOLD, 4 << 20);
  malloc_trim(0);
#endif
}

}  // namespace feature_toggle
