// Read-only access to an installer package's Property table, in the shape of the Windows Installer database interface:
// open a database, open a view for a query, execute it, fetch a record, get a string, close each handle. And to its
// summary information.
//
// On Windows the calls go to msi.dll. Elsewhere the package is read here; then the one query form
//   SELECT `Value` FROM `Property` WHERE `Property`='NAME'
// is understood. All results are the installer's own numbers (not qerr_t). Handles are 32-bit, never 0 when open, and
// used by one thread at a time; different handles are independent.
#pragma once

#include <memory>

#include "common/qlib/qtypes.h"

class msi_package;

using msi_handle = std::uint32_t;
using msi_result = std::uint32_t;

// The installer's numbers that this library meets or answers.
inline constexpr msi_result MSI_OK = 0;
inline constexpr msi_result MSI_INVALID_HANDLE = 6;
inline constexpr msi_result MSI_OUT_OF_MEMORY = 14;
inline constexpr msi_result MSI_INVALID_PARAMETER = 87;
inline constexpr msi_result MSI_OPEN_FAILED = 110;
inline constexpr msi_result MSI_MORE_DATA = 234;
inline constexpr msi_result MSI_NO_MORE_ITEMS = 259;
inline constexpr msi_result MSI_BAD_QUERY = 1615;
inline constexpr msi_result MSI_FUNCTION_FAILED = 1627;

// No text that is handed out is longer, in units; a longer one is cut there, never inside a pair.
inline constexpr std::uint32_t MSI_MAX_TEXT = 4000;

// Opens the package at `path` read-only. MSI_OPEN_FAILED when it cannot be opened, is no package or is not sound.
[[nodiscard]] msi_result msi_open_database(const qchar* path, msi_handle* database) noexcept;
// The same for a package that is open already (null: none is): one look at a file serves properties and signature.
// Handles share the package.
[[nodiscard]] msi_result msi_open_package_database(const std::shared_ptr<msi_package>& package,
                                                   msi_handle* database) noexcept;
// Prepares `query`. MSI_BAD_QUERY for a query that is not understood.
[[nodiscard]] msi_result msi_database_open_view(msi_handle database, const qchar* query, msi_handle* view) noexcept;
// Runs the view's query, without parameters.
[[nodiscard]] msi_result msi_view_execute(msi_handle view) noexcept;
// The next row; MSI_NO_MORE_ITEMS after the last one.
[[nodiscard]] msi_result msi_view_fetch(msi_handle view, msi_handle* record) noexcept;
// Copies field `field` (1 is the first), at most MSI_MAX_TEXT units of it, into `buffer`. `*size` goes in as the
// buffer's capacity in units with the terminator and comes out as the text's length without it. MSI_MORE_DATA when the
// text does not fit.
[[nodiscard]] msi_result msi_record_get_string(msi_handle record, std::uint32_t field, qchar* buffer,
                                               std::uint32_t* size) noexcept;
// Numbers of texts in the summary information.
inline constexpr std::uint32_t MSI_SUMMARY_TEMPLATE = 7;
inline constexpr std::uint32_t MSI_SUMMARY_REVISION = 9;  // the package code

// Copies text `number` of the database's summary information, as msi_record_get_string does. MSI_NO_MORE_ITEMS when
// there is none, MSI_FUNCTION_FAILED when it is no text or the summary information is damaged.
[[nodiscard]] msi_result msi_database_get_summary(msi_handle database, std::uint32_t number, qchar* buffer,
                                                  std::uint32_t* size) noexcept;
// Closes a handle of any kind; 0 is allowed. A record outlives its closed view and database.
msi_result msi_close_handle(msi_handle handle) noexcept;

// The calling thread's last system error (GetLastError, errno), for log lines.
[[nodiscard]] std::uint32_t msi_last_system_error() noexcept;

// The operations behind the functions above.
struct msi_interface {
  msi_result (*open_database)(const qchar* path, msi_handle* database) noexcept;
  msi_result (*open_view)(msi_handle database, const qchar* query, msi_handle* view) noexcept;
  msi_result (*execute)(msi_handle view) noexcept;
  msi_result (*fetch)(msi_handle view, msi_handle* record) noexcept;
  msi_result (*get_string)(msi_handle record, std::uint32_t field, qchar* buffer, std::uint32_t* size) noexcept;
  msi_result (*close)(msi_handle handle) noexcept;
};

// Where a text of `length` units is cut; only its first MSI_MAX_TEXT are looked at.
[[nodiscard]] constexpr std::uint32_t msi_cut_length(const qchar* text, std::size_t length) noexcept {
  if (length <= MSI_MAX_TEXT) return static_cast<std::uint32_t>(length);
  const bool in_pair = (text[MSI_MAX_TEXT - 1] & 0xFC00) == 0xD800;
  return in_pair ? MSI_MAX_TEXT - 1 : MSI_MAX_TEXT;
}

// The platform's operations.
[[nodiscard]] const msi_interface& msi_platform_interface() noexcept;
// Puts other operations in their place (null ends that). For tests that inject faults; not for concurrent use.
void msi_set_interface(const msi_interface* replacement) noexcept;
