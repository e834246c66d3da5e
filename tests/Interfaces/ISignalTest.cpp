#include "Tolvex/Interfaces/ISignal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/ISemaphore.h"

#include "tests/Support/CountingNew.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"

using namespace std::chrono_literals;

namespace {

std::atomic<bool> refuseThreads = false;  ///< no thread can be created while it is true
std::atomic<bool> slowCreation = false;   ///< creating a thread is slow while it is true
std::atomic<int> creations = 0;           ///< threads that are being created now
std::atomic<int> mostCreations = 0;       ///< the most at the same time

}  // namespace

// Requests a stack that no machine has, so that the creation of the thread really fails.
extern "C" int pthread_attr_setstacksize(pthread_attr_t* attributes, std::size_t bytes)
{
    static auto* const original =
        Tolvex::Support::RealFunction<decltype(pthread_attr_setstacksize)>(
            "pthread_attr_setstacksize");
    if (slowCreation) {
        mostCreations = std::max<int>(mostCreations, ++creations);
        std::this_thread::sleep_for(1ms);
        --creations;
    }
    constexpr std::size_t impossible = SIZE_MAX / 16 * 15 & ~std::size_t{0xFFFF};
    return original(attributes, refuseThreads ? impossible : bytes);
}

namespace Tolvex::Interfaces {
namespace {

using Support::Eventually;
using Support::patience;

/// @return how many objects were made with operator new and are not deleted yet.
std::size_t LiveObjects()
{
    return Support::allocationCount - Support::releaseCount;
}

/// Counts the threads that have called Enter() and have not ended yet.
class LiveThreads
{
public:
    /// Counts the calling thread until its thread-local objects are destroyed.
    static void Enter(const std::shared_ptr<std::atomic<int>>& count)
    {
        thread_local Leaver leaver;
        if (leaver.count == nullptr) {
            ++*count;
            leaver.count = count;
        }
    }

private:
    struct Leaver
    {
        Leaver() = default;
        Leaver(const Leaver&) = delete;
        Leaver& operator=(const Leaver&) = delete;
        ~Leaver()
        {
            if (count != nullptr) {
                --*count;
            }
        }
        std::shared_ptr<std::atomic<int>> count;
    };
};

/// An ISignal over a queue. Destroyed only after its listener and its handlers have ended.
class EventQueue final : public ISignal
{
public:
    using Handler = std::function<void(void*)>;

    explicit EventQueue(
        Handler action = [](void*) {}, const std::string& name = "")
        : handler(std::move(action))
    {
        signalName = name;
    }

    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    ~EventQueue() override
    {
        Stop();
        EXPECT_TRUE(Eventually([this] { return *listeners == 0; }));
        EXPECT_TRUE(Eventually([this] { return ended + dropped == delivered; }));
    }

    void Post(void* data)
    {
        const std::lock_guard lock(queueMutex);
        queue.push_back(data);
        queueChanged.notify_one();
    }

    bool WaitSignal(void** data) override
    {
        LiveThreads::Enter(listeners);
        if (++waits == 1 && onFirstWait) {
            onFirstWait();
        }
        presetWasNull = presetWasNull && *data == nullptr;

        std::unique_lock lock(queueMutex);
        if (!queueChanged.wait_for(lock, 5ms, [this] { return !queue.empty(); })) {
            *data = this;  // no handler may see it
            return false;
        }
        *data = queue.front();
        queue.pop_front();
        ++delivered;
        return true;
    }

    void FireSignal(void* data) override
    {
        // Counts even if the handler is cancelled.
        const std::unique_ptr<std::atomic<int>, void (*)(std::atomic<int>*)> counter(
            &ended, [](std::atomic<int>* count) { ++*count; });
        handler(data);
    }

    bool IsRunning() const { return Base::LoadShared(running); }

