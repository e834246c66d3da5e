#include "Tolvex/Json/Private/Access.h"

#include <atomic>

namespace Tolvex::Json {

namespace {

/// The first number is not taken for one of the places that have a name. Counting ends before the
/// number could begin anew; members added from then on count as being in some container.
constexpr std::uint32_t firstEmbedding = Access::inContainer + 1;
constexpr std::uint32_t lastEmbedding = UINT32_MAX / 2;  // more threads than the rest cannot count

constinit std::atomic<std::uint32_t> embeddings{firstEmbedding};

}  // namespace

void CountEmbedding() noexcept
{
    if (embeddings.load(std::memory_order_relaxed) < lastEmbedding) {
        embeddings.fetch_add(1, std::memory_order_relaxed);
    }
}

std::uint32_t CurrentEmbeddings() noexcept
{
    const std::uint32_t count = embeddings.load(std::memory_order_relaxed);
    return count < lastEmbedding ? count : Access::inContainer;
}

}  // namespace Tolvex::Json
