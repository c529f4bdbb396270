#include "sgn/sgn_err.h"

#include <openssl/err.h>

#include "common/qlib/qlog.h"
#include "common/qlib/qstr.h"

static constexpr std::uint32_t module_id = QLOG_SGN;

namespace {

constexpr std::size_t max_text = 1024;

void log_part(const qchar* format, const char* text) noexcept {
  if (text == nullptr || *text == '\0') return;
  std::array<qchar, max_text + 1> wide{};
  if (qstr_printf(wide.data(), sizeof(wide), u"%.*hs", max_text, text) < 0) return;
  QLOG_AS(QLOG_ERROR, "sgn_dump_err", format, wide.data());
}

}  // namespace

void sgn_dump_err() noexcept {
  const char* function = nullptr;
  while (const unsigned long code = ERR_get_error_all(nullptr, nullptr, &function, nullptr, nullptr)) {
    QLOG(QLOG_ERROR, u"    SSL Error Stack Entry:[%d]:\n", code);
    log_part(u"        LIB:    %s\n", ERR_lib_error_string(code));
    log_part(u"        FUNC:   %s\n", function);
    log_part(u"        REASON: %s\n", ERR_reason_error_string(code));
  }
}
