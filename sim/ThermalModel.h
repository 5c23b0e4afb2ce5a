// Temperature, fan and alert of the board, as the thermal chip would report them.
#ifndef TEV_SIM_THERMALMODEL_H
#define TEV_SIM_THERMALMODEL_H

namespace sim {

/// The fan setting gives the speed at once. The temperature drifts towards a balance that lies lower the faster the fan
/// turns, and the alert is on while the temperature is at or above the set-point. Temperatures are the chip's raw
/// numbers: degrees Celsius less rawOffset.
class ThermalModel {
public:
  static constexpr int rawOffset = 11;
  static constexpr int maxFan = 63;
  static constexpr int defaultFan = 15;
  static constexpr int defaultSetPoint = 60 - rawOffset;

  /// Fan setting 0 (off) to maxFan; others are brought to the nearer end.
  void setFan(int setting);
  /// One signed byte, like the chip's register; others are brought to the nearer end.
  void setSetPoint(int raw);
  void setTemperature(int raw);

  /// Lets `seconds` pass.
  void advance(double seconds);

  int fan() const { return _fan; }
  int setPoint() const { return _setPoint; }
  /// Whole raw degrees, rounded down.
  int temperature() const;
  bool alert() const { return temperature() >= _setPoint; }
  /// Turns of the fan in a minute.
  int rpm() const;
  /// Clock ticks in one turn of the fan, 0 while it stands; a driver shows it in two bytes.
  int tachCount() const;

private:
  double balance() const;

  int _fan = defaultFan;
  int _setPoint = defaultSetPoint;
  double _celsius = balance();
};

} // namespace sim

#endif
