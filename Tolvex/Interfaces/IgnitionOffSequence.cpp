#include "Tolvex/Interfaces/IgnitionOffSequence.h"

#include <algorithm>
#include <exception>
#include <new>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/BoundedThread.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Exception/IException.h"
#include "Tolvex/Log/LogLine.h"

namespace Tolvex::Interfaces {
namespace {

using Base::BoundedThread;
using Ilog::LogLine;
using Ilog::LogType;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds longestBudget = std::chrono::hours(1);
constexpr milliseconds logAllowance(15);     // beyond the budgets, for all log lines together
constexpr milliseconds recordAllowance(40);  // beyond the budgets, for log and record together
constexpr milliseconds stopLimit(2000);      // for the record that the destructor writes

/// What the thread of a participant needs, for as long as it runs.
struct Call
{
    /// Runs on a thread of its own, where nothing else would catch what is thrown.
    void Make() const
    {
        try {
            participant->RunIgnitionOff();
        } catch (const std::exception& problem) {
            LogLine(LogType::Error) << "Ignition off: " << name << " failed: " << problem.what();
        }
    }

    std::string name;
    IgnitionOffMode* participant;
};

}  // namespace

struct IgnitionOffSequence::Participant
{
    std::shared_ptr<const Call> call;
    milliseconds budget;
    std::unique_ptr<BoundedThread> thread;  ///< keeps the call, too
    bool overran = false;                   ///< in the last RunIgnitionOff()
};

IgnitionOffSequence::IgnitionOffSequence(const std::string& recordFile)
    : logThread(BoundedThread::Create("IGNITION_LOG")), recordPath(recordFile), process(getpid())
{
    SetNamespace("Tolvex::Interfaces");
    SetClassName("IgnitionOffSequence");
    if (logThread == nullptr) {
        SetError("No thread for the log", "IgnitionOffSequence", true, true);
    }
    if (recordPath.empty()) {
        return;
    }

    lastDrive = Util::ReadDriveRecord(recordPath);
    try {
        Util::WriteDriveRecord(recordPath, {Util::DriveEnd::Died, {}});
    } catch (const IException& problem) {
        SetError(problem, "IgnitionOffSequence", true, true);
    }
    recordThread = BoundedThread::Create("IGNITION_RECORD");
    if (recordThread == nullptr) {
        SetError("No thread for the record", "IgnitionOffSequence", true, true);
    }
}

IgnitionOffSequence::~IgnitionOffSequence()
{
    const Base::NoCancellation scope;
    if (!ignitionOff && process == getpid()) {
        WriteRecord(Util::DriveEnd::Stopped, steady_clock::now() + stopLimit);
    }
}

bool IgnitionOffSequence::Add(const std::string& name, IgnitionOffMode* participant,
                              milliseconds budget)
{
    ResetError();
    const auto refuse = [this](const char* reason) {
        SetError(reason, "Add", true, true);
        return false;
    };
    if (participant == nullptr) {
        return refuse("No participant");
    }
    if (name.empty() || name.find('\n') != std::string::npos) {
        return refuse("Name not valid");
    }
    if (budget < milliseconds(1) || budget > longestBudget) {
        return refuse("Budget not valid");
    }
    auto call = std::make_shared<const Call>(Call{name, participant});
    std::unique_ptr<BoundedThread> thread = BoundedThread::Create(name, call);
    if (thread == nullptr) {
        return refuse("No thread");
    }
    participants.push_back(
        std::make_unique<Participant>(Participant{std::move(call), budget, std::move(thread)}));
    return true;
}

void IgnitionOffSequence::RunIgnitionOff()
{
    const Base::NoCancellation scope;
    ignitionOff = true;
    const auto begin = steady_clock::now();
    milliseconds budgets(0);
    for (const std::unique_ptr<Participant>& next : participants) {
        budgets += next->budget;
        const auto latest = begin + budgets + logAllowance;
        // A plain pointer: the function then needs no memory, which may be exhausted.
        const auto result = next->thread->Run([call = next->call.get()] { call->Make(); },
                                              std::min(steady_clock::now() + next->budget, latest),
                                              BoundedThread::Late::NotCalled);
        next->overran = result != BoundedThread::Result::Done;
        if (next->overran && logThread != nullptr) {
            LogOverrun(*next, latest);
        }
    }
    WriteRecord(Util::DriveEnd::IgnitionOff, begin + budgets + recordAllowance);
}

std::vector<std::string> IgnitionOffSequence::GetOverrun() const
{
    std::vector<std::string> names;
    for (const std::unique_ptr<Participant>& participant : participants) {
        if (participant->overran) {
            names.push_back(participant->call->name);
        }
    }
    return names;
}

/// The log may hang, too: its lock may be held by the participant that was left behind.
void IgnitionOffSequence::LogOverrun(const Participant& late, Deadline deadline)
{
    try {
        logThread->Run(
            [name = late.call->name, budget = late.budget] {
                LogLine(LogType::Error) << "Ignition off: " << name << " has not ended within "
                                        << budget.count() << " ms and is left behind";
            },
            deadline, BoundedThread::Late::Called);
    } catch (const std::bad_alloc&) {
        // Best effort: the participants that follow matter more.
    }
}

void IgnitionOffSequence::WriteRecord(Util::DriveEnd end, Deadline deadline)
{
    if (recordThread == nullptr) {
        return;
    }
    try {
        recordThread->Run(
            [path = recordPath, record = Util::DriveRecord{end, GetOverrun()}] {
                try {
                    Util::WriteDriveRecord(path, record);
                } catch (const std::exception& problem) {
                    LogLine(LogType::Error) << problem.what();
                }
            },
            deadline, BoundedThread::Late::Called);
    } catch (const std::bad_alloc&) {
        // Best effort: the record keeps saying "died".
    }
}

}  // namespace Tolvex::Interfaces
