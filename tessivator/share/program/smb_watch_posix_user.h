// The bounds of the share program: it never outlives its host, and never takes more memory than a share may cost.
#pragma once

// From now on the process ends at once when the other end of `pair` is closed, whatever it waits for. Also limits its
// memory. False when that cannot be had.
[[nodiscard]] bool smb_bound_process(int pair) noexcept;

// Whether so little of that memory was ever left that what failed may have failed for want of it.
[[nodiscard]] bool smb_memory_was_short() noexcept;
