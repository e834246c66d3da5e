#pragma once

#include <ctime>
#include <numbers>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// A day's sunrise and sunset as Unix times in seconds; both are 0 if the sun does not rise or set.
struct SunTimes
{
    std::time_t sunrise;  ///< Unix time in seconds
    std::time_t sunset;   ///< Unix time in seconds
};

/// Computes sunrise and sunset for a date and a place with low-precision solar position formulas.
///
/// The formulas are those of Jean Meeus, "Astronomical Algorithms" (the chapters on solar
/// coordinates and on rising, transit and setting), shortened to low precision. Up to latitude 60
/// and from 1970 to 2037, the results are 75 s late on average, and at most three and a half
/// minutes off. Within a few weeks of polar day or night the error grows to ten minutes.
///
/// Angles are in radians unless stated otherwise; "west" longitudes grow to the west. Julian dates
/// and day counts are days in a double. Times are Unix times in seconds and do not depend on the
/// time zone. See examples/SunTable.cpp.
/// @par Errors
/// No error is reported. The result is 0 if the sun does not rise or set, and if an argument is not
/// a number. Results outside 32 bits saturate.
/// @par Thread safety
/// Thread-safe: the object holds constants only.
class TOLVEX_EXPORT SunCalculator
{
public:
    /// @param time  Unix time in seconds.
    /// @return its Julian date.
    double ToJulian(const std::time_t& time) const;

    /// @param julianDate  Days.
    /// @return the Unix time of a Julian date in whole seconds, truncated toward zero, in 32 bits.
    /// @note A date within 25 microseconds of a whole second is that second, so
    ///       FromJulian(ToJulian(t)) is t for every t of 32 bits.
    /// @note Saturates to 32 bits even if time_t has 64 bits, and returns 0 for NaN.
    std::time_t FromJulian(double julianDate) const;

    /// @param time  Unix time in seconds.
    /// @return the days since 2000-01-01 12:00:00 UTC; negative before it.
    double ToDays(const std::time_t& time) const;

    /// @param days  Day count, as ToDays() gives it.
    /// @return the sun's mean anomaly, not reduced to one turn.
    double SolarMeanAnomaly(double days) const;

    /// @param meanAnomaly  Radians.
    /// @return the sun's ecliptic longitude, not reduced to one turn.
    /// @note Adds pi rounded to single precision.
    double EclipticLongitude(double meanAnomaly) const;

    /// @param longitude  Ecliptic longitude of a point.
    /// @param latitude   Ecliptic latitude of the point.
    /// @return its declination.
    double Declination(double longitude, double latitude) const;

    /// @param days           Day count.
    /// @param longitudeWest  West longitude of the place.
    /// @return the number of the solar day, a whole number.
    /// @note Divides by 2 pi rounded to single precision.
    double JulianCycle(double days, double longitudeWest) const;

    /// @param hourAngle      Of the sun; 0 is the transit.
    /// @param longitudeWest  West longitude of the place.
    /// @param cycle          Number of the solar day.
    /// @return the approximate day count of the moment at which the sun has the hour angle.
    /// @note Divides by 2 pi rounded to single precision.
    double ApproxTransit(double hourAngle, double longitudeWest, double cycle) const;

    /// @param approxTransit  Day count, as ApproxTransit() gives it.
    /// @param meanAnomaly    Of the sun.
    /// @param longitude      Ecliptic longitude of the sun.
    /// @return the Julian date of the approximate transit, corrected for the equation of time.
    double SolarTransitJ(double approxTransit, double meanAnomaly, double longitude) const;

    /// @param altitude     Above the horizon.
    /// @param latitude     Of the place.
    /// @param declination  Of the sun.
    /// @return the hour angle at which the sun has the altitude; NaN if it never has.
    double HourAngle(double altitude, double latitude, double declination) const;

    /// @param altitude       Above the horizon.
    /// @param longitudeWest  West longitude of the place.
    /// @param latitude       Of the place.
    /// @param declination    Of the sun.
    /// @param cycle          Number of the solar day.
    /// @param meanAnomaly    Of the sun.
    /// @param longitude      Ecliptic longitude of the sun.
    /// @return the Julian date at which the setting sun has the altitude.
    double GetSetJ(double altitude, double longitudeWest, double latitude, double declination,
                   double cycle, double meanAnomaly, double longitude) const;

    /// Computes the times at which the sun's upper limb crosses the horizon, with standard
    /// refraction.
    ///
    /// The day is the solar day of the place whose noon is nearest to the date.
    /// @param date       A moment of the day, preferably near noon of the place; Unix time in
    ///                   seconds.
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
