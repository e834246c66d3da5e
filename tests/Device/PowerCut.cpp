// Cuts the power of the emulated board in the middle of writes of flash variables, with one copy of
// them and with two, and judges in the next boot what each cut has left. scripts/device
// --power-cuts runs it.
//
// usage: Device.PowerCut write|judge CUTS
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <thread>

#include "Tolvex/Util/FlashUtils.h"

#include "tests/Support/Board.h"

namespace {

using Clock = std::chrono::steady_clock;
using Tolvex::Support::TellEmulator;
using Tolvex::Util::ExecCmd_System;
using Tolvex::Util::ReadFlashVar;
using Tolvex::Util::WriteFlashConfigFile;
using Tolvex::Util::WriteFlashVar;

[[noreturn]] void Fail(const std::string& what)
{
    std::fprintf(stderr, "FAILED: %s\n", what.c_str());
    std::exit(EXIT_FAILURE);
}

/// How often the flash holds the variables.
struct Copies
{
    const char* name;
    bool redundant;
    std::string padding;  ///< a variable that spreads the others over the flash

    void Configure() const
    {
        if (redundant) {
            // docs/device.md shows these lines.
            std::ofstream("/etc/fw_env.config") << "/dev/mtd1 0x0000 0x1000 0x1000 1\n"
                                                   "/dev/mtd1 0x1000 0x1000 0x1000 1\n";
        } else {
            WriteFlashConfigFile();
        }
    }
};

const Copies copiesOf[] = {{"single", false, std::string(5000, 'p')},
                           {"redundant", true, std::string(2000, 'p')}};

std::string Read(const char* name)
{
    std::string value;
    if (ReadFlashVar(name, value) != 0) {
        Fail(std::string("cannot read ") + name);
    }
    return value;
}

void Write(const char* name, const std::string& value)
{
    if (WriteFlashVar(name, value.c_str()) != 0) {
        Fail(std::string("cannot write ") + name);
    }
}

std::string Generation(const char* age, int cut)
{
    return age + std::string("-") + std::to_string(cut);
}

/// Stops the board in the middle of a write; it runs again when the host has copied the flash.
void Cut(int cut, int cuts)
{
    const auto start = Clock::now();
    Write("generation", Generation("old", cut));
    const auto duration = Clock::now() - start;

    std::thread writer([cut] { Write("generation", Generation("new", cut)); });
    std::this_thread::sleep_for(duration * (2 * cut - 1) / (2 * cuts));
    if (!TellEmulator("stop")) {
        Fail("cannot stop the board");
    }
    writer.join();
}

void WriteAndCut(const Copies& copies, int cuts)
{
    copies.Configure();
    if (ExecCmd_System("flash_erase -q /dev/mtd1 0 0") != 0) {
        Fail("cannot erase");
    }
    Write("padding", copies.padding);
    Write("bootdelay", "7");
    for (int cut = 1; cut <= cuts; ++cut) {
        Cut(cut, cuts);
    }
}

/// @return what the cut has left, as the library sees it.
const char* Judge(const Copies& copies, int cut)
{
    const std::string file = "/board/" + std::string(copies.name) + "-" + std::to_string(cut);
    if (ExecCmd_System(("flash_erase -q /dev/mtd1 0 0 && cat " + file + " >/dev/mtd1").c_str()) !=
        0) {
        Fail("cannot put back " + file);
    }
    const std::string generation = Read("generation");
    const std::string padding = Read("padding");
    const std::string bootDelay = Read("bootdelay");
    if (padding == copies.padding && bootDelay == "7") {
        if (generation == Generation("old", cut)) {
            return "old variables";
        }
        if (generation == Generation("new", cut)) {
            return "new variables";
        }
    }
    if (generation.empty() && padding.empty() && bootDelay == "2" && !copies.redundant) {
        return "initial environment, all lost";
    }
    Fail(file + ": generation \"" + generation + "\", bootdelay \"" + bootDelay + "\", " +
         std::to_string(padding.size()) + " bytes of padding");
}

void JudgeAll(const Copies& copies, int cuts)
{
    copies.Configure();
    std::map<std::string, int> verdicts;
    for (int cut = 1; cut <= cuts; ++cut) {
        const char* const verdict = Judge(copies, cut);
        if (++verdicts[verdict] == 1) {
            Write("generation", "next");
            if (Read("generation") != "next") {
                Fail("the first write after the cut is not read back");
            }
        }
    }
    for (const auto& [verdict, count] : verdicts) {
        std::fprintf(stderr, "%s, %d power cuts: %d times %s\n",
                     copies.redundant ? "two copies" : "one copy", cuts, count, verdict.c_str());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string_view phase = argc == 3 ? argv[1] : "";
    if ((phase != "write" && phase != "judge") || !Tolvex::Support::IsOnBoard()) {
        std::fprintf(stderr, "usage: %s write|judge CUTS, on the emulated board\n", argv[0]);
        return 2;
    }
    // ReadFlashVar() shows each value on standard output; the results go to the standard error.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        Fail("cannot drop standard output");
    }
    for (const Copies& copies : copiesOf) {
        if (phase == "write") {
            WriteAndCut(copies, std::atoi(argv[2]));
        } else {
            JudgeAll(copies, std::atoi(argv[2]));
        }
    }
    return EXIT_SUCCESS;
}
