#include "Tolvex/Interfaces/IgnitionOffSequence.h"

#include <algorithm>
#include <exception>
#include <functional>
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
using Base::SignalHandlers;
using Ilog::LogLine;
using Ilog::LogType;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds longestBudget = std::chrono::hours(1);
constexpr milliseconds logAllowance(15);     // beyond the budgets, for all log lines together
constexpr milliseconds recordAllowance(40);  // beyond the budgets, for log and record together
constexpr milliseconds stopLimit(2000);      // for the record that the destructor writes

/// @return a call that logs what the work throws: nothing else catches it on that thread.
/// @param failed  Begins that line of the log.
BoundedThread::Call MakeCall(const std::function<void()>& work, const std::string& failed = "")
{
    return std::make_shared<const std::function<void()>>([work, failed] {
        try {
            work();
        } catch (const std::exception& problem) {
            LogLine(LogType::Error) << failed << problem.what();
        }
    });
}

}  // namespace

struct IgnitionOffSequence::Participant
{
    std::string name;
    milliseconds budget;
    std::unique_ptr<BoundedThread> thread;
    BoundedThread::Call call;        ///< made on the thread
    BoundedThread::Call logOverrun;  ///< prepared, because memory may be exhausted then
    bool overran = false;            ///< in the last RunIgnitionOff()
};

IgnitionOffSequence::IgnitionOffSequence(const std::string& recordFile)
    : logThread(BoundedThread::Create("IGNITION_LOG", SignalHandlers::Blocked)),
      recordPath(recordFile)
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
        unlink(recordPath.c_str());  // It is of the last drive, and would be taken for this one's.
        SetError(problem, "IgnitionOffSequence", true, true);
    }
    recordThread = BoundedThread::Create("IGNITION_RECORD", SignalHandlers::Blocked);
    if (recordThread == nullptr) {
        SetError("No thread for the record", "IgnitionOffSequence", true, true);
    }
}

IgnitionOffSequence::~IgnitionOffSequence()
{
    const Base::NoCancellation scope;
    if (!ignitionOff) {
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
    std::unique_ptr<BoundedThread> thread = BoundedThread::Create(name, SignalHandlers::Allowed);
    if (thread == nullptr) {
        return refuse("No thread");
    }
    const auto call = [participant] { participant->RunIgnitionOff(); };
    const auto logOverrun = [name, budget] {
        LogLine(LogType::Error) << "Ignition off: " << name << " has not ended within "
                                << budget.count() << " ms and is left behind";
    };
    if (logThread != nullptr) {
        logThread->Reserve(participants.size() + 1);
    }
    participants.push_back({name, budget, std::move(thread),
                            MakeCall(call, "Ignition off: " + name + " failed: "),
                            MakeCall(logOverrun)});
    return true;
}

void IgnitionOffSequence::RunIgnitionOff()
{
    const Base::NoCancellation scope;
    ignitionOff = true;
    const auto begin = steady_clock::now();
    milliseconds budgets(0);
    for (Participant& next : participants) {
        budgets += next.budget;
        const auto latest = begin + budgets + logAllowance;
        const auto deadline = std::min(steady_clock::now() + next.budget, latest);
        next.overran = !next.thread->Run(next.call, deadline, BoundedThread::Late::NotCalled);
        if (next.overran && logThread != nullptr) {
            // The log may hang, too: the participant that is left behind may hold its lock.
            logThread->Run(next.logOverrun, latest, BoundedThread::Late::Called);
        }
    }
    WriteRecord(Util::DriveEnd::IgnitionOff, begin + budgets + recordAllowance);
}

std::vector<std::string> IgnitionOffSequence::GetOverrun() const
{
    std::vector<std::string> names;
    for (const Participant& participant : participants) {
        if (participant.overran) {
            names.push_back(participant.name);
        }
    }
    return names;
}

void IgnitionOffSequence::WriteRecord(Util::DriveEnd end, steady_clock::time_point deadline)
{
    if (recordThread == nullptr) {
        return;
    }
    try {
        const auto write = [path = recordPath, record = Util::DriveRecord{end, GetOverrun()}] {
            Util::WriteDriveRecord(path, record);
        };
        recordThread->Run(MakeCall(write), deadline, BoundedThread::Late::Called);
    } catch (const std::bad_alloc&) {
        // Best effort: the record keeps saying "died".
    }
}

}  // namespace Tolvex::Interfaces
