// The timer's expiries, on the threads that the C library starts for them.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Util/Timer.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ThreadStack.h"
#include "tests/Support/TimerCalls.h"

namespace Tolvex::Util {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Support::ChildResult;
using Support::Eventually;
using Support::patience;
using Support::RunInChild;
using Support::ThreadStack;
using Support::TimerCalls;

constexpr int never = 60000;  // a period in ms that does not pass in these tests
constexpr int stackBytes = 16384;

/// The times of the calls. Shared with the callbacks, so a late call cannot use a destroyed object.
class CallTimes
{
public:
    void Note()
    {
        const std::lock_guard lock(mutex);
        times.push_back(Clock::now());
        changed.notify_all();
    }

    /// @return the times as soon as there are that many, or after the limit.
    std::vector<Clock::time_point> WaitFor(std::size_t count)
    {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, patience, [&] { return times.size() >= count; });
        return times;
    }

    std::size_t Count()
    {
        const std::lock_guard lock(mutex);
        return times.size();
    }

private:
    std::vector<Clock::time_point> times;
    std::mutex mutex;
    std::condition_variable changed;
};

std::function<void(Timer*)> Noting(const std::shared_ptr<CallTimes>& calls)
{
    return [calls](Timer*) { calls->Note(); };
}

/// The result of the first call; the results of other calls are dropped.
template <typename Result>
class FirstCall
{
public:
    void Set(Result result)
    {
        if (!isSet.exchange(true)) {
            promise.set_value(std::move(result));
        }
    }

    /// @return nothing if there is no call within the limit.
    std::optional<Result> Wait()
    {
        auto future = promise.get_future();
        if (future.wait_for(patience) != std::future_status::ready) {
            return std::nullopt;
        }
        return future.get();
    }

private:
    std::promise<Result> promise;
    std::atomic<bool> isSet = false;
};

/// A timer at an address that no timer had before. A late expiry of another test's timer would call
/// one at the same address early.
class TimerAtANewAddress
{
public:
    template <typename... Arguments>
    explicit TimerAtANewAddress(Arguments&&... arguments)
    {
        static auto* const places = new std::list<std::optional<Timer>>;
        timer = &places->emplace_back(std::in_place, std::forward<Arguments>(arguments)...);
    }
    ~TimerAtANewAddress() { timer->reset(); }

    TimerAtANewAddress(const TimerAtANewAddress&) = delete;
    TimerAtANewAddress& operator=(const TimerAtANewAddress&) = delete;

    Timer* operator->() { return &**timer; }

private:
    std::optional<Timer>* timer;
};

class TimerExpiryTest : public ::testing::Test
{
protected:
    TimerExpiryTest() { TimerCalls::Reset(); }

    /// @return whether the calls end, those included that have already begun. Calls that come every
    /// few milliseconds do not.
    bool CallsEnd() const
    {
        return Eventually([this] {
            const std::size_t count = calls->Count();
            std::this_thread::sleep_for(200ms);
            return calls->Count() == count;
        });
    }

    std::shared_ptr<CallTimes> calls = std::make_shared<CallTimes>();
};

// ------------------------------------------------------------------------------------ periods

TEST_F(TimerExpiryTest, TimerOf1500MillisecondsCallsAfterEachMultipleOfIt)
{
    const auto start = Clock::now();

    const TimerAtANewAddress timer(1500, Noting(calls), nullptr, stackBytes);

    const auto times = calls->WaitFor(2);
    ASSERT_GE(times.size(), 2U);
    EXPECT_GE(times[0] - start, 1500ms);
    EXPECT_GE(times[1] - start, 3000ms);
}

TEST_F(TimerExpiryTest, NoCallComesBeforeItsPeriodIsOver)
{
    constexpr std::size_t count = 50;
    const auto start = Clock::now();

    const TimerAtANewAddress timer(5, Noting(calls), nullptr, stackBytes);

    auto times = calls->WaitFor(count);
    ASSERT_GE(times.size(), count);
    std::sort(times.begin(), times.end());
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_GE(times[i] - start, (i + 1) * 5ms) << "call " << i;
    }
}

TEST_F(TimerExpiryTest, SlowerPeriodCountsFromTheMomentOfSetTime)
{
    auto slow = std::make_shared<CallTimes>();
    auto isSlow = std::make_shared<std::atomic<bool>>(false);
    TimerAtANewAddress timer(
        never,
        [slow, isSlow](Timer*) {
            if (isSlow->load()) {
                slow->Note();
            }
        },
        nullptr, stackBytes);

    isSlow->store(true);
    const auto start = Clock::now();
    ASSERT_TRUE(timer->SetTime(300));

    const auto times = slow->WaitFor(2);
    ASSERT_GE(times.size(), 2U);
    EXPECT_GE(times[0] - start, 300ms);
    EXPECT_GE(times[1] - start, 600ms);
}

