/// @file
/// The timers that exist at this moment. Not installed.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace Tolvex::Util {

/// Decides whether an expiry that the C library delivers still has a timer to go to.
///
/// The C library starts a thread for an expiry and hands it a bare address. By the time that thread
/// runs the timer may be destroyed, and another one may stand at its address. So timers are listed
/// here while they exist, with the time since when they expire and how often: when an expiry of an
/// earlier setting, or of an earlier timer at that address, may still be on its way, an expiry that
/// comes before the timer's own is due is that stray one, and is refused.
/// @par Thread safety
/// Thread-safe. A child of fork() begins with an empty list.
class LiveTimers
{
public:
    using Clock = std::chrono::steady_clock;

    /// The one list of the process. Never destroyed: expiries arrive while the process exits, too.
    static LiveTimers& Get();

    /// Lists a new timer. May throw std::bad_alloc.
    void Add(const void* timer);

    /// Takes a timer out. Expiries of it that come later are refused.
    void Remove(const void* timer);

    /// Calls set(), which arms the timer, and notes that it expires every period from now on; a
    /// period of 0 stands for never. No expiry is let in meanwhile.
    ///
    /// @return what set() returns; on false the timer goes on as before.
    template <typename Set>
    bool Arm(const void* timer, Clock::duration period, Set set);

    /// Notes that the timer does not expire any more.
    void Disarm(const void* timer);

    /// Lets an expiry in.
    ///
    /// @return a lock that keeps the timer from being destroyed while it is held, or none when the
    /// timer is gone or the expiry is not its own.
    std::unique_lock<std::mutex> Admit(const void* timer);

private:
    struct Entry
    {
        bool exists = true;               ///< false: kept for the strays alone
        Clock::time_point start{};        ///< since when the timer expires
        Clock::duration period{};         ///< 0: it does not
        std::int64_t admitted = 0;        ///< expiries let in since start
        Clock::time_point straysUntil{};  ///< strays are looked for until then
    };

    static constexpr std::size_t firstSweepSize = 64;

    explicit LiveTimers(LiveTimers* ofParent) : parents(ofParent) {}

    static LiveTimers* Make();
    static void MakeInChild();
    void NoteSetting(const void* timer, Clock::time_point start, Clock::duration period);
    static std::int64_t CountDue(const Entry& entry, Clock::time_point now);
    static void NoteStrays(Entry& entry, Clock::time_point now);
    void ForgetOld(Clock::time_point now);

    [[maybe_unused]] LiveTimers* parents;  ///< of a forked child: not used, but no leak either
    std::unordered_map<const void*, Entry> entries;
    std::size_t sweepSize = firstSweepSize;  ///< so many entries have the old ones looked for
    std::mutex mutex;  ///< guards entries and sweepSize; leaf, but for what set() of Arm() takes
};

template <typename Set>
bool LiveTimers::Arm(const void* timer, Clock::duration period, Set set)
{
    const std::lock_guard lock(mutex);
    const auto start = Clock::now();
    if (!set()) {
        return false;
    }
    NoteSetting(timer, start, period);
    return true;
}

}  // namespace Tolvex::Util
