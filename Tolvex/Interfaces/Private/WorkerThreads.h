/// @file
/// The threads that are at work on one thread object. Not installed.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <pthread.h>
#include <vector>

#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Interfaces {

/// The threads of one IThread that were created and have not left it yet.
///
/// The object and each of its threads hold it together, so a thread on its way out can ask here
/// whether the object is still there. An object has more than one thread only for a moment: after a
/// Cancel() or Abort() that was followed by Start() before the old thread had ended.
///
/// While the mutex is held no thread of the roll can end, so handles in it may be used.
class ThreadRoll
{
public:
    using Number = std::uint32_t;
    static constexpr Number noNumber = 0;  ///< of a thread that is not on the roll

    ThreadRoll();

    /// Guards the roll, and each change from one thread of the object to the next. Held for a
    /// few statements, or for the creation of a thread; nothing that is called under it blocks.
    std::mutex mutex;

    // The following are called with the mutex held.

    /// Makes all threads on the roll old ones. @return the number of the thread to be created.
    Number NextNumber();
    void Enter(pthread_t handle, Number number);
    void Leave(Number number);
    void MarkAborted(pthread_t handle);
    bool IsAborted(Number number) const;
    void MarkObjectGone() { objectGone = true; }
    bool IsObjectGone() const { return objectGone; }

    // The following take the mutex themselves, or need none.

    /// @return the calling thread's number.
    Number OwnNumber();

    /// @return false for a thread after which another was created. Takes no lock.
    bool IsNewest(Number number) const
    {
        return number == noNumber || number == Base::LoadShared(newest);
    }

    enum class Others
    {
        All,
        NotAborted
    };

    /// @return whether threads besides the calling one are on the roll.
    bool HasOthers(Others which);

    /// Blocks until no thread but the calling one is on the roll, or until the limit is over.
    void AwaitOthers(std::chrono::milliseconds limit);

    /// Blocks until no thread is left that is older than this one, or until the limit is over.
    void AwaitOlder(Number number, std::chrono::milliseconds limit);

    /// Blocks until every thread but the calling one is aborted or has left.
    void AwaitOthersNotAborted();

private:
    struct Entry
    {
        pthread_t handle;
        Number number;
        bool aborted;
    };

    bool HasOlder(Number number);

    std::vector<Entry> threads;  ///< oldest first
    Number newest = noNumber;    ///< shared
    bool objectGone = false;
};

}  // namespace Tolvex::Interfaces
