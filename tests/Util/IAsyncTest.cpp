#include "Tolvex/Util/IAsync.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Support::Eventually;
using Tolvex::Support::patience;
using Tolvex::Util::IAsync;
using Clock = std::chrono::steady_clock;

static_assert(!std::is_polymorphic_v<IAsync>);
static_assert(!std::is_copy_constructible_v<IAsync>);
static_assert(!std::is_copy_assignable_v<IAsync>);
static_assert(std::is_same_v<decltype(&IAsync::RunThread), void* (*)(void*)>);

/// The attributes of a thread, as seen by its callback.
struct ThreadView
{
    pthread_t self = 0;
    std::size_t stackBytes = 0;
    bool detached = false;
    std::string name;
};

ThreadView ViewOfThisThread()
{
    ThreadView view;
    view.self = pthread_self();

    // The creator detaches the thread while it is already running.
    Eventually([&view] {
        pthread_attr_t attributes;
        pthread_getattr_np(view.self, &attributes);
        int state = 0;
        pthread_attr_getdetachstate(&attributes, &state);
        pthread_attr_getstacksize(&attributes, &view.stackBytes);
        pthread_attr_destroy(&attributes);
        view.detached = state == PTHREAD_CREATE_DETACHED;
        return view.detached;
    });

    char name[16] = {};
    pthread_getname_np(view.self, name, sizeof name);
    view.name = name;
    return view;
}

