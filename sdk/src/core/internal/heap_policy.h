// How the process heap treats the large per-frame buffers of a running camera.
#pragma once

namespace pv::internal {

/// Every grab allocates and frees several full-frame images of a few MB each. By default glibc
/// maps such blocks fresh from the kernel and unmaps them again on free (or trims the heap top),
/// so each frame pays for faulting in and zeroing every page, about a third of the depth time at
/// HD720. This keeps blocks up to 32 MB in the heap and freed memory there for the next frame.
/// Process-wide and idempotent; does nothing on other C libraries.
void keepFrameBuffersInHeap();

}  // namespace pv::internal