TEST_F(TimerExpiryTest, SetTimeZeroStopsTheCallsAndSetTimeStartsThemAgain)
{
    Timer timer(2, Noting(calls), nullptr, stackBytes);
    ASSERT_GE(calls->WaitFor(3).size(), 3U);

    ASSERT_TRUE(timer.SetTime(0));
    EXPECT_TRUE(CallsEnd());
    const std::size_t count = calls->Count();

    ASSERT_TRUE(timer.SetTime(2));
    EXPECT_GE(calls->WaitFor(count + 3).size(), count + 3);
}

TEST_F(TimerExpiryTest, RemoveStopsTheCalls)
{
    Timer timer(2, Noting(calls), nullptr, stackBytes);
    ASSERT_GE(calls->WaitFor(3).size(), 3U);

    ASSERT_TRUE(timer.Remove());

    EXPECT_TRUE(CallsEnd());
}

TEST_F(TimerExpiryTest, CallbackStopsItsTimer)
{
    const Timer timer(
        2,
        [shared = calls](Timer* self) {
            self->SetTime(0);
            shared->Note();
        },
        nullptr, stackBytes);

    ASSERT_GE(calls->WaitFor(1).size(), 1U);

    EXPECT_TRUE(CallsEnd());
}

TEST_F(TimerExpiryTest, TimerCreatedAfterRemoveExpiresWithoutEffect)
{
    static std::atomic<int> delivered;
    delivered = 0;
    TimerCalls::Get().expiry = [](union sigval value) {
        EXPECT_EQ(value.sival_ptr, nullptr);
        Timer::CB(value);
        ++delivered;
    };
    TimerAtANewAddress timer(never, Noting(calls), nullptr, stackBytes);
    ASSERT_TRUE(timer->Remove());

    ASSERT_TRUE(timer->Create());
    ASSERT_TRUE(timer->SetTime(2));

    EXPECT_TRUE(Eventually([] { return delivered >= 3; }));
    EXPECT_EQ(calls->Count(), 0U);
}

TEST_F(TimerExpiryTest, TimerCreatedAnewCallsOnTheDefaultStack)
{
    auto size = std::make_shared<FirstCall<std::size_t>>();
    Timer timer(
        never, [size](Timer*) { size->Set(ThreadStack().Size()); }, nullptr, stackBytes);

    ASSERT_TRUE(timer.Create());
    ASSERT_TRUE(timer.SetTime(20));

    EXPECT_GT(size->Wait().value_or(0), static_cast<std::size_t>(stackBytes));
}

// ------------------------------------------------------------------------------------ threads

struct Thread
{
    Timer* timer;
    pthread_t handle;
    std::size_t stackSize;
    int detachState;
};

Thread DescribeSelf(Timer* timer)
{
    Thread self{timer, pthread_self(), ThreadStack().Size(), -1};
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getdetachstate(&attributes, &self.detachState);
        pthread_attr_destroy(&attributes);
    }
    return self;
}

TEST_F(TimerExpiryTest, CallbackGetsTheTimerOnADetachedThreadOfItsOwnWithTheStackAskedFor)
{
    // Larger than any stack that this program keeps for reuse, so that the size is exact.
    constexpr int ownStackBytes = 3 * 65536;
    auto first = std::make_shared<FirstCall<Thread>>();

    const Timer timer(
        20, [first](Timer* self) { first->Set(DescribeSelf(self)); }, nullptr, ownStackBytes);

    const std::optional<Thread> thread = first->Wait();
    ASSERT_TRUE(thread);
    EXPECT_EQ(thread->timer, &timer);
    EXPECT_FALSE(pthread_equal(thread->handle, pthread_self()));
    EXPECT_GE(thread->stackSize, static_cast<std::size_t>(ownStackBytes));
    EXPECT_LT(thread->stackSize, static_cast<std::size_t>(ownStackBytes) + 65536);
    EXPECT_EQ(thread->detachState, PTHREAD_CREATE_DETACHED);
}

TEST_F(TimerExpiryTest, RefusedStackSizeGivesThreadsOfTheDefaultSize)
{
    auto size = std::make_shared<FirstCall<std::size_t>>();

    const Timer timer(
        20, [size](Timer*) { size->Set(ThreadStack().Size()); }, nullptr, 100);

    EXPECT_GT(size->Wait().value_or(0), static_cast<std::size_t>(stackBytes));
}

