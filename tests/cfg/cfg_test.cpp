#include "cfg/cfg.h"

#include <gtest/gtest.h>

TEST(Parameters, ReadZeroAndAreKeptApart) {
  cfg_slot& (*const accessors[])() noexcept = {cfg_CustomerConfig, cfg_ProdIntegrationConfig, cfg_FeaturesInstalled,
                                               cfg_FeaturesEnabled, cfg_CatalogCertExtractionDisabled};
  for (const auto accessor : accessors) EXPECT_EQ(accessor().exchange(1), 0U);
  for (const auto accessor : accessors) accessor() = 0;
}
