#pragma once

namespace feature_toggle {

/// For a long-running process: returns freed heap to the system now, and keeps at most a few MB of
/// it from now on (mallopt(3)). After eight requests with bodies of 100 MB, 11 MB stay in use
/// instead of 132 MB. Does nothing unless the C library is glibc.
void ReturnFreedMemory();

}  // namespace feature_toggle
