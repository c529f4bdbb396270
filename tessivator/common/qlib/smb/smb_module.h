// The interface of the share module: a table of plain functions over plain records, so that program and module can be
// built by different compilers and nothing unwinds from one into the other. The module alone is linked to libsmbclient;
// whoever uses no share never loads it.
//
// Texts are null-terminated UTF-8 and borrowed for the call. Paths are relative to the share's root, cut at '/',
// without a leading one; the empty path is the root. Files and directories of one session may be used from any threads:
// calls wait for each other inside.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::uint32_t SMB_MODULE_VERSION = 1;
inline constexpr char SMB_MODULE_FILE[] = "brantle_smb.so";
inline constexpr char SMB_MODULE_SYMBOL[] = "brantle_smb_functions";

// Results of a connection attempt: the system error values that the network management interface of Windows gives.
inline constexpr std::uint32_t SMB_OK = 0;
inline constexpr std::uint32_t SMB_ACCESS_DENIED = 5;
inline constexpr std::uint32_t SMB_NOT_ENOUGH_MEMORY = 8;
inline constexpr std::uint32_t SMB_NOT_SUPPORTED = 50;
inline constexpr std::uint32_t SMB_BAD_NETPATH = 53;
inline constexpr std::uint32_t SMB_UNEXPECTED_NET_ERROR = 59;
inline constexpr std::uint32_t SMB_BAD_NET_NAME = 67;
inline constexpr std::uint32_t SMB_INVALID_PARAMETER = 87;
inline constexpr std::uint32_t SMB_CREDENTIAL_CONFLICT = 1219;
inline constexpr std::uint32_t SMB_LOGON_FAILURE = 1326;
inline constexpr std::uint32_t SMB_NOT_CONNECTED = 2250;
inline constexpr std::uint32_t SMB_OPEN_FILES = 2401;

inline constexpr std::uint32_t SMB_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr std::uint32_t SMB_ATTRIBUTE_REPARSE_POINT = 0x400;

struct smb_session;
struct smb_file;
struct smb_directory;

struct smb_target {
  const char* server;
  const char* share;
  const char* domain;
  const char* user;
  const char* password;
  std::uint16_t port;
  // Other than 0: domain, user and password are not looked at; a Kerberos ticket of the process is used if there is
  // one, else the server is met as an anonymous guest.
  std::uint8_t own_rights;
};

struct smb_info {
  std::uint64_t size;          // 0 for a directory
  std::uint64_t index;         // the server's number of the file; 0 when it gives none
  std::int64_t write_seconds;  // since 1970, UTC
  std::uint32_t write_nanoseconds;
  std::uint8_t is_directory;
};

struct smb_entry {
  const char* name;  // valid until the next call on the directory
  std::uint32_t attributes;
};

// connect answers a system error value, all others 0 or an errno value. After a failure of the network every further
// call on the session answers ENOTCONN at once. disconnect, close and close_directory take what they are given away
// from the caller; files and directories end before their session.
struct smb_functions {
  std::uint32_t version;
  std::uint32_t (*connect)(const smb_target* target, smb_session** session);
  void (*disconnect)(smb_session* session);
  std::uint8_t (*is_alive)(smb_session* session);
  int (*stat)(smb_session* session, const char* path, smb_info* info);

  int (*open)(smb_session* session, const char* path, smb_file** file);
  // Fewer bytes than asked for: the end of the file.
  int (*read)(smb_file* file, void* buffer, std::size_t size, std::uint64_t offset, std::size_t* done);
  int (*info)(smb_file* file, smb_info* info);
  void (*close)(smb_file* file);

  int (*open_directory)(smb_session* session, const char* path, smb_directory** directory);
  // ENODATA when there are no more entries.
  int (*next)(smb_directory* directory, smb_entry* entry);
  void (*close_directory)(smb_directory* directory);
};

// The module's one exported function; null for a version that it does not know.
extern "C" const smb_functions* brantle_smb_functions(std::uint32_t version) noexcept;
