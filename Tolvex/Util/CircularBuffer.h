#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Ring with a fixed number of slots that keeps the most recent elements.
///
/// The constructor makes all slots; adding an element allocates only what copying a T allocates. T
/// is default-constructible and copyable, usually a std::shared_ptr: a full ring drops its
/// reference to the oldest element in the AddNext() that overwrites it. See
/// examples/LastKeyFrame.cpp.
///
/// The newest slot is the one that AddNext() wrote last. A slot is named by its index, 0 to
/// size - 1. The index says nothing about the age, because the oldest slot moves through the ring.
/// @par Errors
/// A ring of size 0 can be made but holds nothing: an operation that touches a slot throws
/// std::out_of_range.
/// @par Thread safety
/// Caller serialises.
template <typename T>
class TOLVEX_EXPORT CircularBuffer
{
public:
    /// Makes the slots, all empty (T()).
    ///
    /// @param size  Number of slots.
    /// @throws std::length_error or std::bad_alloc for a negative size, or if there is no memory
    /// for the slots.
    CircularBuffer(int size);

    /// Drops all elements. The release callback is not called for them.
    virtual ~CircularBuffer();

    CircularBuffer(const CircularBuffer&) = delete;
    CircularBuffer& operator=(const CircularBuffer&) = delete;

    /// Sets the release callback, which is called with a slot just before it is overwritten, from
    /// the second lap on.
    ///
    /// Replaces the previous callback. Do not call it from within that callback.
    /// @param callback  Receives the slot. If it is empty, AddNext() throws std::bad_function_call
    ///                  once the ring is full.
    void SetUnallocCallback(std::function<void(T&)> callback);

    /// Stores a copy of the element in the oldest slot, which becomes the newest.
    ///
    /// On a full ring the release callback is applied to that slot first, and the element is copied
    /// after it. If the callback throws, the exception leaves through here and nothing is stored.
    /// @param element  Copied. It must not be part of what the callback destroys.
    /// @throws std::out_of_range on a ring of size 0.
    /// @note On the first lap the release callback is never called.
    void AddNext(const T& element);

    /// @return the newest element; T() before the first AddNext().
    T RetrieveCurrent() const;

    /// @param index  Any number; the slot is the remainder by the size.
    /// @return the element in that slot; T() if the slot was not written yet.
    T GetElementAt(unsigned int index) const;

    /// @return the element in the newest slot; T() before the first AddNext().
    /// @throws std::out_of_range on a ring of size 0.
    T GetNewestSlot() const;

    /// @return index of the newest slot; size - 1 before the first AddNext().
    int GetRingPos() const { return m_pos == 0 ? m_size - 1 : m_pos - 1; }

    /// @return number of slots.
    int GetRingSize() const { return m_size; }

    /// @return true once an element has been added.
    bool IsDataAvailable() const { return m_dataAvailable; }

    /// Finds the slot of a key frame that is at least a number of elements back. Key frames are
    /// assumed to be in the slots whose index is a multiple of the interval.
    ///
    /// Starts at the last multiple of the interval at or before the newest slot, goes back from
    /// there, and rounds down to a multiple again.
    /// @param back      Elements to go back; more than the size gives 0.
    /// @param interval  Slots from one key frame to the next; 0 gives 0.
    /// @return index of the slot. Numbers too large for an int wrap around.
    /// @note 0 until every slot has been written once, even if the ring holds key frames.
    int SeekBackKeyframe(int back, int interval) const;

    /// Finds the slot that is a number of slots before another one.
    ///
    /// @param from  Index to start from.
    /// @param back  Slots to go back. While the ring is not full, a number above that of the
    /// written slots gives 0.
    /// @return index of the slot. Numbers too large for an int wrap around.
    /// @note A step back across slot 0 lands one slot further back than counting slots would: one
    ///       back from slot 0 of a full ring of ten is slot 8.
    int SeekRelative(int from, int back) const;

private:
    T& SlotAt(int index) { return m_buffer->at(static_cast<std::size_t>(index)); }
    const T& SlotAt(int index) const { return m_buffer->at(static_cast<std::size_t>(index)); }

