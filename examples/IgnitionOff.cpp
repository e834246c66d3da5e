// Shows what happens at ignition off when a participant hangs, and what the next start learns.
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "Tolvex/Interfaces/IgnitionOffSequence.h"
#include "Tolvex/Log/Logger.h"

using namespace std::chrono_literals;
using Tolvex::Interfaces::IgnitionOffMode;
using Tolvex::Interfaces::IgnitionOffSequence;
using Tolvex::Util::DriveEnd;

/// Takes as long as it is told.
class Part : public IgnitionOffMode
{
public:
    Part(const std::string& text, std::chrono::milliseconds time) : name(text), length(time) {}

    void RunIgnitionOff() override
    {
        std::this_thread::sleep_for(length);
        std::cout << name << " is ready" << std::endl;
    }

private:
    const std::string name;
    const std::chrono::milliseconds length;
};

void TellLastDrive(const IgnitionOffSequence& sequence)
{
    const auto& last = sequence.GetLastDrive();
    std::cout << (last.end == DriveEnd::IgnitionOff ? "ignition off" : "no proper end")
              << std::endl;
    for (const std::string& name : last.overran) {
        std::cout << name << " took too long" << std::endl;
    }
}

int main()
{
    const auto record = std::filesystem::temp_directory_path() / "tolvex-example-drive";
    std::filesystem::remove(record);
    Part camera("Camera", 0ms);
    Part upload("Upload", 1h);
    Part storage("Storage", 0ms);
    {
        IgnitionOffSequence sequence(record.string());
        TellLastDrive(sequence);
        sequence.Add("Camera", &camera, 10s);
        sequence.Add("Upload", &upload, 200ms);
        sequence.Add("Storage", &storage, 10s);
        // The last one: it takes the lines of the others.
        sequence.Add("Log", Tolvex::Ilog::Logger::GetInstance(), 3s);
        sequence.RunIgnitionOff();
    }
    IgnitionOffSequence next(record.string());
    TellLastDrive(next);
}
