// The calls that IAsync makes to the C library, in their order and with their arguments. Not for
// the thread sanitizer, whose own threads would call the replaced functions.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Util/IAsync.h"

#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Support::RealFunction;
using Tolvex::Util::IAsync;

std::mutex recordMutex;
std::vector<std::string> record;
std::atomic<int> interruptionsToCome = 0;
std::atomic<int> creationError = 0;
std::atomic<bool> recording = false;
// The pthread_create() of a sanitizer makes further calls, also on the new thread.
thread_local bool ownCall = false;

void Note(const std::string& call)
{
    if (recording && (ownCall || call.starts_with("sleep"))) {
        const std::lock_guard lock(recordMutex);
        record.push_back(call);
    }
}

std::string Text(const timespec& time)
{
    return std::to_string(time.tv_sec) + "s " + std::to_string(time.tv_nsec) + "ns";
}

}  // namespace

extern "C" {

// Does not sleep; records the requested time.
int nanosleep(const timespec* asked, timespec* remaining)
{
    Note("sleep " + Text(*asked));
    if (interruptionsToCome > 0) {
        --interruptionsToCome;
        *remaining = {asked->tv_sec / 2, asked->tv_nsec / 2};
        errno = EINTR;
        return -1;
    }
    return 0;
}

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument)
{
    std::size_t stackBytes = 0;
    int state = -1;
    if (attributes != nullptr) {
        pthread_attr_getstacksize(attributes, &stackBytes);
        pthread_attr_getdetachstate(attributes, &state);
    }
    Note("create with stack " + std::to_string(stackBytes) +
         (state == PTHREAD_CREATE_JOINABLE ? " joinable" : " detached"));
    if (creationError != 0) {
        return creationError;
    }
    ownCall = false;
    const int error = RealFunction<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
        "pthread_create")(handle, attributes, entry, argument);
    ownCall = true;
    return error;
}

int pthread_detach(pthread_t thread)
{
    Note("detach");
    return RealFunction<int(pthread_t)>("pthread_detach")(thread);
}

int pthread_attr_destroy(pthread_attr_t* attributes)
{
    Note("attributes destroyed");
    return RealFunction<int(pthread_attr_t*)>("pthread_attr_destroy")(attributes);
}

}  // extern "C"

namespace {

class IAsyncCallsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        interruptionsToCome = 0;
        creationError = 0;
        record.clear();
        recording = true;
        ownCall = true;
    }

    void TearDown() override { recording = false; }

    /// Runs one IAsync to its end. @return the calls that begin with a word, in their order.
    std::vector<std::string> CallsFor(std::chrono::milliseconds delay, const std::string& word)
    {
        auto called = std::make_shared<std::promise<void>>();
        std::future<void> end = called->get_future();
        new IAsync(
            delay,
            [called](IAsync* async) {
                delete async;
                called->set_value();
            },
            nullptr);
        EXPECT_EQ(end.wait_for(Tolvex::Support::patience), std::future_status::ready);
        return Calls(word);
    }

    static std::vector<std::string> Calls(const std::string& word)
    {
        const std::lock_guard lock(recordMutex);
        std::vector<std::string> calls;
        for (const std::string& call : record) {
            if (call.starts_with(word)) {
                calls.push_back(call);
            }
        }
        return calls;
    }
};

using Texts = std::vector<std::string>;

TEST_F(IAsyncCallsTest, DelayIsSleptAsSecondsAndNanoseconds)
{
    EXPECT_EQ(CallsFor(1500ms, "sleep"), Texts{"sleep 1s 500000000ns"});
}

TEST_F(IAsyncCallsTest, DelayOfOneMillisecondIsSlept)
{
    EXPECT_EQ(CallsFor(1ms, "sleep"), Texts{"sleep 0s 1000000ns"});
}

TEST_F(IAsyncCallsTest, DelayOfZeroDoesNotSleep)
{
    EXPECT_EQ(CallsFor(0ms, "sleep"), Texts{});
}

TEST_F(IAsyncCallsTest, NegativeDelayDoesNotSleep)
{
    EXPECT_EQ(CallsFor(-1ms, "sleep"), Texts{});
    EXPECT_EQ(CallsFor(std::chrono::milliseconds::min(), "sleep"), Texts{});
}

TEST_F(IAsyncCallsTest, InterruptedSleepContinuesWithTheRemainingTime)
{
    interruptionsToCome = 2;

    EXPECT_EQ(CallsFor(4000ms, "sleep"), (Texts{"sleep 4s 0ns", "sleep 2s 0ns", "sleep 1s 0ns"}));
}

