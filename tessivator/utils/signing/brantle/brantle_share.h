// The share connection of a request, made before the walk and removed after it.
#pragma once

#include <cstdint>
#include <string>

// System error values that the driver distinguishes; the same numbers on both platforms.
inline constexpr std::uint32_t BRANTLE_SHARE_ACCESS_DENIED = 5;
inline constexpr std::uint32_t BRANTLE_SHARE_NOT_SUPPORTED = 50;
inline constexpr std::uint32_t BRANTLE_SHARE_BAD_NETPATH = 53;
inline constexpr std::uint32_t BRANTLE_SHARE_BAD_NET_NAME = 67;
inline constexpr std::uint32_t BRANTLE_SHARE_CREDENTIAL_CONFLICT = 1219;
inline constexpr std::uint32_t BRANTLE_SHARE_LOGON_FAILURE = 1326;

// The remote name is the repository path as given, even when it is deeper than the root of the share. Borrowed.
struct brantle_share_use {
  const std::u16string& remote;
  const std::u16string& domain;
  const std::u16string& user;
  const std::u16string& password;
};

// Connects without a local device name. Returns 0 or a system error value; `bad_argument` is then the argument that the
// system refused, by its own count (0: none).
[[nodiscard]] std::uint32_t brantle_share_connect(const brantle_share_use& use, std::uint32_t* bad_argument) noexcept;

// Removes the connection of brantle_share_connect for `remote`; fails while files on it are open. 0 or a system error.
[[nodiscard]] std::uint32_t brantle_share_disconnect(const std::u16string& remote) noexcept;

// The two operations of the platform; a test can replace them (null restores them).
struct brantle_share_operations {
  std::uint32_t (*connect)(const brantle_share_use& use, std::uint32_t* bad_argument);
  std::uint32_t (*disconnect)(const std::u16string& remote);
};
void brantle_share_set_operations(const brantle_share_operations* operations) noexcept;

// Platform part.
[[nodiscard]] const brantle_share_operations& brantle_share_platform_operations() noexcept;
