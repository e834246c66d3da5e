#include "Tolvex/Util/SunCalculator.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "Tolvex/Base/Private/Saturate.h"

namespace Tolvex::Util {

namespace {

// Required: pi and 2 pi in single precision, which shifts the results by less than a second.
constexpr double singlePi = static_cast<double>(std::numbers::pi_v<float>);
constexpr double singleTau = static_cast<double>(2.0F * std::numbers::pi_v<float>);

/// Altitude of the sun's centre at sunrise and sunset in degrees: refraction and semi-diameter.
constexpr double horizonDegrees = -0.833;

/// A Julian day in a double has a step of 40 us. This is half a step plus rounding errors.
constexpr double representationErrorSeconds = 25e-6;

/// Saturates if the milliseconds are out of range, which cannot happen for a 32-bit time.
std::int64_t ToMilliseconds(std::time_t time)
{
    constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max() / 1000;
    return std::clamp<std::int64_t>(time, -latest, latest) * 1000;
}

}  // namespace

double SunCalculator::ToJulian(const std::time_t& time) const
{
    return static_cast<double>(ToMilliseconds(time)) / dayMs - 0.5 + J1970;
}

std::time_t SunCalculator::FromJulian(double julianDate) const
{
    const double seconds = (julianDate + 0.5 - J1970) * dayMs / 1000.0;

    const double wholeSeconds = std::round(seconds);
    const bool isWhole = std::abs(seconds - wholeSeconds) <= representationErrorSeconds;

    // Required: truncates to a 32-bit number, also where time_t has 64 bits. NaN gives 0.
    return Base::SaturateToInt32(isWhole ? wholeSeconds : seconds);
}

double SunCalculator::ToDays(const std::time_t& time) const
{
    return ToJulian(time) - J2000;
}

double SunCalculator::SolarMeanAnomaly(double days) const
{
    return rad * (357.5291 + 0.98560028 * days);
}

double SunCalculator::EclipticLongitude(double meanAnomaly) const
{
    const double centre = rad * (1.9148 * std::sin(meanAnomaly) + 0.02 * std::sin(2 * meanAnomaly) +
                                 0.0003 * std::sin(3 * meanAnomaly));
    const double perihelion = rad * 102.9372;
    return meanAnomaly + centre + perihelion + singlePi;
}

double SunCalculator::Declination(double longitude, double latitude) const
{
    return std::asin(std::sin(latitude) * std::cos(e) +
                     std::cos(latitude) * std::sin(e) * std::sin(longitude));
}

double SunCalculator::JulianCycle(double days, double longitudeWest) const
{
    return std::round(days - J0 - longitudeWest / singleTau);
}

double SunCalculator::ApproxTransit(double hourAngle, double longitudeWest, double cycle) const
{
    return J0 + (hourAngle + longitudeWest) / singleTau + cycle;
}

double SunCalculator::SolarTransitJ(double approxTransit, double meanAnomaly,
                                    double longitude) const
{
    return J2000 + approxTransit + 0.0053 * std::sin(meanAnomaly) -
           0.0069 * std::sin(2 * longitude);
}

double SunCalculator::HourAngle(double altitude, double latitude, double declination) const
{
    return std::acos((std::sin(altitude) - std::sin(latitude) * std::sin(declination)) /
                     (std::cos(latitude) * std::cos(declination)));
}

double SunCalculator::GetSetJ(double altitude, double longitudeWest, double latitude,
                              double declination, double cycle, double meanAnomaly,
                              double longitude) const
{
    const double hourAngle = HourAngle(altitude, latitude, declination);
    return SolarTransitJ(ApproxTransit(hourAngle, longitudeWest, cycle), meanAnomaly, longitude);
}

SunTimes SunCalculator::GetTimes(const std::time_t& date, double latitude, double longitude) const
{
    const double west = -rad * longitude;
    const double north = rad * latitude;

    const double cycle = JulianCycle(ToDays(date), west);
    const double approxNoon = ApproxTransit(0, west, cycle);

    const double meanAnomaly = SolarMeanAnomaly(approxNoon);
    const double eclipticLongitude = EclipticLongitude(meanAnomaly);
    const double declination = Declination(eclipticLongitude, 0);

    const double noon = SolarTransitJ(approxNoon, meanAnomaly, eclipticLongitude);
    const double set = GetSetJ(horizonDegrees * rad, west, north, declination, cycle, meanAnomaly,
                               eclipticLongitude);
    const double rise = noon - (set - noon);
    return {FromJulian(rise), FromJulian(set)};
}

}  // namespace Tolvex::Util
