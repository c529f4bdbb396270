// Files and directories of a session, and the table that hands everything out.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <limits>
#include <memory>

#include "common/qlib/smb/smb_session_posix_user.h"

struct smb_file {
  smb_session& session;
  SMBCFILE* handle;
};

struct smb_directory {
  smb_session& session;
  SMBCFILE* handle;
};

namespace {

// Runs `body` under the lock and answers its result; a session that was lost is not asked again.
template <class Body>
int with_session(smb_session& session, Body body) noexcept try {
  if (session.dead) return ENOTCONN;
  const smb_call call;
  if (session.dead) return ENOTCONN;
  errno = 0;
  return body();
} catch (...) {
  return ENOMEM;
}

void take(const struct stat& about, smb_info* info) noexcept {
  info->is_directory = S_ISDIR(about.st_mode) ? 1 : 0;
  info->size = info->is_directory == 0 && about.st_size > 0 ? static_cast<std::uint64_t>(about.st_size) : 0;
  info->index = about.st_ino;
  info->write_seconds = about.st_mtim.tv_sec;
  info->write_nanoseconds = static_cast<std::uint32_t>(about.st_mtim.tv_nsec);
}

std::uint8_t is_alive(smb_session* session) noexcept { return session->dead ? 0 : 1; }

int stat_path(smb_session* session, const char* path, smb_info* info) noexcept {
  return with_session(*session, [&] {
    struct stat about {};
    const std::string url = smb_url(*session, session->share, path);
    if (smbc_getFunctionStat(session->context)(session->context, url.c_str(), &about) != 0) {
      return smb_failure(*session);
    }
    take(about, info);
    return 0;
  });
}

int open_file(smb_session* session, const char* path, smb_file** file) noexcept {
  return with_session(*session, [&] {
    auto opened = std::make_unique<smb_file>(smb_file{*session, nullptr});
    const std::string url = smb_url(*session, session->share, path);
    opened->handle = smbc_getFunctionOpen(session->context)(session->context, url.c_str(), O_RDONLY, 0);
    if (opened->handle == nullptr) return smb_failure(*session);
    *file = opened.release();
    return 0;
  });
}

int read_file(smb_file* file, void* buffer, std::size_t size, std::uint64_t offset, std::size_t* done) noexcept {
  *done = 0;
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return EINVAL;
  smb_session& session = file->session;
  return with_session(session, [&] {
    SMBCCTX* const context = session.context;
    // Positions are libsmbclient's own; setting one costs no request.
    if (smbc_getFunctionLseek(context)(context, file->handle, static_cast<off_t>(offset), SEEK_SET) < 0) {
      return smb_failure(session);
    }
    const ssize_t got = smbc_getFunctionRead(context)(context, file->handle, buffer, size);
    if (got < 0) return smb_failure(session);
    *done = static_cast<std::size_t>(got);
    return 0;
  });
}

int file_info(smb_file* file, smb_info* info) noexcept {
  smb_session& session = file->session;
  return with_session(session, [&] {
    struct stat about {};
    if (smbc_getFunctionFstat(session.context)(session.context, file->handle, &about) != 0) {
      return smb_failure(session);
    }
    take(about, info);
    return 0;
  });
}

void close_file(smb_file* file) noexcept {
  const std::unique_ptr<smb_file> closed(file);
  const smb_call call;
  if (closed->session.dead) return;  // its memory is the context's
  (void)smbc_getFunctionClose(closed->session.context)(closed->session.context, closed->handle);
}

int open_directory(smb_session* session, const char* path, smb_directory** directory) noexcept {
  return with_session(*session, [&] {
    auto opened = std::make_unique<smb_directory>(smb_directory{*session, nullptr});
    const std::string url = smb_url(*session, session->share, path);
    opened->handle = smbc_getFunctionOpendir(session->context)(session->context, url.c_str());
    if (opened->handle == nullptr) return smb_failure(*session);
    *directory = opened.release();
    return 0;
  });
}

int next_entry(smb_directory* directory, smb_entry* entry) noexcept {
  smb_session& session = directory->session;
  return with_session(session, [&] {
    const libsmb_file_info* const listed =
        smbc_getFunctionReaddirPlus(session.context)(session.context, directory->handle);
    if (listed == nullptr) return errno == 0 ? ENODATA : smb_failure(session);
    entry->name = listed->name;
    entry->attributes = listed->attrs;
    return 0;
  });
}

void close_directory(smb_directory* directory) noexcept {
  const std::unique_ptr<smb_directory> closed(directory);
  const smb_call call;
  (void)smbc_getFunctionClosedir(closed->session.context)(closed->session.context, closed->handle);
}

constexpr smb_functions FUNCTIONS = {SMB_MODULE_VERSION, smb_connect,    smb_disconnect, is_alive,
                                     stat_path,          open_file,      read_file,      file_info,
                                     close_file,         open_directory, next_entry,     close_directory};

}  // namespace

extern "C" __attribute__((visibility("default"))) const smb_functions* brantle_smb_functions(
    std::uint32_t version) noexcept {
  return version == SMB_MODULE_VERSION ? &FUNCTIONS : nullptr;
}
