// A directory of the server as it was when it was listed, held in little memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "share/program/smb_server_posix_user.h"

class smb_listing {
 public:
  // 0 or an errno value: ENOMEM when the process's memory does not suffice, EOVERFLOW for too many names. A listing
  // that was cut is none.
  [[nodiscard]] int read(const smb_server& server, std::string_view path);
  // Appends whether there are more, and the entries behind the first `from`, as many as fit.
  void append_from(std::uint32_t from, qshare_frame& answer) const;
  [[nodiscard]] std::uint64_t directory() const noexcept { return directory_; }

 private:
  struct entry {
    std::uint64_t number;
    std::uint32_t name_at;
    std::uint16_t name_size;
    std::uint16_t attributes;
  };
  int add(const libsmb_file_info& listed, std::uint64_t number);
  [[nodiscard]] std::string_view name_of(const entry& one) const noexcept {
    return std::string_view(names_).substr(one.name_at, one.name_size);
  }

  void remove_repeated_names();

  std::vector<entry> entries_;  // in the server's order, each name once
  std::string names_;
  std::uint64_t directory_ = 0;
};