    std::atomic<int> waits = 0;      ///< calls of WaitSignal()
    std::atomic<int> delivered = 0;  ///< events that the listener received
    std::atomic<int> ended = 0;      ///< handlers that have ended
    std::atomic<int> dropped = 0;    ///< events that the test expects to be dropped
    std::atomic<bool> presetWasNull = true;
    const std::shared_ptr<std::atomic<int>> listeners = std::make_shared<std::atomic<int>>(0);
    std::function<void()> onFirstWait;  ///< called on the listener thread; set before Start()

private:
    Handler handler;
    std::deque<void*> queue;
    std::mutex queueMutex;
    std::condition_variable queueChanged;
};

/// An ISignal whose two operations come from the test. It starts no thread by itself.
class Scripted : public ISignal
{
public:
    bool WaitSignal(void** data) override { return wait(data); }
    void FireSignal(void* data) override { fire(data); }

    using ISignal::running;

    std::function<bool(void**)> wait = [](void**) { return false; };
    std::function<void(void*)> fire = [](void*) {};
};

struct ThreadFacts
{
    std::string name;
    std::size_t stackBytes = 0;
    bool detached = false;
    pthread_t handle = 0;
};

/// Waits until the calling thread is detached, then returns its attributes.
ThreadFacts GetOwnFacts()
{
    ThreadFacts facts;
    facts.handle = pthread_self();
    facts.detached = Eventually([&facts] {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        int state = 0;
        pthread_attr_getdetachstate(&attributes, &state);
        pthread_attr_getstacksize(&attributes, &facts.stackBytes);
        pthread_attr_destroy(&attributes);
        return state == PTHREAD_CREATE_DETACHED;
    });
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    facts.name = name.data();
    return facts;
}

/// The requested stack, within what the C library and the sanitizers add to it or use of it. A
/// thread without a requested size has 8 MiB.
void ExpectWorkerStack(std::size_t bytes)
{
    EXPECT_GE(bytes, Base::workerStackBytes - 65536);
    EXPECT_LE(bytes, 4 * Base::workerStackBytes);
}

void* ToData(std::uintptr_t number)
{
    return reinterpret_cast<void*>(number);
}

// ---------------------------------------------------------------------------------- the interface

template <typename Method>
std::ptrdiff_t GetTableOffset(Method method)
{
    // Offset in the virtual table, on some processors with a mark in the lowest bit.
    std::ptrdiff_t value = 0;
    std::memcpy(&value, &method, sizeof value);
    return value & ~std::ptrdiff_t{1};
}

TEST(ISignalTest, VirtualOperationsStandBehindTheDestructorInOrder)
{
    // The destructor takes two entries.
    constexpr std::ptrdiff_t entry = sizeof(void*);

    EXPECT_EQ(GetTableOffset(&ISignal::WaitSignal), 2 * entry);
    EXPECT_EQ(GetTableOffset(&ISignal::FireSignal), 3 * entry);
    EXPECT_EQ(GetTableOffset(&ISignal::ISignalDelegate::InvokeSignal), 2 * entry);
}

TEST(ISignalTest, IsAbstractAndCannotBeCopied)
{
    EXPECT_TRUE(std::is_abstract_v<ISignal>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ISignal>);
    EXPECT_FALSE(std::is_copy_constructible_v<Scripted>);
    EXPECT_FALSE(std::is_copy_assignable_v<Scripted>);
}

TEST(ISignalTest, NewObjectIsNotRunningAndHasNoName)
{
    struct Bare : Scripted
    {
        using ISignal::signalName;
    };
    const Bare bare;

    EXPECT_FALSE(bare.running);
    EXPECT_EQ(bare.signalName, "");
}

TEST(ISignalTest, ObjectThatWasNeverStartedIsDestroyedThroughTheBase)
{
    std::unique_ptr<ISignal> signal = std::make_unique<Scripted>();

    signal.reset();

    EXPECT_EQ(signal, nullptr);
}

// ------------------------------------------------------------------------------------- listener

TEST(ISignalTest, ListenerIsADetachedThreadWithTheNameAndTheWorkerStack)
{
    std::promise<ThreadFacts> facts;
    EventQueue events([](void*) {}, "events-listener");
    events.onFirstWait = [&facts] { facts.set_value(GetOwnFacts()); };

    events.Start();

    const ThreadFacts found = facts.get_future().get();
    EXPECT_EQ(found.name, "events-listener");
    EXPECT_TRUE(found.detached);
    ExpectWorkerStack(found.stackBytes);
    EXPECT_EQ(pthread_equal(found.handle, pthread_self()), 0);
}

/// @return the name of a listener's thread that a thread named "creator" starts.
std::string NameOfListener(const std::string& signalName)
{
    std::promise<ThreadFacts> facts;
    EventQueue events([](void*) {}, signalName);
    events.onFirstWait = [&facts] { facts.set_value(GetOwnFacts()); };

    std::thread creator([&events] {
        pthread_setname_np(pthread_self(), "creator");
        events.Start();
    });
    creator.join();
    return facts.get_future().get().name;
}

TEST(ISignalTest, EmptyNameLeavesTheListenerWithTheNameOfItsCreator)
{
    EXPECT_EQ(NameOfListener(""), "creator");
}

TEST(ISignalTest, NameOf16CharactersLeavesTheListenerUnnamedButRunning)
{
    EXPECT_EQ(NameOfListener("sixteen-letters!"), "creator");
}

TEST(ISignalTest, SecondStartWhileRunningStartsNoSecondListener)
{
    EventQueue events;
    events.Start();
    ASSERT_TRUE(Eventually([&events] { return events.waits > 0; }));

    events.Start();

    // Within ten rounds of the first listener a second one would have been noticed.
    const int before = events.waits;
    ASSERT_TRUE(Eventually([&events, before] { return events.waits >= before + 10; }));
    EXPECT_EQ(*events.listeners, 1);
}

TEST(ISignalTest, StartAfterStopDoesNothing)
{
    EventQueue events;
    events.Start();
    ASSERT_TRUE(Eventually([&events] { return events.waits > 0; }));
    events.Stop();
    ASSERT_TRUE(Eventually([&events] { return *events.listeners == 0; }));

    events.Start();

    EXPECT_FALSE(events.IsRunning());
    EXPECT_EQ(*events.listeners, 0);
}

TEST(ISignalTest, StartWithoutAThreadLeavesTheObjectRunningAndCanBeTriedAgainAfterStop)
{
    EventQueue events;
    refuseThreads = true;
    events.Start();
    refuseThreads = false;
    EXPECT_TRUE(events.IsRunning());

    events.Start();  // still counts as running
    EXPECT_EQ(events.waits, 0);
    events.Stop();
    events.Start();

    EXPECT_TRUE(Eventually([&events] { return events.waits > 0; }));
}

TEST(ISignalTest, StopMakesTheListenerReturnAfterItsCurrentWait)
{
    EventQueue events;
    events.Start();
    ASSERT_TRUE(Eventually([&events] { return events.waits > 0; }));

    events.Stop();

    EXPECT_FALSE(events.IsRunning());
    EXPECT_TRUE(Eventually([&events] { return *events.listeners == 0; }));
}

TEST(ISignalTest, StopNeitherWakesNorAwaitsTheListener)
{
    std::promise<void> waiting;
    std::promise<void> released;
    EventQueue events;
    events.onFirstWait = [&] {
        waiting.set_value();
        released.get_future().wait_for(patience);
    };
    events.Start();
    ASSERT_EQ(waiting.get_future().wait_for(patience), std::future_status::ready);

    events.Stop();

    EXPECT_EQ(*events.listeners, 1);
    released.set_value();
    EXPECT_TRUE(Eventually([&events] { return *events.listeners == 0; }));
}

TEST(ISignalTest, StopOnAnObjectThatNeverRanDoesNothing)
{
    EventQueue events;

    events.Stop();

    EXPECT_FALSE(events.IsRunning());
}

TEST(ISignalTest, RunThreadOfAStoppedObjectReturnsWithoutWaiting)
{
    EventQueue events;

    events.RunThread();

    EXPECT_EQ(events.waits, 0);
}

TEST(ISignalTest, RunPosixThreadRunsTheLoopAndReturnsNull)
{
    Scripted signal;
    int waits = 0;
    signal.wait = [&](void**) {
        ++waits;
        if (waits == 3) {
            signal.Stop();
        }
        return false;
    };
    Base::StoreShared(signal.running, true);

    void* const result = ISignal::RunPosixThread(&signal);

    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(waits, 3);
}

TEST(ISignalTest, DataIsPresetToNullForEveryWait)
{
    EventQueue events;
    events.Start();
    events.Post(ToData(1));
    events.Post(ToData(2));

    ASSERT_TRUE(Eventually([&events] { return events.ended == 2 && events.waits > 4; }));

    EXPECT_TRUE(events.presetWasNull);
}

TEST(ISignalTest, WaitThatReturnsFalseCreatesNoHandlerAndIsRepeated)
{
    std::atomic<int> handled = 0;
    EventQueue events([&handled](void*) { ++handled; });

    events.Start();

    ASSERT_TRUE(Eventually([&events] { return events.waits >= 20; }));
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(events.ended, 0);
}

// --------------------------------------------------------------------------------------- handlers

TEST(ISignalTest, EventReachesFireSignalWithItsDataOnAThreadOfItsOwn)
{
    std::promise<std::pair<void*, ThreadFacts>> event;
    EventQueue events([&event](void* data) { event.set_value({data, GetOwnFacts()}); }, "listener");
    std::promise<ThreadFacts> listener;
    events.onFirstWait = [&listener] { listener.set_value(GetOwnFacts()); };
    events.Start();

    events.Post(ToData(42));

    const auto [data, facts] = event.get_future().get();
    EXPECT_EQ(data, ToData(42));
    EXPECT_TRUE(facts.detached);
    ExpectWorkerStack(facts.stackBytes);
    EXPECT_EQ(pthread_equal(facts.handle, listener.get_future().get().handle), 0);
}

TEST(ISignalTest, EventWithoutDataIsHandledWithNull)
{
    std::promise<void*> event;
    EventQueue events([&event](void* data) { event.set_value(data); });
    events.Start();

    events.Post(nullptr);

    EXPECT_EQ(event.get_future().get(), nullptr);
}

TEST(ISignalTest, EventThatComesTogetherWithStopIsStillHandled)
{
    Scripted signal;
    std::promise<void*> event;
    int waits = 0;
    signal.wait = [&](void** data) {
        ++waits;
        signal.Stop();
        *data = ToData(7);
        return true;
    };
    signal.fire = [&event](void* data) { event.set_value(data); };
    Base::StoreShared(signal.running, true);

    signal.RunThread();

    EXPECT_EQ(event.get_future().get(), ToData(7));
    EXPECT_EQ(waits, 1);
}

TEST(ISignalTest, SlowHandlerDelaysNeitherTheListenerNorTheNextHandler)
{
    std::promise<void> second;
    const std::shared_future<void> secondHandled = second.get_future().share();
    std::atomic<bool> overlapped = false;
    EventQueue events([&](void* data) {
        if (data == ToData(2)) {
            second.set_value();
        } else {
            overlapped = secondHandled.wait_for(patience) == std::future_status::ready;
        }
    });
    events.Start();

    events.Post(ToData(1));
    events.Post(ToData(2));

    ASSERT_TRUE(Eventually([&events] { return events.ended == 2; }));
    EXPECT_TRUE(overlapped);
}

TEST(ISignalTest, EventWithoutAThreadIsDroppedAndTheListenerContinues)
{
    std::mutex mutex;
    std::vector<void*> handled;
    EventQueue events([&](void* data) {
        const std::lock_guard lock(mutex);
        handled.push_back(data);
    });
    events.Start();
    ASSERT_TRUE(Eventually([&events] { return events.waits > 0; }));

    refuseThreads = true;
    events.Post(ToData(1));
    EXPECT_TRUE(Eventually([&events] { return events.delivered == 1; }));
    const int waits = events.waits;
    EXPECT_TRUE(Eventually([&events, waits] { return events.waits > waits; }));
    refuseThreads = false;
    events.dropped = 1;
    events.Post(ToData(2));

    EXPECT_TRUE(Eventually([&events] { return events.ended == 1; }));
    const std::lock_guard lock(mutex);
    EXPECT_EQ(handled, std::vector<void*>{ToData(2)});
}

TEST(ISignalTest, EventWithoutMemoryForItsHandlerIsDroppedAndTheListenerContinues)
{
    Scripted signal;
    std::optional<Support::AllocationBudget> noMemory;
    int waits = 0;
    std::atomic<int> handled = 0;
    signal.wait = [&](void**) {
        if (++waits == 1) {
            noMemory.emplace(0);
        } else {
            noMemory.reset();
            signal.Stop();
        }
        return true;
    };
    signal.fire = [&](void*) { ++handled; };
    Base::StoreShared(signal.running, true);

    signal.RunThread();

    EXPECT_TRUE(Eventually([&] { return handled == 1; }));
    EXPECT_EQ(waits, 2);
}

TEST(ISignalTest, HandlerThreadsAreCreatedOneAtATime)
{
    constexpr int eventCount = 40;
    Scripted signal;
    std::atomic<int> waits = 0;
    std::atomic<int> handled = 0;
    signal.wait = [&](void**) {
        if (++waits < eventCount) {
            return true;
        }
        signal.Stop();
        return false;
    };
    signal.fire = [&](void*) { ++handled; };
    Base::StoreShared(signal.running, true);
    const std::size_t before = LiveObjects();
    mostCreations = 0;
    slowCreation = true;

    std::thread second([&signal] { signal.RunThread(); });
    signal.RunThread();
    second.join();

    slowCreation = false;
    EXPECT_TRUE(Eventually([&] { return handled == eventCount - 1; }));
    EXPECT_EQ(mostCreations, 1);
    // The last handler deletes its record after that. The next test counts objects.
    EXPECT_TRUE(Eventually([&] { return LiveObjects() <= before; }));
}

TEST(ISignalTest, SignalFirePosixHandlesTheEventDeletesTheRecordAndReturnsNull)
{
    struct Record
    {
        ISignal* signal;
        void* data;
    };
    Scripted signal;
    void* handled = nullptr;
    signal.fire = [&handled](void* data) { handled = data; };
    const std::size_t before = LiveObjects();
    auto* const record = new Record{&signal, ToData(9)};

    void* const result = ISignal::SignalFirePosix(record);

    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(handled, ToData(9));
    EXPECT_EQ(LiveObjects(), before);
}

/// Gets one event, whose handler ends its thread as the test wants. No local objects:
/// the address sanitizer does not follow stack frames that are unwound by a cancellation.
class OneEvent final : public ISignal
{
public:
    explicit OneEvent(void (*action)()) : ending(action) {}

