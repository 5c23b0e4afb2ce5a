#include "sim/ThermalModel.h"

#include <gtest/gtest.h>

using sim::ThermalModel;

TEST(ThermalModel, FanSettingGivesTheTachometerCount) {
  const struct {
    int setting, fan, rpm;
  } cases[] = {{0, 0, 0}, {-1, 0, 0}, {1, 1, 100}, {30, 30, 3000}, {63, 63, 6300}, {64, 63, 6300}, {9999, 63, 6300}};
  for (const auto& c : cases) {
    ThermalModel model;
    model.setFan(c.setting);
    EXPECT_EQ(model.fan(), c.fan);
    ASSERT_EQ(model.tachCount() == 0, c.rpm == 0);
    ASSERT_LE(model.tachCount(), 0xffff);
    if (c.rpm == 0) continue;
    EXPECT_NEAR(2877120 / model.tachCount(), c.rpm, c.rpm / 100.0);
  }
}

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

TEST(ThermalModel, AlertIsOnFromTheSetPointUp) {
  ThermalModel model;
  EXPECT_FALSE(model.alert());
  model.setTemperature(29);
  for (const auto& [setPoint, kept, alert] : {std::tuple(28, 28, true),
                                              {29, 29, true},
                                              {30, 30, false},
                                              {-9, -9, true},
                                              {1000, 127, false},
                                              {-1000, -128, true}}) {
    model.setSetPoint(setPoint);
    EXPECT_EQ(model.setPoint(), kept);
    EXPECT_EQ(model.alert(), alert) << setPoint;
  }
}