TEST_F(TimerExpiryTest, CallsOverlapWhenOneOutlastsThePeriod)
{
    struct Meeting
    {
        std::mutex mutex;
        std::condition_variable changed;
        int inside = 0;
    };
    auto meeting = std::make_shared<Meeting>();
    auto met = std::make_shared<std::promise<void>>();
    std::future<void> done = met->get_future();
    Timer timer(
        5,
        [meeting, met](Timer*) {
            std::unique_lock lock(meeting->mutex);
            if (++meeting->inside == 3) {
                met->set_value();
            }
            meeting->changed.notify_all();
            meeting->changed.wait_for(lock, patience, [&] { return meeting->inside >= 3; });
        },
        nullptr, stackBytes);

    EXPECT_EQ(done.wait_for(patience), std::future_status::ready);
}

// -------------------------------------------------------------------------------- destruction

TEST_F(TimerExpiryTest, DestructorDoesNotWaitForACallThatRunsAndLeavesItItsCaptures)
{
    struct State
    {
        std::promise<void> entered;
        std::promise<void> mayGoOn;
        std::promise<std::string> result;
        std::string text = "captured text, longer than a small string holds";
        std::atomic<bool> first = true;
    };
    auto state = std::make_shared<State>();
    const std::weak_ptr<State> watched = state;
    auto entered = state->entered.get_future();
    auto result = state->result.get_future();
    auto* const goOn = &state->mayGoOn;
    auto timer = std::make_unique<Timer>(
        5,
        [held = std::move(state)](Timer*) {
            if (!held->first.exchange(false)) {
                return;
            }
            held->entered.set_value();
            held->mayGoOn.get_future().wait_for(patience);
            held->result.set_value(held->text);
        },
        nullptr, 65536);
    ASSERT_EQ(entered.wait_for(patience), std::future_status::ready);

    timer.reset();  // would hang here if it waited

    EXPECT_FALSE(watched.expired());
    goOn->set_value();
    ASSERT_EQ(result.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(result.get(), "captured text, longer than a small string holds");
    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
}

TEST_F(TimerExpiryTest, DestroyingUnderALockThatTheCallbackTakesDoesNotDeadlock)
{
    auto mutex = std::make_shared<std::mutex>();
    auto waiting = std::make_shared<std::atomic<int>>(0);
    auto timer = std::make_unique<Timer>(
        2,
        [mutex, waiting](Timer*) {
            ++*waiting;
            const std::lock_guard lock(*mutex);
        },
        nullptr, stackBytes);

    {
        const std::lock_guard lock(*mutex);
        ASSERT_TRUE(Eventually([&] { return waiting->load() >= 2; }));
        timer.reset();
    }

    EXPECT_EQ(timer, nullptr);
}

TEST_F(TimerExpiryTest, CallbackDestroysItsOwnTimer)
{
    struct State
    {
        std::atomic<bool> destroyed = false;
        std::string text = "captured text, longer than a small string holds";
    };
    auto state = std::make_shared<State>();
    const std::weak_ptr<State> watched = state;

    new Timer(
        2,
        [held = std::move(state)](Timer* self) {
            if (!held->destroyed.exchange(true)) {  // other calls overlap it
                delete self;
                held->text += "!";
            }
        },
        nullptr, stackBytes);

    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
}

TEST_F(TimerExpiryTest, ThreadThatACallbackEndsLetsGoOfTheCallable)
{
    auto state = std::make_shared<CallTimes>();
    const std::weak_ptr<CallTimes> watched = state;
    CallTimes* const seen = state.get();
    auto timer = std::make_unique<Timer>(
        20,
        [held = std::move(state)](Timer*) {
            held->Note();
            pthread_exit(nullptr);
        },
        nullptr, 65536);
    ASSERT_GE(seen->WaitFor(2).size(), 2U);

    timer.reset();

    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
}

// ------------------------------------------------------- expiries delivered later than they occur

/// Holds expiries on their threads, before the library sees them, until LetGo().
class HeldExpiries
{
public:
    HeldExpiries()
    {
        State().held = 0;
        State().passed = 0;
        State().holding = true;
        TimerCalls::Get().expiry = Hold;
    }

    ~HeldExpiries() { LetGo(); }

    HeldExpiries(const HeldExpiries&) = delete;
    HeldExpiries& operator=(const HeldExpiries&) = delete;

    bool WaitForOne() { return WaitFor(1); }

    bool WaitFor(int count)
    {
        return Eventually([count] { return State().held >= count; });
    }

    /// Delivers the expiries that are held, and returns when that is done.
    static bool LetGo()
    {
        State().holding = false;
        return Eventually([] { return State().passed == State().held; });
    }

    /// @return how many were delivered late.
    static std::size_t Passed() { return static_cast<std::size_t>(State().passed); }

private:
    struct Counts
    {
        std::atomic<bool> holding = true;
        std::atomic<int> held = 0;
        std::atomic<int> passed = 0;
    };

    static Counts& State()
    {
        static Counts counts;
        return counts;
    }

    static void Hold(union sigval value)
    {
        if (State().holding) {
            ++State().held;
            while (State().holding) {
                usleep(1000);
            }
            Timer::CB(value);
            ++State().passed;
            return;
        }
        Timer::CB(value);
    }
};

/// A place at which one timer is built after another.
class Place
{
public:
    ~Place() { Empty(); }

    Timer& Build(int milliseconds, std::function<void(Timer*)> work)
    {
        Empty();
        return timer.emplace(milliseconds, std::move(work), nullptr, stackBytes);
    }

    void Empty() { timer.reset(); }

private:
    std::optional<Timer> timer;
};

class LateExpiryTest : public TimerExpiryTest
{
protected:
    HeldExpiries expiries;
    Place place;
};

TEST_F(LateExpiryTest, OfADestroyedTimerIsDropped)
{
    place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitForOne());

    place.Empty();

    EXPECT_TRUE(expiries.LetGo());
    EXPECT_EQ(calls->Count(), 0U);
}

