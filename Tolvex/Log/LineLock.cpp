#include "Tolvex/Log/LineLock.h"

#include <chrono>
#include <pthread.h>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Log/Private/LineRegistry.h"
#include "Tolvex/Log/Private/LineState.h"

namespace Tolvex::Ilog {

namespace {

// Required: it is looked 21 times, so a writer that hangs costs 2.1 seconds, not two.
constexpr int stopPolls = 21;
constexpr std::chrono::milliseconds stopPollInterval(100);
constexpr std::chrono::milliseconds longestOccupation(2100);
constexpr std::chrono::milliseconds pollInterval(1);

}  // namespace

LineEntry::~LineEntry()
{
    if (state != nullptr) {
        state->Drop();
    }
}

void LineEntry::Keep()
{
    state->Leave();
    state = nullptr;
}

bool LineEntry::HandOver(std::string_view text)
{
    LineState* const line = state;
    state = nullptr;
    return line->HandOver(text);
}

LineLock::LineLock(bool& enabledFlag, bool& stoppedFlag, void* owner, void (*renew)(void* owner))
    : state(std::make_shared<LineState>(enabledFlag, stoppedFlag, owner, renew))
{
    // Now, and not when the logger is first enabled: a child that is forked in the middle of that
    // would find the control of the logger taken for ever.
    RegisterLine(*state);
}

LineLock::~LineLock() = default;

LineEntry LineLock::Begin()
{
    return LineEntry(state->Begin() ? state.get() : nullptr);
}

LineEntry LineLock::Enter()
{
    return LineEntry(state->Enter() ? state.get() : nullptr);
}

LineEntry LineLock::Occupy(bool patient)
{
    const Base::NoCancellation scope;
    // By the clock: on a busy machine each of the short sleeps takes many times its length.
    const auto deadline = std::chrono::steady_clock::now() + longestOccupation;
    bool occupied = state->TryTake();
    while (!occupied && patient && std::chrono::steady_clock::now() < deadline) {
        Base::SleepFor(pollInterval);
        occupied = state->TryTake();
    }
    return LineEntry(occupied ? state.get() : nullptr);
}

bool LineLock::HeldByCaller() const
{
    return state->HeldByCaller();
}

bool LineLock::TakeBack()
{
    return state->TakeBack();
}

LineLock::Control::Control(LineLock& lineLock)
    : state(lineLock.state.get()), entered(state->EnterControl())
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
}

LineLock::Control::~Control()
{
    if (entered) {
        state->LeaveControl();
    }
    pthread_setcancelstate(cancelState, nullptr);
}

bool LineLock::Admit()
{
    return state->Admit();
}

void LineLock::Refuse()
{
    state->Refuse();
}

bool LineLock::AwaitStopped() const
{
    const Base::NoCancellation scope;
    for (int poll = 0; poll < stopPolls; ++poll) {
        if (state->Stopped()) {
            return true;
        }
        Base::SleepFor(stopPollInterval);
    }
    return state->Stopped();
}

void LineLock::AwaitOldWriter() const
{
    while (!state->Stopped() && !state->WriterIsBusy()) {
        Base::SleepFor(pollInterval);  // GCOV_EXCL_LINE: a writer between its policy and its end
    }
}

std::uint32_t LineLock::AnnounceWriter()
{
    return state->AnnounceWriter();
}

void LineLock::CancelWriter()
{
    state->CancelWriter();
}

bool LineLock::TextIsStale()
{
    return state->TextIsStale();
}

void LineLock::Detach()
{
    const Base::NoCancellation scope;
    UnregisterLine(*state);
    while (!state->TryDetach()) {
        Base::SleepFor(pollInterval);  // GCOV_EXCL_LINE: a writer between its policy and its end
    }
}

LineWriter::LineWriter(const LineLock& lineLock, std::uint32_t writerNumber)
    : state(lineLock.state), number(writerNumber)
{
}

LineWriter::~LineWriter()
{
    state->WriterGone(number);
}

bool LineWriter::TakeSoon()
{
    return state->TakeSoon(number, lastLine);
}

LineWriter::Step LineWriter::Next()
{
    return state->Next(number);
}

std::string_view LineWriter::Line()
{
    lastLine = state->Text();
    return lastLine;
}

void LineWriter::EnterPolicy()
{
    state->EnterPolicy(number);
}

LineWriter::Step LineWriter::FinishLine()
{
    return state->FinishLine(number);
}

}  // namespace Tolvex::Ilog
