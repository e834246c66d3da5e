#pragma once

#include <string>

#include "Tolvex/Json/Json.h"

namespace Dashcam {

/// Draws the acceleration around an event.
///
/// The colours come from the style sheet of the page: the classes x, y and z for the axes.
/// @param side  Content of a side file; what is missing in it is missing in the chart.
/// @return an inline SVG; empty without samples.
std::string DrawChart(const Tolvex::Json::Object& side);

}  // namespace Dashcam