TEST_F(IAsyncCallsTest, LongestDelayThatA32BitClockCountsIsSleptInOnePiece)
{
    EXPECT_EQ(CallsFor(2147483647s + 999ms, "sleep"), Texts{"sleep 2147483647s 999000000ns"});
}

TEST_F(IAsyncCallsTest, DelayIsSleptInPiecesOnlyWhereTheClockHas32Bits)
{
    const Texts inPieces = {"sleep 2147483647s 999000000ns", "sleep 2s 501000000ns"};
    const Texts inOne = {"sleep 2147483650s 500000000ns"};

    EXPECT_EQ(CallsFor(2147483647s + 3500ms, "sleep"), sizeof(std::time_t) < 8 ? inPieces : inOne);
}

// The destruction of the attribute object would be in the record.
TEST_F(IAsyncCallsTest,
       ThreadIsCreatedJoinableWithHalfAMegabyteOfStackThenDetachedAndItsAttributesStay)
{
    EXPECT_EQ(CallsFor(0ms, ""), (Texts{"create with stack 524288 joinable", "detach"}));
}

TEST_F(IAsyncCallsTest, RunThreadCallsTheCallbackOnceAndReturnsNull)
{
    creationError = EAGAIN;
    int calls = 0;
    auto* async = new IAsync(
        2000ms, [&calls](IAsync*) { ++calls; }, nullptr);

    EXPECT_EQ(IAsync::RunThread(async), nullptr);

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(Calls("sleep"), Texts{"sleep 2s 0ns"});
    delete async;
}

TEST_F(IAsyncCallsTest, ObjectKeepsItsCallbackAndTheCapturesUntilItIsDestroyed)
{
    creationError = EAGAIN;
    const auto calls = std::make_shared<int>(0);
    auto* async = new IAsync(
        0ms, [calls](IAsync*) { ++*calls; }, nullptr);

    IAsync::RunThread(async);
    EXPECT_EQ(calls.use_count(), 2);
    IAsync::RunThread(async);

    EXPECT_EQ(*calls, 2);
    delete async;
    EXPECT_EQ(calls.use_count(), 1);
}

TEST_F(IAsyncCallsTest, FailedCreationIsSilentAndTheCallbackNeverRuns)
{
    creationError = EAGAIN;
    auto calls = std::make_shared<std::atomic<int>>(0);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();

    auto* async = new IAsync(
        0ms, [calls](IAsync*) { ++*calls; }, nullptr);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Calls(""), Texts{"create with stack 524288 joinable"});
    EXPECT_EQ(*calls, 0);
    EXPECT_EQ(calls.use_count(), 2) << "the object lives on and keeps its callback";
    delete async;
    EXPECT_EQ(calls.use_count(), 1);
}

/// Counts how often it is copied, and can be told to fail then.
class CopiedWork
{
public:
    explicit CopiedWork(std::shared_ptr<int> count) : copies(std::move(count)) {}
    CopiedWork(const CopiedWork& other) : copies(other.copies)
    {
        if (++*copies > mostCopies) {
            throw std::runtime_error("no more copies");
        }
    }
    CopiedWork(CopiedWork&& other) = default;
    CopiedWork& operator=(const CopiedWork&) = delete;
    CopiedWork& operator=(CopiedWork&&) = delete;
    ~CopiedWork() = default;

    void operator()(IAsync*) const {}

    static inline int mostCopies = 1000;

private:
    std::shared_ptr<int> copies;
};

TEST_F(IAsyncCallsTest, CallbackIsCopiedIntoPlaceThoughItCouldBeMoved)
{
    creationError = EAGAIN;
    const auto copies = std::make_shared<int>(0);
    std::function<void(IAsync*)> work = CopiedWork(copies);
    ASSERT_EQ(*copies, 0);

    const auto* const async = new IAsync(0ms, std::move(work), nullptr);

    EXPECT_EQ(*copies, 1);
    delete async;
}

TEST_F(IAsyncCallsTest, CallbackThatCannotBeCopiedRaisesItsExceptionAndStartsNoThread)
{
    std::function<void(IAsync*)> work = CopiedWork(std::make_shared<int>(0));
    CopiedWork::mostCopies = 0;

    EXPECT_THROW(new IAsync(0ms, std::move(work), nullptr), std::runtime_error);

    CopiedWork::mostCopies = 1000;
    EXPECT_EQ(Calls(""), Texts{});
}

}  // namespace
