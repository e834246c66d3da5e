#pragma once

#include <cstdint>
#include <memory>

#include "Tolvex/Types/Export.h"
#include "Tolvex/Util/CircularBuffer.h"

namespace Tolvex::Pipeline {

/// Frame that passes through a pipeline. A base class for real frames: it holds only the number
/// that identifies the frame.
/// @par Thread safety
/// Thread-safe: the number never changes.
class TOLVEX_EXPORT IPipelineCbElement
{
public:
    /// @param id  Identifies the frame; the pipeline decides what it means.
    explicit IPipelineCbElement(std::int64_t id) : frameId(id) {}

    /// Frames are destroyed through a pointer to this class.
    virtual ~IPipelineCbElement();

    /// @return the number given to the constructor.
    std::int64_t GetFrameId() const { return frameId; }

private:
    std::int64_t frameId;
};

}  // namespace Tolvex::Pipeline

// Compiled once, in the library.
extern template class Tolvex::Util::CircularBuffer<
    std::shared_ptr<Tolvex::Pipeline::IPipelineCbElement>>;

namespace Tolvex::Pipeline {

/// Base class for a stage of a frame pipeline. A stage implements Open(), Process() and Close(),
/// and passes its frames to AddNext().
///
/// Keeps the most recent frames in a ring. A consumer can take the newest frame or any slot, or
/// look back by a number of frames or to a key frame. The ring holds one reference to each of its
/// frames and drops the oldest in the AddNext() that overwrites it; callers get references of their
/// own. See examples/LastKeyFrame.cpp.
/// @par Errors
/// A ring of size 0 can be made but holds nothing: AddNext() and GetCurrentFrameId() then throw
/// std::out_of_range.
/// @par Thread safety
/// Caller serialises. Frames that a caller has received may be used on other threads.
class TOLVEX_EXPORT IPipelineElement
{
public:
    /// @param size  Number of slots of the ring.
    /// @throws std::length_error or std::bad_alloc for a negative size, or if there is no memory
    /// for the slots.
    IPipelineElement(int size);

    /// Drops the ring's references to its frames.
    virtual ~IPipelineElement();

    IPipelineElement(const IPipelineElement&) = delete;
    IPipelineElement& operator=(const IPipelineElement&) = delete;

    /// Makes the stage ready for frames. @return false on failure.
    virtual bool Open() = 0;

    /// Takes one frame.
    /// @param frame  Shared with the caller.
    /// @return false if the stage could not process it.
    virtual bool Process(const std::shared_ptr<IPipelineCbElement>& frame) = 0;

    /// Ends the work of the stage. No frame may follow.
    virtual void Close() = 0;

    /// Drops the reference in a slot that is about to be overwritten.
    /// @param element  The slot; null afterwards.
    static void UnallocCbElement(std::shared_ptr<IPipelineCbElement>& element);

    /// Stores the frame in the oldest slot, which becomes the newest. A full ring releases the
    /// frame that was in that slot. Allocates nothing.
    /// @param element  The ring keeps a reference of its own; may be null.
    /// @throws std::out_of_range on a ring of size 0.
    void AddNext(const std::shared_ptr<IPipelineCbElement>& element) { ring.AddNext(element); }

    /// @return the newest frame; null before the first AddNext().
    std::shared_ptr<IPipelineCbElement> RetrieveCurrent() const { return ring.RetrieveCurrent(); }

    /// @param index  Any number; the slot is the remainder by the size.
    /// @return the frame in that slot; null if the slot was not written yet.
    std::shared_ptr<IPipelineCbElement> GetElementAt(unsigned int index) const
    {
        return ring.GetElementAt(index);
    }

    /// @return index of the newest slot; size - 1 before the first AddNext().
    int GetRingPos() const { return ring.GetRingPos(); }

    /// @return number of slots.
    int GetRingSize() const { return ring.GetRingSize(); }

    /// @return true once a frame has been added.
    bool IsDataAvailable() const { return ring.IsDataAvailable(); }

    /// Finds a key frame that is some frames back. Key frames are assumed to be in the slots whose
    /// index is a multiple of the interval (Util::CircularBuffer::SeekBackKeyframe()).
    /// @param back      Minimum number of frames to go back.
    /// @param interval  Slots from one key frame to the next.
    /// @return index of the slot; 0 for an interval of 0, and for more frames back than slots.
    /// @note 0 until every slot has been written once, even if the ring holds key frames.
    int SeekBackKeyframe(int back, int interval) const
    {
        return ring.SeekBackKeyframe(back, interval);
    }

    /// Finds the slot that is a number of slots before another one
    /// (Util::CircularBuffer::SeekRelative()).
    /// @param from  Index to start from.
    /// @param back  Slots to go back.
    /// @return index of the slot; 0 for more slots back than have been written.
    /// @note Going back across slot 0 lands one slot further back than counting slots would.
    int SeekRelative(int from, int back) const { return ring.SeekRelative(from, back); }

    /// @return number of the frame in the newest slot, or -1 if that slot is empty.
    /// @throws std::out_of_range on a ring of size 0.
    std::int64_t GetCurrentFrameId() const;

private:
    Util::CircularBuffer<std::shared_ptr<IPipelineCbElement>> ring;
};

}  // namespace Tolvex::Pipeline