    void RunListener()
    {
        Base::StoreShared(running, true);
        RunThread();
    }

    bool WaitSignal(void** /*data*/) override
    {
        Stop();
        return true;
    }

    void FireSignal(void* /*data*/) override
    {
        ++fired;
        ending();
    }

    std::atomic<int> fired = 0;

private:
    void (*ending)();
};

void CancelOwnThread()
{
    pthread_cancel(pthread_self());
    pthread_testcancel();
}

void EndOwnThread()
{
    pthread_exit(nullptr);
}

/// Waits until the record of the one event is deleted.
void ExpectRecordFreed(void (*ending)(), int expectedHandlers)
{
    OneEvent signal(ending);
    const std::size_t before = LiveObjects();

    signal.RunListener();

    EXPECT_TRUE(
        Eventually([&] { return signal.fired == expectedHandlers && LiveObjects() == before; }));
}

TEST(ISignalTest, RecordIsFreedWhenTheHandlerReturns)
{
    ExpectRecordFreed([] {}, 1);
}

TEST(ISignalTest, RecordIsFreedWhenTheHandlerIsCancelled)
{
    ExpectRecordFreed(CancelOwnThread, 1);
}

TEST(ISignalTest, RecordIsFreedWhenTheHandlerEndsItsThread)
{
    ExpectRecordFreed(EndOwnThread, 1);
}

TEST(ISignalTest, RecordIsFreedWhenNoThreadCanBeCreated)
{
    refuseThreads = true;
    ExpectRecordFreed([] {}, 0);
    refuseThreads = false;
}

/// Gets one event, whose handler does not touch the object.
class OneEventForOthers final : public ISignal
{
public:
    explicit OneEventForOthers(std::function<void()>& action) : handler(action) {}

