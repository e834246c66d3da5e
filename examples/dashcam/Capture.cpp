#include "examples/dashcam/Capture.h"

#include <utility>

#include "Tolvex/Log/LogLine.h"

namespace Dashcam {

using namespace std::chrono_literals;
using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

Capture::Capture(const Settings& wishes, Recorder& sink, std::string camera, std::string file)
    : settings(wishes), recorder(sink), source(wishes, std::move(camera), std::move(file))
{
    SetThreadName("Capture");
    av_log_set_level(AV_LOG_QUIET);  // libav would write to the terminal; we log its reasons
}

void Capture::Run()
{
    try {
        if (encoder == nullptr) {
            Open();
        }
        const std::shared_ptr<Frame> frame = Encode(source.Read());
        recorder.Process(frame);
        ++frames;
        lost = static_cast<std::uint64_t>(frame->GetFrameId()) + 1 - frames;
    } catch (const std::exception& problem) {
        if (complaint != problem.what()) {
            complaint = problem.what();
            LogLine(LogType::Error, LogModule::Event) << "no picture: " << complaint;
        }
        encoder.reset();
        ThreadSleep(1s, 50ms);
    }
}

void Capture::Open()
{
    source.Open();
    const AVCodec* const codec = avcodec_find_encoder_by_name("libx264");
    AvCodecOwner opened(avcodec_alloc_context3(codec));
    opened->width = source.Width();
    opened->height = settings.height;
    opened->pix_fmt = AV_PIX_FMT_YUV420P;
    opened->time_base = {1, 1000000};  // the pictures have their times, in microseconds
    opened->framerate = {settings.framesPerSecond, 1};
    opened->bit_rate = settings.kilobitsPerSecond * 1000LL;
    opened->gop_size = settings.keyInterval;
    opened->keyint_min = settings.keyInterval;
    opened->max_b_frames = 0;
    opened->thread_count = 1;
    opened->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // Decoding can start at every key frame; the encoder adds none of its own.
    const char* const options = "preset=ultrafast:tune=zerolatency:forced-idr=1:sc_threshold=0";
    Check(av_set_options_string(opened->priv_data, options, "=", ":"), "H.264 encoder");
    Check(avcodec_open2(opened.get(), codec, nullptr), "H.264 encoder");

    const std::shared_ptr<AVCodecParameters> made(avcodec_parameters_alloc(),
                                                  AvRelease<avcodec_parameters_free>());
    Check(avcodec_parameters_from_context(made.get(), opened.get()), "H.264 encoder");
    parameters = made;
    LogLine(LogType::Info, LogModule::Event)
        << source.Name() << ": " << source.Width() << 'x' << settings.height;
    encoder = std::move(opened);
    sinceKey = 0;
    complaint.clear();
}

std::shared_ptr<Frame> Capture::Encode(const Picture& picture)
{
    const auto sinceStart = picture.time.time_since_epoch();
    picture.pixels->pts = std::chrono::duration_cast<std::chrono::microseconds>(sinceStart).count();
    picture.pixels->pict_type = sinceKey == 0 ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    AvPacketOwner packet(av_packet_alloc());
    Check(avcodec_send_frame(encoder.get(), picture.pixels.get()), "H.264 encoder");
    Check(avcodec_receive_packet(encoder.get(), packet.get()), "H.264 encoder");
    sinceKey = (sinceKey + 1) % settings.keyInterval;
    return std::make_shared<Frame>(picture.id, std::move(packet), picture.time, parameters);
}

}  // namespace Dashcam
