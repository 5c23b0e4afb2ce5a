#include "sim/ThermalModel.h"

#include <gtest/gtest.h>

using sim::ThermalModel;

TEST(ThermalModel, TemperatureMovesSlowlyToItsBalance) {
  ThermalModel model;
  const int first = model.temperature();
  model.advance(3600);
  EXPECT_EQ(model.temperature(), first) << "a board at rest stays as it is";
  int last = first;
  model.setFan(0);
  EXPECT_EQ(model.temperature(), first) << "time has to pass";
  for (int second = 0; second < 300; ++second) {
    model.advance(1);
    ASSERT_GE(model.temperature(), last);
    ASSERT_LE(model.temperature() - last, 2);
    last = model.temperature();
  }
  EXPECT_NEAR(last, 70 - ThermalModel::rawOffset, 1);
  model.setFan(ThermalModel::maxFan);
  model.advance(300);
  EXPECT_LT(model.temperature(), first);
}
