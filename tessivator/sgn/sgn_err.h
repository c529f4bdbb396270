// OpenSSL's error queue.
#pragma once

// Logs and empties the calling thread's error queue.
void sgn_dump_err() noexcept;
