#include "Tolvex/Pipeline/IPipelineElement.h"

template class Tolvex::Util::CircularBuffer<std::shared_ptr<Tolvex::Pipeline::IPipelineCbElement>>;

namespace Tolvex::Pipeline {

IPipelineCbElement::~IPipelineCbElement() = default;

IPipelineElement::IPipelineElement(int size) : ring(size)
{
    ring.SetUnallocCallback(UnallocCbElement);
}

IPipelineElement::~IPipelineElement() = default;

void IPipelineElement::UnallocCbElement(std::shared_ptr<IPipelineCbElement>& element)
{
    element.reset();
}

std::int64_t IPipelineElement::GetCurrentFrameId() const
{
    const std::shared_ptr<IPipelineCbElement> newest = ring.GetNewestSlot();
    return newest != nullptr ? newest->GetFrameId() : -1;
}

}  // namespace Tolvex::Pipeline