    void RunListener()
    {
        Base::StoreShared(running, true);
        RunThread();
    }

    bool WaitSignal(void** data) override
    {
        Stop();
        *data = &handler;
        return true;
    }

    void FireSignal(void* data) override { (*static_cast<std::function<void()>*>(data))(); }

private:
    std::function<void()>& handler;
};

TEST(ISignalTest, DestructorDoesNotWaitForAHandlerThatRuns)
{
    std::promise<void> begun;
    std::promise<void> destroyed;
    std::promise<bool> outlived;
    std::function<void()> handler = [&] {
        begun.set_value();
        const auto status = destroyed.get_future().wait_for(patience);
        outlived.set_value(status == std::future_status::ready);
    };
    auto signal = std::make_unique<OneEventForOthers>(handler);
    signal->RunListener();
    ASSERT_EQ(begun.get_future().wait_for(patience), std::future_status::ready);

    signal.reset();
    destroyed.set_value();

    EXPECT_TRUE(outlived.get_future().get());
}

/// Lets threads pass only in groups: a thread passes when its whole group has arrived.
///
/// More threads than one group may arrive at once, which std::barrier forbids: it then sometimes
/// hangs.
class GroupGate
{
public:
    explicit GroupGate(int threads) : groupSize(threads) {}

    void Pass()
    {
        std::unique_lock lock(mutex);
        const int group = arrived++ / groupSize;
        if (arrived % groupSize == 0) {
            complete.notify_all();
        }
        complete.wait(lock, [this, group] { return arrived >= (group + 1) * groupSize; });
    }

private:
    int groupSize;
    int arrived = 0;  ///< threads that have called Pass() so far
    std::mutex mutex;
    std::condition_variable complete;
};

TEST(ISignalTest, TenThousandEventsThroughOverlappingHandlersAreEachHandledOnce)
{
    constexpr int group = 8;
    constexpr std::uintptr_t eventCount = Tolvex::Support::isEmulated ? 800 : 10000;
    static_assert(eventCount % group == 0);
    std::vector<std::atomic<int>> handled(eventCount);
    // Handlers end only in groups, so each group of eight runs at the same time.
    GroupGate gate(group);
    ISemaphore window(32);
    EventQueue events([&](void* data) {
        gate.Pass();
        ++handled[reinterpret_cast<std::uintptr_t>(data)];
        window.Notify();
    });
    events.Start();

    for (std::uintptr_t i = 0; i < eventCount; ++i) {
        window.Wait();
        events.Post(ToData(i));
    }

    ASSERT_TRUE(
        Eventually([&events] { return static_cast<std::uintptr_t>(events.ended) == eventCount; }));
    for (const std::atomic<int>& count : handled) {
        EXPECT_EQ(count, 1);
    }
}

// -------------------------------------------------------------------------------------- observers

/// Records its name and its arguments, then does what the test wants.
class Observer : public ISignal::ISignalDelegate
{
public:
    Observer(std::string& log, char letter) : calls(log), name(letter) {}

