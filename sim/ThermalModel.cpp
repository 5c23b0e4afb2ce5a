#include "sim/ThermalModel.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr double roomTemperature = 25.0; // degrees Celsius
constexpr double riseInStillAir = 45.0;
constexpr double halvingFan = 15.0;   // the fan setting at which the rise is half of that
constexpr double timeConstant = 20.0; // seconds
constexpr int tachTicks = 2877120;    // clock ticks per minute
constexpr int rpmPerStep = 100;       // of the fan setting

} // namespace

void ThermalModel::setFan(int setting) { _fan = std::clamp(setting, 0, maxFan); }

void ThermalModel::setSetPoint(int raw) { _setPoint = std::clamp(raw, -128, 127); }

void ThermalModel::setTemperature(int raw) { _celsius = std::clamp(raw, -128, 127) + rawOffset + 0.5; }

double ThermalModel::balance() const { return roomTemperature + riseInStillAir / (1.0 + _fan / halvingFan); }

void ThermalModel::advance(double seconds) {
  _celsius = balance() + (_celsius - balance()) * std::exp(-seconds / timeConstant);
}

int ThermalModel::temperature() const { return static_cast<int>(std::floor(_celsius)) - rawOffset; }

int ThermalModel::rpm() const { return _fan * rpmPerStep; }

int ThermalModel::tachCount() const { return _fan == 0 ? 0 : tachTicks / rpm(); }

} // namespace sim
