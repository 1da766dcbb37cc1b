#include "app/heap.h"

#include <cstdlib>  // any header of the C library defines __GLIBC__

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace feature_toggle {

void ReturnFreedMemory() {
#ifdef __GLIBC__
  // High enough that rendering a page of 10,000 toggles does not map and unmap memory each time.
  mallopt(M_MMAP_THRESHOLD, 4 << 20);
  mallopt(M_TRIM_THRESHOLD, 4 << 20);
  malloc_trim(0);
#endif
}

}  // namespace feature_toggle
