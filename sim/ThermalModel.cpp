#include "sim/ThermalModel.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr double ROOM = 25.0; // degrees Celsius around the board
constexpr double RISE_IN_STILL_AIR = 45.0;
constexpr double HALVING_FAN = 15.0;   // the fan setting that halves the rise
constexpr double TIME_CONSTANT = 20.0; // seconds until 63 % of a change has happened
constexpr int TACH_TICKS = 2877120;    // clock ticks in a minute
constexpr int RPM_PER_STEP = 100;      // of the fan setting

} // namespace

void ThermalModel::setFan(int setting) { _fan = std::clamp(setting, 0, MAX_FAN); }

void ThermalModel::setSetPoint(int raw) { _setPoint = std::clamp(raw, -128, 127); }

void ThermalModel::setTemperature(int raw) { _celsius = std::clamp(raw, -128, 127) + RAW_OFFSET + 0.5; }

double ThermalModel::balance() const { return ROOM + RISE_IN_STILL_AIR / (1.0 + _fan / HALVING_FAN); }

void ThermalModel::advance(double seconds) {
  _celsius = balance() + (_celsius - balance()) * std::exp(-seconds / TIME_CONSTANT);
}

int ThermalModel::temperature() const { return static_cast<int>(std::floor(_celsius)) - RAW_OFFSET; }

int ThermalModel::rpm() const { return _fan * RPM_PER_STEP; }

int ThermalModel::tachCount() const { return _fan == 0 ? 0 : TACH_TICKS / rpm(); }

} // namespace sim