    void InvokeSignal(ISignal* signal, void* data) override
    {
        calls += name;
        lastSignal = signal;
        lastData = data;
        if (action) {
            action();
        }
    }

    std::function<void()> action;
    ISignal* lastSignal = nullptr;
    void* lastData = nullptr;

private:
    std::string& calls;
    char name;
};

class ISignalDelegateTest : public testing::Test
{
protected:
    void SetUp() override { Base::StoreShared(signal.running, true); }

    void AddAll()
    {
        signal.AddCallback(&a);
        signal.AddCallback(&b);
        signal.AddCallback(&c);
    }

    std::string CallsOfNextWalk()
    {
        calls.clear();
        signal.DoCallback(nullptr);
        return calls;
    }

    Scripted signal;
    std::string calls;
    Observer a{calls, 'a'};
    Observer b{calls, 'b'};
    Observer c{calls, 'c'};
    Observer d{calls, 'd'};
};

TEST_F(ISignalDelegateTest, WalkCallsAllInTheOrderOfRegistrationWithTheSignalAndTheData)
{
    AddAll();

    signal.DoCallback(ToData(5));

    EXPECT_EQ(calls, "abc");
    EXPECT_EQ(b.lastSignal, &signal);
    EXPECT_EQ(b.lastData, ToData(5));
}

TEST_F(ISignalDelegateTest, StoppedObjectCallsNoDelegate)
{
    AddAll();
    signal.Stop();

    EXPECT_EQ(CallsOfNextWalk(), "");
}

TEST_F(ISignalDelegateTest, EmptyListCallsNoDelegate)
{
    EXPECT_EQ(CallsOfNextWalk(), "");
}

TEST_F(ISignalDelegateTest, StopDuringTheWalkDoesNotCutItShort)
{
    AddAll();
    a.action = [this] { signal.Stop(); };

    EXPECT_EQ(CallsOfNextWalk(), "abc");
    EXPECT_EQ(CallsOfNextWalk(), "");
}

TEST_F(ISignalDelegateTest, ObserverThatIsAddedTwiceIsCalledOnceAndRemovedAtOnce)
{
    signal.AddCallback(&a);
    signal.AddCallback(&b);
    signal.AddCallback(&a);
    EXPECT_EQ(CallsOfNextWalk(), "ab");

    signal.RemoveCallback(&a);

    EXPECT_EQ(CallsOfNextWalk(), "b");
}

TEST_F(ISignalDelegateTest, RemovingKeepsTheOrderOfTheOthers)
{
    AddAll();

    signal.RemoveCallback(&b);

    EXPECT_EQ(CallsOfNextWalk(), "ac");
}

TEST_F(ISignalDelegateTest, ObserverThatComesBackStandsAtTheEnd)
{
    AddAll();

    signal.RemoveCallback(&a);
    signal.AddCallback(&a);

    EXPECT_EQ(CallsOfNextWalk(), "bca");
}

TEST_F(ISignalDelegateTest, UnknownObserverAndNullAreIgnoredWhenRemoved)
{
    signal.AddCallback(&a);

    signal.RemoveCallback(&b);
    signal.RemoveCallback(nullptr);

    EXPECT_EQ(CallsOfNextWalk(), "a");
}

TEST_F(ISignalDelegateTest, NullEntryIsSkipped)
{
    signal.AddCallback(&a);
    signal.AddCallback(nullptr);
    signal.AddCallback(&b);

    EXPECT_EQ(CallsOfNextWalk(), "ab");
}

TEST_F(ISignalDelegateTest, ObserverThatRemovesItselfMakesTheWalkSkipTheNext)
{
    AddAll();
    a.action = [this] { signal.RemoveCallback(&a); };

    EXPECT_EQ(CallsOfNextWalk(), "ac");
    EXPECT_EQ(CallsOfNextWalk(), "bc");
}

TEST_F(ISignalDelegateTest, LastObserverMayRemoveItself)
{
    AddAll();
    c.action = [this] { signal.RemoveCallback(&c); };

    EXPECT_EQ(CallsOfNextWalk(), "abc");
    EXPECT_EQ(CallsOfNextWalk(), "ab");
}

TEST_F(ISignalDelegateTest, ObserverThatRemovesALaterOneKeepsItFromBeingCalled)
{
    AddAll();
    a.action = [this] { signal.RemoveCallback(&c); };

    EXPECT_EQ(CallsOfNextWalk(), "ab");
}

TEST_F(ISignalDelegateTest, ObserverThatRemovesAllEndsTheWalk)
{
    AddAll();
    b.action = [this] {
        signal.RemoveCallback(&a);
        signal.RemoveCallback(&b);
        signal.RemoveCallback(&c);
    };

    EXPECT_EQ(CallsOfNextWalk(), "ab");
    EXPECT_EQ(CallsOfNextWalk(), "");
}

TEST_F(ISignalDelegateTest, ObserverThatIsAddedDuringTheWalkIsCalledInIt)
{
    signal.AddCallback(&a);
    a.action = [this] { signal.AddCallback(&d); };

    EXPECT_EQ(CallsOfNextWalk(), "ad");
}

TEST_F(ISignalDelegateTest, ListMayGrowALotDuringTheWalk)
{
    std::deque<Observer> many;
    signal.AddCallback(&a);
    a.action = [&] {
        for (int i = 0; i < 1000; ++i) {
            signal.AddCallback(&many.emplace_back(calls, 'm'));
        }
    };

    EXPECT_EQ(CallsOfNextWalk(), "a" + std::string(1000, 'm'));
}

TEST_F(ISignalDelegateTest, ObserverMayStartAWalkOfItsOwn)
{
    AddAll();
    b.action = [this] {
        b.action = nullptr;
        signal.DoCallback(nullptr);
    };

    EXPECT_EQ(CallsOfNextWalk(), "ababcc");
}

TEST_F(ISignalDelegateTest, BaseClassDelegateDoesNothing)
{
    ISignal::ISignalDelegate plain;
    signal.AddCallback(&plain);
    signal.AddCallback(&a);

    EXPECT_EQ(CallsOfNextWalk(), "a");
}

TEST_F(ISignalDelegateTest, DestructionLeavesTheObserversAlone)
{
    {
        Scripted other;
        other.AddCallback(&a);
    }

    a.InvokeSignal(&signal, nullptr);

    EXPECT_EQ(calls, "a");
}

TEST_F(ISignalDelegateTest, HandlerThreadsMayWalkAtTheSameTime)
{
    struct Counter : ISignal::ISignalDelegate
    {
        void InvokeSignal(ISignal*, void*) override { ++count; }
        std::atomic<int> count = 0;
    };
    Counter first;
    Counter second;
    ISignal* target = nullptr;
    EventQueue events([&target](void* data) { target->DoCallback(data); });
    target = &events;
    events.AddCallback(&first);
    events.AddCallback(&second);
    events.Start();

    for (int i = 0; i < 200; ++i) {
        events.Post(nullptr);
    }

    ASSERT_TRUE(Eventually([&events] { return events.ended == 200; }));
    EXPECT_EQ(first.count, 200);
    EXPECT_EQ(second.count, 200);
}

TEST_F(ISignalDelegateTest, ThreadsAddAndRemoveAtTheSameTimeWithoutLosingAnEntry)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    std::array<Observer*, 4> observers{&a, &b, &c, &d};

    for (Observer* const observer : observers) {
        threads.emplace_back([this, observer] {
            for (int i = 0; i < 2000; ++i) {
                signal.RemoveCallback(observer);
                signal.AddCallback(observer);
                signal.AddCallback(observer);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::string found = CallsOfNextWalk();
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, "abcd");
}

}  // namespace
}  // namespace Tolvex::Interfaces
