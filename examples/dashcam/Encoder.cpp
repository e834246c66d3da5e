#include "examples/dashcam/Encoder.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace Dashcam {

bool Encoder::Open(int width, int height, const Settings& settings)
{
    ResetError();
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    encoder = encoder != nullptr ? encoder : avcodec_find_encoder(AV_CODEC_ID_H264);
    codec.reset(avcodec_alloc_context3(encoder));
    codec->width = width;
    codec->height = height;
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = {1, 1000000};  // the pictures have their times, in microseconds
    codec->framerate = {settings.framesPerSecond, 1};
    codec->bit_rate = settings.kilobitsPerSecond * 1000LL;
    codec->gop_size = settings.keyInterval;
    codec->keyint_min = settings.keyInterval;
    codec->max_b_frames = 0;
    codec->thread_count = 1;
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // Decoding can start at every key frame; the encoder adds none of its own.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", "ultrafast", 0);
    av_dict_set(&options, "tune", "zerolatency", 0);
    av_dict_set(&options, "forced-idr", "1", 0);
    av_dict_set(&options, "sc_threshold", "0", 0);
    const int code = encoder != nullptr ? avcodec_open2(codec.get(), encoder, &options)
                                        : AVERROR_ENCODER_NOT_FOUND;
    av_dict_free(&options);
    if (code < 0) {
        SetError("H.264 encoder: " + AvReason(code), "Open", false, false);
        return false;
    }
    AvParameters copy(avcodec_parameters_alloc());
    avcodec_parameters_from_context(copy.get(), codec.get());
    parameters = std::move(copy);
    keyInterval = settings.keyInterval;
    sinceKey = 0;
    return true;
}

std::shared_ptr<Frame> Encoder::Encode(const Picture& picture)
{
    ResetError();
    const auto sinceStart = picture.time.time_since_epoch();
    picture.pixels->pts = std::chrono::duration_cast<std::chrono::microseconds>(sinceStart).count();
    picture.pixels->pict_type = sinceKey == 0 ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    AvPacketOwner packet(av_packet_alloc());
    int code = avcodec_send_frame(codec.get(), picture.pixels);
    code = code < 0 ? code : avcodec_receive_packet(codec.get(), packet.get());
    if (code < 0) {
        SetError("H.264 encoder: " + AvReason(code), "Encode", false, false);
        return nullptr;
    }
    sinceKey = (sinceKey + 1) % keyInterval;
    return std::make_shared<Frame>(picture.id, std::move(packet), picture.time);
}

}  // namespace Dashcam
