// Shut-down of the checksums, for qlib.cpp.
#pragma once

// Releases the digest algorithms and idle buffers that the process keeps; the next digest fetches them again.
void qcksum_lib_fini() noexcept;
