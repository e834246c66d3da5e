#pragma once

#include <cstdint>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Thread that counts the seconds since it was created: a cheap, never stepped sense of time.
///
/// Created by the first Start() or GetInstance(), and there until the process ends; the library
/// never deletes it. The count drifts by the time that a pass takes, and is never reset.
/// A child of fork() has no such thread: there the count stays.
/// @code
/// const std::uint64_t start = Util::Tick::GetInstance()->GetTickCount();
/// std::this_thread::sleep_for(std::chrono::seconds(2));
/// const std::uint64_t seconds = Util::Tick::GetInstance()->GetTickCount() - start;
/// @endcode
/// @par Errors
/// None; without a thread the count stays 0.
/// @par Thread safety
/// Thread-safe, first calls included.
class TOLVEX_EXPORT Tick : private Interfaces::IThread
{
public:
    /// Creates the instance if there is none; not cancelled meanwhile.
    static void Start();

    /// @return the instance, created by the first call; never null, never to be deleted.
    static Tick* GetInstance();

    /// Starts counting at once, on a thread of its own with the name "Tick".
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

    void Run() override;

    std::uint64_t tickCount = 0;  ///< shared; passes of one second; written by the thread alone

    static Tick* instance;  ///< shared; null until Start()
};

}  // namespace Tolvex::Util
