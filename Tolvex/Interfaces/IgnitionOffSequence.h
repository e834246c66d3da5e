#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Tolvex/Interfaces/IError.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Util/DriveRecord.h"

namespace Tolvex::Base {
class BoundedThread;
}

namespace Tolvex::Interfaces {

/// Calls several participants in order when the ignition goes off, each with its own time budget.
///
/// A participant that takes longer than its budget is left behind: its call continues on its own
/// thread, the sequence calls the next participant, and the log names the late one. A call that has
/// not even begun within the budget is not made. If the log hangs or is slow, its lines about late
/// participants may be written after RunIgnitionOff() has returned. RunIgnitionOff() takes at most
/// the sum of the budgets plus 50 ms, also when every participant, the log and the disk hang.
///
/// With a record file the next start learns how this drive ended. The constructor reads the record
/// of the last drive and writes "died". The destructor replaces that by "stopped", RunIgnitionOff()
/// by "ignition off" with the names of the late participants.
///
/// Add the logger as the last participant, with a budget of at least 2.5 s. See
/// examples/IgnitionOff.cpp.
/// @par Errors
/// Add() returns false and leaves the reason in the error text (IError). After the constructor
/// GetErrorText() names the part of its work that failed, the last one if several did. "No thread
/// for the log": late participants are not logged. "No thread for the record": the record keeps
/// saying "died". The record also keeps saying "died" when memory is exhausted, when the late
/// participants have names of more than 64 KiB in all, and when the disk is too slow or refuses the
/// write; a refusal is logged. If the disk refuses the write of the constructor, the record of the
/// last drive is removed, so that nobody takes it for the record of this one. The constructor,
/// Add() and GetOverrun() throw std::bad_alloc without memory; Add() has then added nothing.
/// @par Thread safety
/// Caller serialises. Participants are called on threads of their own, one after the other; a late
/// one still runs beside the next. A forked child must not use the object, but may destroy it.
class TOLVEX_EXPORT IgnitionOffSequence : public IgnitionOffMode, public IError
{
public:
    /// @param recordFile  Path; empty for no record. Blocks as long as the file system does.
    explicit IgnitionOffSequence(const std::string& recordFile = std::string());

    /// Writes "stopped", unless the ignition went off. Blocks for at most 2 s; does not wait for
    /// late participants.
    ~IgnitionOffSequence() override;

    IgnitionOffSequence(const IgnitionOffSequence&) = delete;
    IgnitionOffSequence& operator=(const IgnitionOffSequence&) = delete;

    /// Appends a participant, and creates the thread on which it will be called.
    ///
    /// The thread is created here, because at ignition off the system may be unable to create one.
    /// @param name         For the log and the record; not empty, without line breaks.
    /// @param participant  Not owned; must outlive the sequence and its own call, which may outlast
    ///                     the sequence. A std::exception that it throws is logged.
    /// @param budget       1 ms to 1 hour.
    /// @return false with "No participant", "Name not valid", "Budget not valid" or "No thread".
    bool Add(const std::string& name, IgnitionOffMode* participant,
             std::chrono::milliseconds budget);

    /// Calls the participants in the order in which they were added, then writes the record.
    ///
    /// The call is no cancellation point. A second call skips participants that are still busy, and
    /// names them as late; its record replaces that of the first one. The whole takes at most 50 ms
    /// longer than the sum of the budgets: a participant gets less than its budget when the calling
    /// thread was held up for longer before.
    void RunIgnitionOff() override;

    /// @return the participants that the last RunIgnitionOff() left behind.
    std::vector<std::string> GetOverrun() const;

    /// @return how the last drive ended, as read by the constructor.
    const Util::DriveRecord& GetLastDrive() const { return lastDrive; }

private:
    struct Participant;

    void WriteRecord(Util::DriveEnd end, std::chrono::steady_clock::time_point deadline);

    std::vector<Participant> participants;              ///< in order of addition
    std::unique_ptr<Base::BoundedThread> logThread;     ///< null: could not be created
    std::unique_ptr<Base::BoundedThread> recordThread;  ///< null: no record, or as above
    Util::DriveRecord lastDrive;
    std::string recordPath;
    bool ignitionOff = false;
};

}  // namespace Tolvex::Interfaces
