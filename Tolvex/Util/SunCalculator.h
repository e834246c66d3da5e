#pragma once

#include <ctime>
#include <numbers>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// A day's sunrise and sunset as Unix times in seconds; both are 0 when the sun does neither.
struct SunTimes
{
    std::time_t sunrise;
    std::time_t sunset;
};

/// Computes sunrise and sunset for a date and a place with low-precision solar position formulas.
///
/// The formulas are those of Jean Meeus, "Astronomical Algorithms" (the chapters on solar
/// coordinates and on rising, transit and setting), cut to low precision. From 1970 to 2037 the
/// results are about 75 s late in the mean and never off by more than three and a half minutes up
/// to latitude 60; within a few weeks of polar day or night the error grows to ten minutes.
/// Angles are radians unless stated; "west" longitudes grow to the west. Julian dates and day
/// counts are days in a double. Times are Unix times in seconds, whatever the time zone. See
/// examples/SunTable.cpp.
/// @par Errors
/// None are reported. Where the sun does not rise or set, and where an argument is not a number,
/// the result is 0; results outside 32 bits saturate.
/// @par Thread safety
/// Thread-safe: the object holds constants only.
class TOLVEX_EXPORT SunCalculator
{
public:
    /// @return the Julian date of a Unix time.
    double ToJulian(const std::time_t& time) const;

    /// @return the Unix time of a Julian date, cut toward zero to whole seconds, in 32 bits.
    /// @note A date within 25 microseconds of a whole second is that second, so that every t of 32
    ///       bits comes back from FromJulian(ToJulian(t)).
    /// @note Saturates to 32 bits also where time_t has 64, and makes 0 of what is not a number.
    std::time_t FromJulian(double julianDate) const;

    /// @return the days since 2000-01-01 12:00:00 UTC; negative before it.
    double ToDays(const std::time_t& time) const;

    /// @return the sun's mean anomaly at a day count, not reduced to one turn.
    double SolarMeanAnomaly(double days) const;

    /// @return the sun's ecliptic longitude for a mean anomaly, not reduced to one turn.
    /// @note Adds pi rounded to single precision.
    double EclipticLongitude(double meanAnomaly) const;

    /// @return the declination of a point at an ecliptic longitude and latitude.
    double Declination(double longitude, double latitude) const;

    /// @return the number of the solar day, a whole number, at a day count and a west longitude.
    /// @note Divides by 2 pi rounded to single precision.
    double JulianCycle(double days, double longitudeWest) const;

    /// @return the approximate day count of the moment at which the sun of solar day cycle has the
    ///         hour angle, at a west longitude; hour angle 0 is the transit.
    /// @note Divides by 2 pi rounded to single precision.
    double ApproxTransit(double hourAngle, double longitudeWest, double cycle) const;

    /// @return the Julian date of the approximate transit (a day count), corrected for the equation
    ///         of time.
    double SolarTransitJ(double approxTransit, double meanAnomaly, double longitude) const;

    /// @return the hour angle at which a declination has an altitude at a latitude; not a number
    ///         when it never has.
    double HourAngle(double altitude, double latitude, double declination) const;

    /// @return the Julian date at which the setting sun of solar day cycle has the altitude.
    double GetSetJ(double altitude, double longitudeWest, double latitude, double declination,
                   double cycle, double meanAnomaly, double longitude) const;

    /// Computes when the sun's upper limb crosses the horizon, with standard refraction.
    ///
    /// The day is the solar day of the place whose noon is nearest to the date.
    /// @param date       Any moment of the day, best near noon of the place; Unix time in seconds.
    /// @param latitude   Degrees, north positive.
    /// @param longitude  Degrees, east positive.
    /// @return sunrise, sunset; 0 and 0 on a day of polar day or night.
    SunTimes GetTimes(const std::time_t& date, double latitude, double longitude) const;

private:
    double dayMs = 86400000.0;              ///< length of a day in ms
    double J1970 = 2440588.0;               ///< Julian day number of 1970-01-01
    double J2000 = 2451545.0;               ///< Julian day of the epoch J2000
    double rad = std::numbers::pi / 180.0;  ///< radians per degree
    double e = 23.4397 * rad;               ///< obliquity of the ecliptic
    double J0 = 0.0009;                     ///< transit correction in days
};

}  // namespace Tolvex::Util
