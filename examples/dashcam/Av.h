/// @file
/// Owners of libav's objects, and its errors as exceptions.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include "Tolvex/Exception/IException.h"

namespace Dashcam {

/// Releases with a function that takes the address of the pointer, as most of libav's do.
template <auto release>
struct AvRelease
{
    template <typename T>
    void operator()(T* object) const
    {
        release(&object);
    }
};

using AvCodecOwner = std::unique_ptr<AVCodecContext, AvRelease<avcodec_free_context>>;
using AvGraph = std::unique_ptr<AVFilterGraph, AvRelease<avfilter_graph_free>>;
using AvPacketOwner = std::unique_ptr<AVPacket, AvRelease<av_packet_free>>;
using AvPicture = std::unique_ptr<AVFrame, AvRelease<av_frame_free>>;

/// Looks at the result of a call of libav.
/// @param code  The result; negative for an error.
/// @param what  Was being done, or with what; for people.
/// @throws Tolvex::IException with libav's reason when the code is negative.
inline void Check(int code, const std::string& what)
{
    if (code < 0) {
        char reason[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(code, reason, sizeof reason);
        throw Tolvex::IException((what + ": " + reason).c_str());
    }
}

}  // namespace Dashcam
