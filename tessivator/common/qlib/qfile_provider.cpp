#include "common/qlib/qfile_provider.h"

#include <chrono>
#include <thread>

#include "common/qlib/qreplaceable.h"

namespace {

qreplaceable<qfile_provider> replaceable_provider;

}  // namespace

qfile_provider& qfile_provider_for(const qchar* path) noexcept {
  return replaceable_provider.get(qfile_platform_provider_for(path));
}

void qfile_set_provider(qfile_provider* own) noexcept { replaceable_provider.replace(own); }

void qfile_provider::pause(std::uint32_t milliseconds) noexcept {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
