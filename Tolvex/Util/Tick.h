#pragma once

#include <cstdint>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Thread that counts the seconds since it was created: a cheap clock that is never set.
///
/// Created by the first Start() or GetInstance(); the library never deletes it. The count falls
/// behind by the time that each pass takes, and is never reset. The thread runs no signal handlers,
/// except those of faults. A child of fork() does not have the thread, so there the count stays.
/// @code
/// const std::uint64_t start = Util::Tick::GetInstance()->GetTickCount();
/// std::this_thread::sleep_for(std::chrono::seconds(2));
/// const std::uint64_t seconds = Util::Tick::GetInstance()->GetTickCount() - start;
/// @endcode
/// @par Errors
/// No error is reported. If the thread cannot be created, the count stays 0.
/// @par Thread safety
/// Thread-safe, first calls included.
class TOLVEX_EXPORT Tick : private Interfaces::IThread
{
public:
    /// Creates the instance if there is none. The calling thread is not cancelled meanwhile.
    static void Start();

    /// @return the instance, created by the first call; never null. Do not delete it.
    static Tick* GetInstance();

    /// Starts counting at once, on a thread of its own with the name "Tick". The calling thread
    /// runs no signal handlers meanwhile.
    Tick();

    /// Stops the thread; blocks until the current second is over.
    ~Tick() override;

    /// @return whole seconds counted so far.
    std::uint64_t GetTickCount() const { return Base::LoadShared(tickCount); }

private:
    /// Selects the constructor that starts no thread.
    enum class Idle
    {
    };

    explicit Tick(Idle /*notStarted*/);

    void StartCounting();
    void Run() override;

    std::uint64_t tickCount = 0;  ///< shared: passes of one second; written by the thread alone

    static Tick* instance;  ///< shared: null until Start()
};

}  // namespace Tolvex::Util
