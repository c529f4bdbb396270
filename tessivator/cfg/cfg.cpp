#include "cfg/cfg.h"

cfg_slot& cfg_CustomerConfig() noexcept {
  static cfg_slot slot{0};
  return slot;
}

cfg_slot& cfg_ProdIntegrationConfig() noexcept {
  static cfg_slot slot{0};
  return slot;
}

cfg_slot& cfg_FeaturesInstalled() noexcept {
  static cfg_slot slot{0};
  return slot;
}

cfg_slot& cfg_FeaturesEnabled() noexcept {
  static cfg_slot slot{0};
  return slot;
}

cfg_slot& cfg_CatalogCertExtractionDisabled() noexcept {
  static cfg_slot slot{0};
  return slot;
}
