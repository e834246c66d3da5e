#include "examples/dashcam/Chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <vector>

namespace Dashcam {
namespace {

namespace Json = Tolvex::Json;

/// Seconds since the event, and x, y and z in g.
using Row = std::array<double, 4>;

// The canvas, in units of the SVG.
constexpr double width = 640, height = 300;
constexpr double left = 48, right = 628, top = 30, bottom = 266;

std::vector<Row> ReadRows(const Json::Object& side)
{
    std::vector<Row> rows;
    const auto found = side.find("acceleration");
    if (found == side.end() || found->second.GetType() != Json::ArrayVal) {
        return rows;
    }
    for (const Json::Value& entry : found->second.AsArray()) {
        Row row = {};
        if (entry.GetType() != Json::ArrayVal || entry.AsArray().size() != row.size()) {
            continue;
        }
        bool good = true;
        for (std::size_t i = 0; i < row.size(); ++i) {
            good = good && entry[i].IsNumeric() && std::isfinite(entry[i].ToDouble());
            row[i] = good ? entry[i].ToDouble() : 0.0;
        }
        if (good) {
            rows.push_back(row);
        }
    }
    return rows;
}

/// Where values are on the canvas.
struct Scale
{
    explicit Scale(const std::vector<Row>& rows)
        : first(rows.front()[0]), last(std::max(rows.back()[0], rows.front()[0] + 0.001))
    {
        double peak = 1.2;
        for (const Row& row : rows) {
            peak = std::max({peak, std::abs(row[1]), std::abs(row[2]), std::abs(row[3])});
        }
        limit = std::ceil(peak * 2.0 + 0.2) / 2.0;
    }
    double X(double second) const
    {
        return left + (second - first) / (last - first) * (right - left);
    }
    double Y(double g) const { return top + (limit - g) / (2.0 * limit) * (bottom - top); }

    double first;
    double last;
    double limit = 0.0;  ///< g at the upper edge
};

void DrawGrid(std::ostream& svg, const Scale& scale)
{
    const double step = scale.limit > 4.0 ? 2.0 : scale.limit > 2.0 ? 1.0 : 0.5;
    const int lines = static_cast<int>(scale.limit / step);
    for (int line = -lines; line <= lines; ++line) {
        const double g = line * step;
        svg << "<path class=\"" << (line == 0 ? "zero" : "grid") << "\" d=\"M" << left << ' '
            << scale.Y(g) << 'H' << right << "\"/><text x=\"" << left - 8 << "\" y=\""
            << scale.Y(g) + 5 << "\" text-anchor=\"end\">" << g << "</text>";
    }
    const int every = std::max(1, static_cast<int>(std::ceil((scale.last - scale.first) / 7.0)));
    const int begin = static_cast<int>(std::ceil(scale.first / every)) * every;
    for (int second = begin; second <= scale.last; second += every) {
        svg << "<text x=\"" << scale.X(second) << "\" y=\"" << bottom + 24
            << "\" text-anchor=\"middle\">" << (second > 0 ? "+" : "") << second << " s</text>";
    }
}

/// Marks the event that has begun the clip, and those that have prolonged it.
void DrawEvents(std::ostream& svg, const Json::Object& side, const Scale& scale)
{
    const auto events = side.find("events");
    if (events == side.end() || events->second.GetType() != Json::ArrayVal) {
        return;
    }
    const Json::Array& list = events->second.AsArray();
    double trigger = 0.0;
    for (unsigned int i = 0; i < list.size(); ++i) {
        if (list[i].GetType() != Json::ObjectVal || !list[i].HasKey("second") ||
            !list[i]["second"].IsNumeric()) {
            continue;
        }
        const double second = list[i]["second"].ToDouble();
        trigger = i == 0 ? second : trigger;
        const double x = std::clamp(scale.X(second - trigger), left, right);
        svg << "<path class=\"event\" d=\"M" << x << ' ' << top - 6 << 'V' << bottom
            << "\"/><text class=\"event\" x=\"" << x << "\" y=\"16\" text-anchor=\"middle\">event"
            << "</text>";
    }
}

}  // namespace

std::string DrawChart(const Json::Object& side)
{
    const std::vector<Row> rows = ReadRows(side);
    if (rows.empty()) {
        return {};
    }
    const Scale scale(rows);
    std::ostringstream svg;
    svg.imbue(std::locale::classic());
    svg << "<svg viewBox=\"0 0 " << width << ' ' << height
        << "\" role=\"img\" aria-label=\"Acceleration in g around the event\">";
    DrawGrid(svg, scale);
    DrawEvents(svg, side, scale);
    svg << std::fixed << std::setprecision(1);
    for (std::size_t axis = 1; axis <= 3; ++axis) {
        svg << "<polyline class=\""
            << "xyz"[axis - 1] << "\" points=\"";
        for (const Row& row : rows) {
            svg << scale.X(row[0]) << ',' << scale.Y(row[axis]) << ' ';
        }
        svg << "\"/>";
    }
    svg << "</svg>";
    return svg.str();
}

}  // namespace Dashcam
