// Temperature, fan and alert of the board as the thermal chip reports them.
#ifndef TEV_SIM_THERMALMODEL_H
#define TEV_SIM_THERMALMODEL_H

namespace sim {

/// The fan speed follows the setting at once. The temperature moves exponentially to an equilibrium, which is lower the
/// faster the fan turns. The alert is on while the temperature is at or above the set-point. Temperatures are the
/// chip's raw numbers: degrees Celsius minus rawOffset.
class ThermalModel {
public:
  static constexpr int rawOffset = 11;
  static constexpr int maxFan = 63;
  static constexpr int defaultFan = 15;
  static constexpr int defaultSetPoint = 60 - rawOffset;

  /// 0 (off) to maxFan; other values are clamped.
  void setFan(int setting);
  /// -128 to 127, as in the chip's register; other values are clamped.
  void setSetPoint(int raw);
  void setTemperature(int raw);

  /// Advances the model by `seconds`.
  void advance(double seconds);

  int fan() const { return _fan; }
  int setPoint() const { return _setPoint; }
  /// Whole raw degrees, rounded down.
  int temperature() const;
  bool alert() const { return temperature() >= _setPoint; }
  /// Fan speed in revolutions per minute.
  int rpm() const;
  /// Clock ticks per revolution of the fan, 0 if it is off. The driver shows it as two bytes.
  int tachCount() const;

private:
  double balance() const;

  int _fan = defaultFan;
  int _setPoint = defaultSetPoint;
  double _celsius = balance();
};

} // namespace sim

#endif
