#include "Tolvex/Log/Private/BlackBox.h"

#include <cerrno>
#include <new>
#include <utility>

#include "Tolvex/Base/Private/ReplaceFile.h"

namespace Tolvex::Ilog {

constinit std::mutex BlackBox::ringMutex;

constexpr PolicyCalls BlackBox::calls = [] {
    PolicyCalls operations = policyCallsOf<BlackBox>;
    operations.keep = [](void* box, std::string_view line) {
        static_cast<BlackBox*>(box)->Keep(line);
    };
    return operations;
}();

/// Makes a new ring, with the newest lines of the one before.
void BlackBox::SetOutput(const std::string& lines)
{
    auto opened = std::make_unique<LineRing>(std::stoul(lines));
    const std::lock_guard guard(ringMutex);
    if (ring != nullptr) {
        for (const std::string& line : ring->Lines()) {
            opened->Add(line + '\n');
        }
    }
    ring = std::move(opened);
}

void BlackBox::Keep(std::string_view line)
{
    const std::lock_guard guard(ringMutex);
    if (ring != nullptr) {
        ring->Add(line);
    }
}

void BlackBox::Close()
{
    const std::lock_guard guard(ringMutex);
    ring.reset();
}

bool BlackBox::Save(const std::string& path) const
{
    try {
        std::unique_lock guard(ringMutex);
        if (ring == nullptr) {
            errno = ENODATA;
            return false;
        }
        const std::string text = ring->Text();
        guard.unlock();
        return Base::ReplaceFile(path, text) == nullptr;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
}

std::vector<std::string> BlackBox::Lines() const
{
    const std::lock_guard guard(ringMutex);
    return ring == nullptr ? std::vector<std::string>() : ring->Lines();
}

}  // namespace Tolvex::Ilog
