// Files on network shares, for every path with two leading backslashes. On Windows the system itself serves such paths;
// on Linux the program `brantle_smb` does, which is started from beside the calling program or library, or from
// libexec/brantle where that is installed in bin or lib.
#pragma once

// Makes the file layer of this process (common/qlib/qfile.h) serve shares from now on; until then every operation on
// such a path answers EOPNOTSUPP (95). Starts nothing and connects to nothing: a connection is made when a path is
// used. May be called again, and from any thread. Does nothing on Windows.
void qshare_enable() noexcept;

// False when shares cannot be read because the program is not there. Always true on Windows.
[[nodiscard]] bool qshare_has_program() noexcept;
