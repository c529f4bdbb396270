#include "cfg/cfg.h"

#include <gtest/gtest.h>

#include <set>

TEST(Parameters, ReadZeroAndAreKeptApart) {
  cfg_slot& (*const accessors[])() noexcept = {cfg_CustomerConfig, cfg_ProdIntegrationConfig, cfg_FeaturesInstalled,
                                               cfg_FeaturesEnabled, cfg_CatalogCertExtractionDisabled};
  std::set<cfg_slot*> slots;
  for (const auto accessor : accessors) {
    EXPECT_EQ(accessor().load(), 0U);
    slots.insert(&accessor());
  }
  EXPECT_EQ(slots.size(), std::size(accessors));
  cfg_CustomerConfig() = 0x1000;
  EXPECT_EQ(cfg_CustomerConfig().load(), 0x1000U);
  cfg_CustomerConfig() = 0;
}
