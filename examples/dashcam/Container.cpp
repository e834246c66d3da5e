#include "examples/dashcam/Container.h"

#include <algorithm>

namespace Dashcam {
namespace {

struct FreeMuxer
{
    void operator()(AVFormatContext* muxer) const
    {
        std::uint8_t* bytes = nullptr;
        avio_close_dyn_buf(muxer->pb, &bytes);
        av_free(bytes);
        avformat_free_context(muxer);
    }
};

void WriteFrames(AVFormatContext* muxer, const std::vector<std::shared_ptr<Frame>>& frames)
{
    constexpr AVRational microseconds = {1, 1000000};
    const AvPacketOwner packet(av_packet_alloc());
    std::int64_t last = -1;
    for (const std::shared_ptr<Frame>& frame : frames) {
        Check(av_packet_ref(packet.get(), &frame->Packet()), "frame");
        const auto time = frame->Time() - frames.front()->Time();
        packet->pts = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
        av_packet_rescale_ts(packet.get(), microseconds, muxer->streams[0]->time_base);
        packet->pts = packet->dts = std::max(last + 1, packet->pts);
        // The next frame says how long this one is shown. The last one ends the clip.
        packet->duration = 1;
        last = packet->pts;
        packet->stream_index = 0;
        Check(av_write_frame(muxer, packet.get()), "frame");
        av_packet_unref(packet.get());
    }
}

AvPicture Decode(const Frame& key)
{
    const AVCodec* const codec = avcodec_find_decoder(key.Parameters().codec_id);
    const AvCodecOwner decoder(avcodec_alloc_context3(codec));
    decoder->thread_count = 1;
    Check(avcodec_parameters_to_context(decoder.get(), &key.Parameters()), "still");
    Check(avcodec_open2(decoder.get(), codec, nullptr), "still");
    Check(avcodec_send_packet(decoder.get(), &key.Packet()), "still");
    Check(avcodec_send_packet(decoder.get(), nullptr), "still");  // no more: the picture comes now
    AvPicture picture(av_frame_alloc());
    Check(avcodec_receive_frame(decoder.get(), picture.get()), "still");
    return picture;
}

}  // namespace

std::string MakeMp4(const std::vector<std::shared_ptr<Frame>>& frames)
{
    AVFormatContext* made = nullptr;
    Check(avformat_alloc_output_context2(&made, nullptr, "mp4", nullptr), "mp4");
    const std::unique_ptr<AVFormatContext, FreeMuxer> muxer(made);
    Check(avio_open_dyn_buf(&made->pb), "mp4");

    AVStream* const stream = avformat_new_stream(made, nullptr);
    Check(stream != nullptr ? 0 : AVERROR(ENOMEM), "mp4");
    Check(avcodec_parameters_copy(stream->codecpar, &frames.front()->Parameters()), "mp4");
    stream->time_base = {1, 90000};
    Check(avformat_write_header(made, nullptr), "mp4");
    WriteFrames(made, frames);
    Check(av_write_trailer(made), "mp4");

    std::uint8_t* bytes = nullptr;
    const int count = avio_get_dyn_buf(made->pb, &bytes);
    return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)};
}

std::string MakeJpeg(const Frame& key)
{
    const AvPicture picture = Decode(key);
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const AvCodecOwner encoder(avcodec_alloc_context3(codec));
    encoder->width = picture->width;
    encoder->height = picture->height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->color_range = AVCOL_RANGE_MPEG;
    encoder->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;  // for the range of the video
    encoder->time_base = {1, 1};
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = 4 * FF_QP2LAMBDA;
    Check(avcodec_open2(encoder.get(), codec, nullptr), "still");

    picture->quality = encoder->global_quality;
    picture->pict_type = AV_PICTURE_TYPE_I;
    const AvPacketOwner packet(av_packet_alloc());
    Check(avcodec_send_frame(encoder.get(), picture.get()), "still");
    Check(avcodec_receive_packet(encoder.get(), packet.get()), "still");
    return {reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size)};
}

}  // namespace Dashcam
