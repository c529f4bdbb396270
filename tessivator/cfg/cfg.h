// The named product parameters. This product never loads them: all are 0 unless a test sets them.
#pragma once

#include <atomic>
#include <cstdint>

using cfg_slot = std::atomic<std::uint64_t>;

// Each accessor returns the slot of its parameter; safe from any thread.
[[nodiscard]] cfg_slot& cfg_CustomerConfig() noexcept;  // 0x1000 strict image checks, 0x2000 removable-device test
[[nodiscard]] cfg_slot& cfg_ProdIntegrationConfig() noexcept;  // bit 0 adds MD5 to the file record
[[nodiscard]] cfg_slot& cfg_FeaturesInstalled() noexcept;      // consulted outside standalone mode only
[[nodiscard]] cfg_slot& cfg_FeaturesEnabled() noexcept;
[[nodiscard]] cfg_slot& cfg_CatalogCertExtractionDisabled() noexcept;
