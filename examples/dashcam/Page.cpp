#include "examples/dashcam/Page.h"

#include <cmath>
#include <iomanip>
#include <sstream>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Util/UtilString.h"

#include "examples/dashcam/Chart.h"
#include "examples/dashcam/JsonFile.h"
#include "examples/dashcam/Style.h"

namespace Dashcam {
namespace {

namespace Json = Tolvex::Json;
using Tolvex::Util::Replace;

std::string Escaped(const std::string& text)
{
    return Replace(Replace(Replace(text, "&", "&amp;"), "<", "&lt;"), "\"", "&quot;");
}

std::string Fixed(double number, int decimals)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(decimals) << number;
    return text.str();
}

/// A side file, of which every member may be missing: another program may have written it.
class Side
{
public:
    explicit Side(Json::Object document) : members(std::move(document)) {}

    std::string Text(const char* name) const
    {
        const auto found = members.find(name);
        const bool good = found != members.end() && found->second.GetType() == Json::StringVal;
        return good ? Escaped(found->second.ToString()) : "";
    }

    std::string Number(const char* name, int decimals, const char* unit) const
    {
        const auto found = members.find(name);
        const bool good = found != members.end() && found->second.IsNumeric();
        return good ? Fixed(found->second.ToDouble(), decimals) + unit : "unknown";
    }

    bool IsFalse(const char* name) const
    {
        const auto found = members.find(name);
        return found != members.end() && found->second.GetType() == Json::BoolVal &&
               !found->second.ToBool();
    }

    Side Member(const char* name) const
    {
        const auto found = members.find(name);
        const bool good = found != members.end() && found->second.GetType() == Json::ObjectVal;
        return Side(good ? found->second.AsObject() : Json::Object());
    }

    std::vector<Side> List(const char* name) const
    {
        std::vector<Side> list;
        const auto found = members.find(name);
        if (found != members.end() && found->second.GetType() == Json::ArrayVal) {
            for (const Json::Value& entry : found->second.AsArray()) {
                if (entry.GetType() == Json::ObjectVal) {
                    list.emplace_back(entry.AsObject());
                }
            }
        }
        return list;
    }

    const Json::Object& All() const { return members; }

private:
    Json::Object members;
};

std::string Cause(const Side& event)
{
    const std::string cause = event.Text("cause");
    return cause == "button"         ? "Driver's button"
           : cause == "acceleration" ? "Shock of " + event.Number("force", 1, " g")
                                     : "Unknown cause";
}

void WriteTable(std::ostream& page, const Side& side)
{
    const auto row = [&page](const char* name, const std::string& value) {
        page << "<tr><th>" << name << "</th><td>" << value << "</td></tr>\n";
    };
    const Side frames = side.Member("frames");
    const Side peak = side.Member("peak");
    const std::size_t gaps = frames.List("gaps").size();
    page << "<table>\n";
    row("Length", side.Number("seconds", 1, " s"));
    row("Peak", "forward " + peak.Number("x", 2, "") + ", left " + peak.Number("y", 2, "") +
                    ", up " + peak.Number("z", 2, " g"));
    row("Temperature", side.Number("temperature", 0, " °C"));
    row("Frames", frames.Number("count", 0, "") + ", " + frames.Number("first", 0, "") + " to " +
                      frames.Number("last", 0, "") +
                      (gaps == 0 ? ", no gap" : ", " + std::to_string(gaps) + " gaps"));
    row("Since boot", side.Number("bootSeconds", 0, " s"));
    row("Identifier", side.Text("identifier"));
    page << "</table>\n";
}

void WriteEvent(std::ostream& page, const std::string& name, const Side& side)
{
    page << "<article id=\"" << name << "\">\n<header><h2>" << side.Text("localTime") << "</h2>";
    for (const Side& event : side.List("events")) {
        page << "<span class=\"chip cause\">" << Cause(event) << "</span>";
    }
    page << "<span class=\"chip\">" << (side.Text("light") == "day" ? "Day" : "Night") << "</span>";
    if (side.IsFalse("clockPlausible")) {
        page << "<span class=\"chip\">The clock was not set</span>";
    }
    page
        << "</header>\n<div class=\"columns\">\n<div><video controls preload=\"metadata\" poster=\""
        << name << ".jpg\" src=\"" << name << ".mp4\"></video>\n<div class=\"files\">";
    for (const auto& [extension, text] :
         {std::pair("mp4", "Clip"), std::pair("jpg", "Still"), std::pair("json", "Data"),
          std::pair("sig", "Signature")}) {
        page << "<a href=\"" << name << '.' << extension << "\">" << text << "</a>";
    }
    page << "</div>\n";
    if (const std::string log = side.Text("log"); !log.empty()) {
        page << "<details><summary>Last lines of the log</summary><pre>" << log
             << "</pre></details>\n";
    }
    page << "</div>\n<div>";
    if (const std::string chart = DrawChart(side.All()); !chart.empty()) {
        page
            << "<figure><figcaption>Acceleration in g<span><i class=\"x\"></i>forward</span>"
            << "<span><i class=\"y\"></i>left</span><span><i class=\"z\"></i>up</span></figcaption>"
            << chart << "</figure>\n";
    }
    WriteTable(page, side);
    page << "</div></div>\n";
    page << "</article>\n";
}

}  // namespace

std::string MakePage(const Folder& folder)
{
    std::ostringstream strip;
    std::ostringstream articles;
    const std::vector<std::string> events = folder.Events();
    for (const std::string& name : events) {
        std::string problem;  // then the page shows the clip alone
        const Side side(ReadJsonFile(folder.Path(name + ".json"), problem));
        strip << "<a href=\"#" << name << "\"><img src=\"" << name
              << ".jpg\" alt=\"Still of the event\" loading=\"lazy\">" << side.Text("localTime")
              << "</a>\n";
        WriteEvent(articles, name, side);
    }
    std::ostringstream page;
    page << "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         << "<title>Dashcam: " << events.size() << " events</title>\n"
         << "<link rel=\"icon\" href=\"data:,\">\n<style>" << pageStyle << "</style>\n</head>\n"
         << "<body>\n<header><h1>Dashcam</h1>\n<p>" << events.size()
         << (events.size() == 1 ? " event" : " events") << ", the newest first</p>\n<nav>\n"
         << strip.str() << "</nav>\n</header>\n<main>\n"
         << articles.str() << "</main>\n</body>\n</html>\n";
    return page.str();
}

}  // namespace Dashcam
