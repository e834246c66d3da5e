#!/usr/bin/python3
"""Writes SunEphemeris.inc: sunrise and sunset of many days and places by an independent ephemeris.

Run as:  ./make_sun_ephemeris.py > SunEphemeris.inc      (Debian package python3-ephem)

The ephemeris is PyEphem's, the full planetary theory VSOP87. Sunrise and sunset are those of the
almanacs: the upper limb of the true disc with 34 minutes of arc of refraction. A row's date is
noon of the place in local mean time; its day is the one whose transit is nearest to that moment.
"""

import calendar
import datetime
import math
import sys

import ephem

# Name, latitude north, longitude east, in degrees.
PLACES = [
    ("Quito", -0.18, -78.47), ("Nairobi", -1.29, 36.82), ("Singapore", 1.35, 103.82),
    ("Kiritimati", 1.87, -157.43), ("Suva", -18.14, 178.44), ("Apia", -13.83, -171.77),
    ("DateLineEast", 10.0, 180.0), ("DateLineWest", 10.0, -180.0), ("Mumbai", 19.08, 72.88),
    ("Honolulu", 21.31, -157.86), ("Cairo", 30.04, 31.24), ("Sydney", -33.87, 151.21),
    ("Tokyo", 35.68, 139.69), ("Wellington", -41.29, 174.78), ("NewYork", 40.71, -74.01),
    ("Munich", 48.14, 11.58), ("Greenwich", 51.48, 0.0), ("Adak", 51.88, -176.66),
    ("Ushuaia", -54.80, -68.30), ("Moscow", 55.76, 37.62), ("Oslo", 59.91, 10.75),
    ("Anchorage", 61.22, -149.90), ("Reykjavik", 64.15, -21.94), ("Anadyr", 64.73, 177.51),
    ("Rovaniemi", 66.50, 25.73), ("Tromso", 69.65, 18.96), ("Longyearbyen", 78.22, 15.65),
    ("McMurdo", -77.85, 166.67), ("NorthEighty", 80.0, -40.0), ("Vostok", -78.46, 106.84),
]

# Days spread over the whole of the years that a 32-bit time covers from 1970 on, and over all
# seasons: solstices, equinoxes, the extremes of the equation of time, leap days.
DATES = [
    (1970, 1, 2), (1972, 2, 29), (1976, 6, 21), (1980, 9, 22), (1984, 12, 21), (1988, 3, 20),
    (1991, 11, 3), (1994, 2, 11), (1997, 5, 14), (1999, 7, 26), (2000, 1, 1), (2000, 2, 29),
    (2003, 4, 10), (2006, 8, 19), (2009, 10, 7), (2012, 6, 21), (2015, 12, 22), (2018, 3, 20),
    (2021, 9, 22), (2024, 2, 29), (2026, 6, 21), (2029, 11, 3), (2032, 5, 1), (2035, 1, 15),
    (2037, 12, 31),
]

EPHEM_EPOCH = ephem.Date("1970/1/1 00:00:00")
HALF_DAY = 0.5
SUN_REFRACTION = "-0:34"


def to_unix(date):
    return int(round((date - EPHEM_EPOCH) * 86400.0))


def nearest_transit(observer, sun, noon):
    observer.date = noon - HALF_DAY
    return observer.next_transit(sun)


def rise_and_set(latitude, longitude, noon):
    observer = ephem.Observer()
    observer.lat, observer.lon = str(latitude), str(longitude)
    observer.pressure, observer.horizon, observer.elevation = 0, SUN_REFRACTION, 0
    sun = ephem.Sun()
    transit = nearest_transit(observer, sun, noon)
    try:
        observer.date = transit
        rise = observer.previous_rising(sun)
        observer.date = transit
        return to_unix(rise), to_unix(observer.next_setting(sun)), to_unix(transit)
    except ephem.CircumpolarError:
        return 0, 0, to_unix(transit)


def main():
    print("// Made by make_sun_ephemeris.py with PyEphem %s; not edited by hand." % ephem.__version__)
    print("// place, latitude, longitude, date, sunrise, sunset (0: the sun does not rise or set)")
    for name, latitude, longitude in PLACES:
        for year, month, day in DATES:
            noon = calendar.timegm((year, month, day, 12, 0, 0)) - int(longitude * 240)
            moment = ephem.Date(EPHEM_EPOCH + noon / 86400.0)
            rise, sets, transit = rise_and_set(latitude, longitude, moment)
            if rise and max(transit - rise, sets - transit) > 46800:
                rise, sets = 0, 0  # the crossing found is another day's: none in this one
            print('{"%s", %.2f, %.2f, %d, %d, %d},' % (name, latitude, longitude, noon, rise, sets))


if __name__ == "__main__":
    main()
