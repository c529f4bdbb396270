// The bounds of the share program: it never outlives its host, has no privileges, shows its memory to nobody and takes
// no more of it than a share may cost.
#pragma once

// From now on the process ends at once, whatever it waits for, when the other end of `pair` is closed or the process
// that made the pair ends. It has no capabilities, no other user's process can read its memory, a crash leaves no dump,
// and its memory is limited. Called before any other thread starts and before a password is received. False when one of
// these cannot be had, or the host has ended already.
[[nodiscard]] bool smb_bound_process(int pair) noexcept;

// Whether so little of that memory was ever left that what failed may have failed for want of it.
[[nodiscard]] bool smb_memory_was_short() noexcept;
