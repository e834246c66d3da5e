// Cuts the power of the emulated board in the middle of a write of flash variables, and judges what
// the boot after it finds; scripts/device --power-cuts calls it once in each boot.
//
// usage: Device.PowerCut BOOT BOOTS single|redundant
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

#include "Tolvex/Util/FlashUtils.h"

#include "tests/Support/Board.h"

namespace {

using Clock = std::chrono::steady_clock;
using Tolvex::Support::TellEmulator;
using Tolvex::Util::ReadFlashVar;
using Tolvex::Util::WriteFlashConfigFile;
using Tolvex::Util::WriteFlashVar;

/// Long enough that the variables reach into the second sector of a single environment.
std::string Padding(bool redundant)
{
    return std::string(redundant ? 2000 : 5000, 'p');
}

void Configure(bool redundant)
{
    if (redundant) {
        // docs/device.md shows these lines.
        std::ofstream("/etc/fw_env.config") << "/dev/mtd1 0x0000 0x1000 0x1000 1\n"
                                               "/dev/mtd1 0x1000 0x1000 0x1000 1\n";
    } else {
        WriteFlashConfigFile();
    }
}

[[noreturn]] void Fail(const std::string& what)
{
    std::fprintf(stderr, "FAILED: %s\n", what.c_str());
    std::exit(EXIT_FAILURE);
}

/// Reads a variable through the library.
std::string Read(const char* name)
{
    std::string value;
    if (ReadFlashVar(name, value) != 0) {
        Fail(std::string("cannot read ") + name);
    }
    return value;
}

/// Says what the cut of a boot left: the old variables, the new ones, or the initial environment.
const char* Judge(int boot, bool redundant)
{
    const std::string generation = Read("generation");
    const std::string padding = Read("padding");
    const std::string bootDelay = Read("bootdelay");
    if (padding == Padding(redundant) && bootDelay == "7") {
        if (generation == "old-" + std::to_string(boot)) {
            return "the old variables";
        }
        if (generation == "new-" + std::to_string(boot)) {
            return "the new variables";
        }
    }
    if (generation.empty() && padding.empty() && bootDelay == "2" && !redundant) {
        return "all lost: the initial environment";
    }
    Fail("generation \"" + generation + "\", bootdelay \"" + bootDelay + "\", " +
         std::to_string(padding.size()) + " bytes of padding");
}

void Write(const char* name, const std::string& value)
{
    if (WriteFlashVar(name, value.c_str()) != 0) {
        Fail(std::string("cannot write ") + name);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4 || !Tolvex::Support::IsOnBoard()) {
        std::fprintf(stderr, "usage: %s BOOT BOOTS single|redundant, on the emulated board\n",
                     argv[0]);
        return 2;
    }
    const int boot = std::atoi(argv[1]);
    const int boots = std::atoi(argv[2]);
    const bool redundant = std::string_view(argv[3]) == "redundant";
    // ReadFlashVar() shows each value on standard output; what this program says goes elsewhere.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        Fail("cannot drop standard output");
    }
    Configure(redundant);
    if (boot > 0) {
        std::fprintf(stderr, "power cut %d: %s\n", boot, Judge(boot - 1, redundant));
    }
    if (boot == boots) {
        return EXIT_SUCCESS;
    }

    // Whatever the cut has left, the next write puts it right.
    Write("padding", Padding(redundant));
    Write("bootdelay", "7");
    const auto start = Clock::now();
    Write("generation", "old-" + std::to_string(boot));
    const auto duration = Clock::now() - start;
    if (Read("generation") != "old-" + std::to_string(boot)) {
        Fail("a whole write is not read back");
    }

    sync();
    std::thread([boot] { Write("generation", "new-" + std::to_string(boot)); }).detach();
    std::this_thread::sleep_for(duration * (2 * boot + 1) / (2 * boots));
    TellEmulator("quit");
    std::this_thread::sleep_for(std::chrono::minutes(1));
    Fail("the power was not cut");
}
