#include "cfg/cfg.h"

#include <gtest/gtest.h>

TEST(Parameters, AreZeroAndSeparate) {
  cfg_slot* const slots[] = {&cfg_CustomerConfig(), &cfg_ProdIntegrationConfig(), &cfg_FeaturesInstalled(),
                             &cfg_FeaturesEnabled(), &cfg_CatalogCertExtractionDisabled()};
  for (cfg_slot* slot : slots) EXPECT_EQ(slot->exchange(1), 0U);
  for (cfg_slot* slot : slots) *slot = 0;
}