    std::unique_ptr<std::vector<T>> m_buffer;  ///< the slots; never resized
    int m_size;                                ///< number of slots
    int m_pos = 0;                             ///< slot that the next AddNext() writes
    bool m_unallocSet = false;                 ///< a release callback was set, maybe an empty one
    bool m_full = false;                       ///< every slot has been written; never reset
    bool m_dataAvailable = false;              ///< a slot has been written; never reset
    std::function<void(T&)> m_unallocCallback{};  ///< called with a slot before it is overwritten
};

template <typename T>
CircularBuffer<T>::CircularBuffer(int size)
    : m_buffer(std::make_unique<std::vector<T>>(static_cast<std::size_t>(size))), m_size(size)
{
}

template <typename T>
CircularBuffer<T>::~CircularBuffer() = default;

template <typename T>
void CircularBuffer<T>::SetUnallocCallback(std::function<void(T&)> callback)
{
    m_unallocCallback = std::move(callback);
    m_unallocSet = true;
}

template <typename T>
inline void CircularBuffer<T>::AddNext(const T& element)
{
    // Called before the element is copied: the ring has no reference to the element yet.
    if (m_unallocSet && m_full) {
        m_unallocCallback(SlotAt(m_pos));
    }
    // Copies, then moves: the old element is destroyed after the slot holds the new one. Its
    // destructor may read the ring.
    SlotAt(m_pos) = T(element);

    if (m_pos == m_size - 1) {
        m_pos = 0;
        m_full = true;
    } else {
        ++m_pos;
    }
    m_dataAvailable = true;
}

template <typename T>
inline T CircularBuffer<T>::RetrieveCurrent() const
{
    return m_dataAvailable ? SlotAt(GetRingPos()) : T();
}

template <typename T>
inline T CircularBuffer<T>::GetElementAt(unsigned int index) const
{
    if (!m_dataAvailable) {
        return T();
    }
    // Not 0: a ring of size 0 never has data. Most indices need no division.
    const auto slots = static_cast<unsigned int>(m_size);
    return (*m_buffer)[index < slots ? index : index % slots];
}

template <typename T>
inline T CircularBuffer<T>::GetNewestSlot() const
{
    return SlotAt(GetRingPos());
}

template <typename T>
int CircularBuffer<T>::SeekBackKeyframe(int back, int interval) const
{
    // Required: 0 until every slot has been written once, even if the ring holds key frames.
    if (!m_full || back > m_size || interval == 0) {
        return 0;
    }

    // Computed in 64 bits and narrowed, so that extreme arguments wrap instead of overflowing.
    const int current = GetRingPos();
    const auto steps = static_cast<int>(std::int64_t{current % interval} + back);
    const std::int64_t distance = std::int64_t{current} - steps;
    const auto target = static_cast<int>(distance >= 0 ? distance : distance + m_size);

    const std::int64_t keyframe = std::int64_t{target} / interval;
    // Required: the product of doubles. It is exact: both are ints.
    return static_cast<int>(static_cast<double>(keyframe) * interval);
}

template <typename T>
int CircularBuffer<T>::SeekRelative(int from, int back) const
{
    // Required: compares with the number of slots that were written, not with from.
    if (!m_full && back > m_pos) {
        return 0;
    }

    // Computed in 64 bits and narrowed, so that extreme arguments wrap instead of overflowing.
    const std::int64_t distance = std::int64_t{from} - back;
    if (distance >= 0) {
        return static_cast<int>(distance);
    }
    // Required: wraps at size - 1, so a step back across slot 0 lands one slot further back.
    return static_cast<int>(distance + m_size - 1);
}

}  // namespace Tolvex::Util
