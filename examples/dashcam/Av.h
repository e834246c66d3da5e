/// @file
/// Owners of libav's objects, and the texts of its errors.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

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

struct AvScalerRelease
{
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

using AvInput = std::unique_ptr<AVFormatContext, AvRelease<avformat_close_input>>;
using AvCodec = std::unique_ptr<AVCodecContext, AvRelease<avcodec_free_context>>;
using AvParameters = std::unique_ptr<AVCodecParameters, AvRelease<avcodec_parameters_free>>;
using AvPacketOwner = std::unique_ptr<AVPacket, AvRelease<av_packet_free>>;
using AvPicture = std::unique_ptr<AVFrame, AvRelease<av_frame_free>>;
using AvScaler = std::unique_ptr<SwsContext, AvScalerRelease>;

/// @return the text of an error code.
inline std::string AvReason(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

/// @return a picture with memory for its pixels, or null without memory.
inline AvPicture NewPicture(int format, int width, int height)
{
    AvPicture picture(av_frame_alloc());
    picture->format = format;
    picture->width = width;
    picture->height = height;
    return av_frame_get_buffer(picture.get(), 0) == 0 ? std::move(picture) : nullptr;
}

}  // namespace Dashcam
