// Gives three events within one second a file each, and reads the time of an event from its name.
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "Tolvex/Util/EventFile.h"
#include "Tolvex/Util/UtilTime.h"

int main()
{
    // Names have local time: the same one on every machine.
    setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe): one thread
    Tolvex::Util::RefreshTimeZone();
    const auto directory = std::filesystem::temp_directory_path() / "tolvex-example-event-files";
    try {
        std::filesystem::create_directory(directory);
        for (int event = 1; event <= 3; ++event) {
            const std::filesystem::path path =
                Tolvex::Util::CreateEventFile(directory, "EVENT_FRONT_", 1617512767, "mp4");
            const std::string name = path.filename();
            Tolvex::Util::EventFileName parts;
            if (Tolvex::Util::ReadEventFileName(name, parts)) {
                std::cout << name << ": event " << parts.number << " of second " << parts.time
                          << '\n';
            }
        }
        Tolvex::Util::CreateEventFile(directory / "missing", "EVENT_FRONT_", 1617512767, "mp4");
    } catch (const std::exception& problem) {
        const std::string reason = problem.what();
        std::cout << reason.substr(0, reason.find(" (")) << '\n';
    }
    std::filesystem::remove_all(directory);
}