TEST_F(LateExpiryTest, CallsANewTimerAtTheSameAddressEarly)
{
    auto other = std::make_shared<CallTimes>();
    Timer& timer = place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitForOne());
    ASSERT_TRUE(timer.Remove());

    place.Build(never, Noting(other));

    EXPECT_TRUE(expiries.LetGo());
    EXPECT_EQ(calls->Count(), 0U);
    EXPECT_GE(other->Count(), expiries.Passed());
}

TEST_F(LateExpiryTest, DoesNotReachANewTimerThatWasBuiltBeforeTheOldOneWasDestroyed)
{
    auto other = std::make_shared<CallTimes>();
    place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitForOne());

    const TimerAtANewAddress next(never, Noting(other), nullptr, stackBytes);
    place.Empty();

    EXPECT_TRUE(expiries.LetGo());
    EXPECT_EQ(calls->Count(), 0U);
    EXPECT_EQ(other->Count(), 0U);
}

TEST_F(LateExpiryTest, CallsTheCallbackAfterRemove)
{
    Timer& timer = place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitForOne());

    ASSERT_TRUE(timer.Remove());

    EXPECT_TRUE(expiries.LetGo());
    EXPECT_GE(calls->Count(), expiries.Passed());
}

TEST_F(LateExpiryTest, CallsTheCallbackAfterSetTime)
{
    Timer& timer = place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitForOne());

    ASSERT_TRUE(timer.SetTime(0));

    EXPECT_TRUE(expiries.LetGo());
    EXPECT_GE(calls->Count(), expiries.Passed());
}

// A call by hand is never taken for a stale expiry of the first timer.
TEST_F(LateExpiryTest, CallByHandAlwaysCallsATimerAtTheAddressOfOneThatLostExpiries)
{
    auto other = std::make_shared<CallTimes>();
    place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitFor(3));
    place.Empty();
    EXPECT_TRUE(expiries.LetGo());
    union sigval value = {};
    value.sival_ptr = &place.Build(never, Noting(other));

    for (std::size_t call = 1; call <= 3; ++call) {
        Timer::CB(value);
        EXPECT_GE(other->Count(), call);
    }
}

TEST_F(LateExpiryTest, IsDeliveredAfterASetTimeThatFails)
{
    Timer& timer = place.Build(2, Noting(calls));
    ASSERT_TRUE(expiries.WaitForOne());

    ASSERT_FALSE(timer.SetTime(-5));

    EXPECT_TRUE(expiries.LetGo());
    EXPECT_GE(calls->Count(), 1U);
}

// --------------------------------------------------------------------------- end of the process

TEST_F(TimerExpiryTest, ProcessExitsCleanlyWhileTimersFire)
{
    const ChildResult result = RunInChild([] {
        static Timer global(
            1, [](Timer*) {}, nullptr, stackBytes);
        for (int i = 0; i < 8; ++i) {
            new Timer(
                1, [text = std::string(100, 'x')](Timer*) {}, nullptr, stackBytes);
        }
        std::this_thread::sleep_for(50ms);
        std::exit(0);
        return 1;
    });

    EXPECT_TRUE(result.Succeeded()) << result.status << result.output;
}

// One expiry only: two that throw at once would mix their messages.
constexpr int deathPeriod = 500;

using TimerDeathTest = TimerExpiryTest;

TEST_F(TimerDeathTest, ExpiryOfAnEmptyCallbackEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const Timer timer(deathPeriod, nullptr, nullptr, 65536);
            std::this_thread::sleep_for(patience);
        },
        "bad_function_call");
}

TEST_F(TimerDeathTest, ExceptionThatLeavesTheCallbackEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const Timer timer(
                deathPeriod, [](Timer*) { throw std::runtime_error("left the callback"); }, nullptr,
                65536);
            std::this_thread::sleep_for(patience);
        },
        "left the callback");
}

}  // namespace
}  // namespace Tolvex::Util