TEST(IAsyncTest, CallbackReceivesTheObjectThatNewReturned)
{
    auto given = std::make_shared<std::promise<IAsync*>>();
    std::future<IAsync*> received = given->get_future();

    auto* created = new IAsync(
        0ms, [given](IAsync* async) { given->set_value(async); }, nullptr);

    ASSERT_EQ(received.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(received.get(), created);
    delete created;  // this callback does not delete the object
}

TEST(IAsyncTest, CallbackFindsTheUserDataInTheObject)
{
    int context = 0;
    auto given = std::make_shared<std::promise<void*>>();
    std::future<void*> received = given->get_future();

    new IAsync(
        0ms,
        [given](IAsync* async) {
            given->set_value(async->GetUserData());
            delete async;
        },
        &context);

    ASSERT_EQ(received.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(received.get(), &context);
}

TEST(IAsyncTest, DelayOf1500MillisecondsPassesBeforeTheCall)
{
    auto called = std::make_shared<std::promise<Clock::time_point>>();
    std::future<Clock::time_point> call = called->get_future();
    const auto start = Clock::now();

    new IAsync(
        1500ms,
        [called](IAsync* async) {
            called->set_value(Clock::now());
            delete async;
        },
        nullptr);

    ASSERT_EQ(call.wait_for(patience), std::future_status::ready);
    EXPECT_GE(call.get() - start, 1500ms);
}

TEST(IAsyncTest, ConstructorDoesNotWaitForTheCall)
{
    std::promise<void> constructed;
    const std::shared_future<void> returned = constructed.get_future().share();
    auto called = std::make_shared<std::promise<std::future_status>>();
    std::future<std::future_status> call = called->get_future();

    new IAsync(
        1ms,
        [returned, called](IAsync* async) {
            called->set_value(returned.wait_for(patience));
            delete async;
        },
        nullptr);
    constructed.set_value();

    ASSERT_EQ(call.wait_for(2 * patience), std::future_status::ready);
    EXPECT_EQ(call.get(), std::future_status::ready);
}

TEST(IAsyncTest, CallbackRunsOnADetachedUnnamedThreadWithHalfAMegabyteOfStack)
{
    auto seen = std::make_shared<std::promise<ThreadView>>();
    std::future<ThreadView> view = seen->get_future();

    new IAsync(
        0ms,
        [seen](IAsync* async) {
            seen->set_value(ViewOfThisThread());
            delete async;
        },
        nullptr);

    ASSERT_EQ(view.wait_for(2 * patience), std::future_status::ready);
    const ThreadView thread = view.get();
    EXPECT_EQ(pthread_equal(thread.self, pthread_self()), 0);
#ifndef __SANITIZE_THREAD__  // which enlarges every stack
    EXPECT_EQ(thread.stackBytes, 524288u);
#endif
    EXPECT_TRUE(thread.detached);

    char inherited[16] = {};
    pthread_getname_np(pthread_self(), inherited, sizeof inherited);
    EXPECT_EQ(thread.name, inherited);
}

TEST(IAsyncTest, CreatorsFunctorIsCopiedAndStaysUsable)
{
    auto calls = std::make_shared<std::atomic<int>>(0);
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> end = done->get_future();
    const std::function<void(IAsync*)> work = [calls, done](IAsync* async) {
        if (++*calls == 2) {
            done->set_value();
        }
        delete async;
    };

    new IAsync(0ms, work, nullptr);
    new IAsync(0ms, work, nullptr);

    ASSERT_EQ(end.wait_for(patience), std::future_status::ready);
    EXPECT_TRUE(static_cast<bool>(work));
}

TEST(IAsyncTest, CallbackMayDeleteTheObjectAndStillUseItsCaptures)
{
    constexpr int rounds = Tolvex::Support::threadsAreSlow ? 5000 : 100000;
    constexpr int mostAtOnce = 64;
    struct Tally
    {
        std::mutex mutex;
        std::condition_variable changed;
        int begun = 0;
        int ended = 0;
    };
    auto tally = std::make_shared<Tally>();
    const auto work = [tally](IAsync* async) {
        delete async;
        const std::lock_guard lock(tally->mutex);
        ++tally->ended;
        tally->changed.notify_one();
    };

    for (int round = 0; round < rounds; ++round) {
        std::unique_lock lock(tally->mutex);
        ASSERT_TRUE(tally->changed.wait_for(
            lock, patience, [&] { return tally->begun - tally->ended < mostAtOnce; }));
        ++tally->begun;
        lock.unlock();
        new IAsync(std::chrono::milliseconds(-(round % 2)), work, nullptr);
    }

    std::unique_lock lock(tally->mutex);
    EXPECT_TRUE(tally->changed.wait_for(lock, patience, [&] { return tally->ended == rounds; }));
}

TEST(IAsyncTest, CallbackMayEndItsThreadAndItsCapturesAreReleased)
{
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = captured;

    new IAsync(
        0ms,
        [captured](IAsync* async) {
            delete async;
            pthread_exit(nullptr);
        },
        nullptr);
    captured.reset();

    EXPECT_TRUE(Eventually([&watch] { return watch.expired(); }));
}

TEST(IAsyncDeathTest, EmptyCallbackEndsTheProcess)
{
    EXPECT_DEATH(
        {
            new IAsync(0ms, nullptr, nullptr);
            std::this_thread::sleep_for(patience);
        },
        "bad_function_call");
}

TEST(IAsyncDeathTest, ExceptionThatTheCallbackLetsOutEndsTheProcess)
{
    EXPECT_DEATH(
        {
            new IAsync(
                0ms, [](IAsync*) { throw std::runtime_error("out of the callback"); }, nullptr);
            std::this_thread::sleep_for(patience);
        },
        "out of the callback");
}

/// Can be copied only by the thread that made it.
class OwnedWork
{
public:
    OwnedWork() = default;
    OwnedWork(const OwnedWork& other) : owner(other.owner)
    {
        if (std::this_thread::get_id() != owner) {
            throw std::runtime_error("copied on another thread");
        }
    }
    OwnedWork& operator=(const OwnedWork&) = delete;
    ~OwnedWork() = default;

    void operator()(IAsync*) const {}

private:
    std::thread::id owner = std::this_thread::get_id();
};

TEST(IAsyncDeathTest, CallbackThatCannotBeCopiedOnTheNewThreadEndsTheProcess)
{
    EXPECT_DEATH(
        {
            new IAsync(0ms, OwnedWork(), nullptr);
            std::this_thread::sleep_for(patience);
        },
        "copied on another thread");
}

}  // namespace
