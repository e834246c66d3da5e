#include "examples/dashcam/VideoSource.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "examples/dashcam/TestPicture.h"

namespace Dashcam {
namespace {

constexpr double tolerableDelay = 1.0;  ///< seconds that a reader can be late without a loss

Clock::duration Seconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

VideoSource::VideoSource(const Settings& wishes, std::string device, std::string path)
    : settings(wishes), camera(std::move(device)), file(std::move(path))
{
}

std::string VideoSource::Name() const
{
    return !camera.empty() ? camera : !file.empty() ? file : "test picture";
}

bool VideoSource::Open()
{
    ResetError();
    const bool isInput = !camera.empty() || !file.empty();
    if (!camera.empty() && !input.OpenCamera(camera, settings)) {
        return FailAsInput();
    }
    if (!file.empty() && !input.OpenFile(file)) {
        return FailAsInput();
    }
    if (isInput && !input.Next()) {
        return FailAsInput();
    }
    if (width == 0) {
        // The shape of the first picture stays, whatever comes after a new start.
        const int shape = isInput ? settings.height * input.Decoded().width / input.Decoded().height
                                  : settings.width;
        width = std::clamp(shape, 64, 3840) & ~1;
        pixels = NewPicture(AV_PIX_FMT_YUV420P, width, settings.height);
    }
    fresh = true;
    turn = 0;
    begin = Clock::now();
    return true;
}

bool VideoSource::FailAsInput()
{
    SetError(input.GetErrorText(), "", false, false);
    return false;
}

bool VideoSource::Read(Picture& picture)
{
    ResetError();
    if (av_frame_make_writable(pixels.get()) < 0) {
        SetError(Name() + ": no memory", "", false, false);
        return false;
    }
    if (!camera.empty()) {
        if (!ReadCamera()) {
            return false;
        }
    } else {
        AwaitTurn();
        if (file.empty()) {
            DrawTestPicture(*pixels, static_cast<double>(id) / settings.framesPerSecond,
                            std::time(nullptr));
        } else if (!ReadFile()) {
            return false;
        }
    }
    picture = {pixels.get(), id, time};
    return true;
}

/// Sleeps until the next picture is due. Leaves out those for which it is too late.
void VideoSource::AwaitTurn()
{
    const double late = SecondsBetween(begin, Clock::now()) - tolerableDelay;
    const auto earliest = static_cast<std::int64_t>(late * settings.framesPerSecond);
    const std::int64_t next = std::max(turn, earliest);
    id += 1 + next - turn;
    turn = next + 1;
    time = begin + Seconds(static_cast<double>(next) / settings.framesPerSecond);
    std::this_thread::sleep_until(time);
}

/// Takes the picture of the file that is to be seen at this time: the same again, or a later one.
bool VideoSource::ReadFile()
{
    const double shown = SecondsBetween(begin, time) + 0.5 / settings.framesPerSecond;
    bool isNew = fresh;
    while (input.Position() + 1.0 / input.Rate() <= shown) {
        if (!input.Next()) {
            return FailAsInput();
        }
        isNew = true;
    }
    fresh = false;
    return !isNew || Convert();
}

/// Waits for the next picture. A step of more than 1.5 pictures in the camera's time stamps is a
/// loss. If its clock and ours differ by more than a second, ours counts.
bool VideoSource::ReadCamera()
{
    if (!fresh && !input.Next()) {
        return FailAsInput();
    }
    const double step = fresh ? 0.0 : input.Position() - position;
    const double pictures = step * input.Rate();
    const bool isLoss = pictures > 1.5 && pictures < 1000.0;
    id += isLoss ? std::lround(pictures) : 1;
    time += Seconds(step);
    if (fresh || std::abs(SecondsBetween(time, Clock::now())) > tolerableDelay) {
        time = Clock::now();
    }
    position = input.Position();
    fresh = false;
    return Convert();
}

bool VideoSource::Convert()
{
    const AVFrame& decoded = input.Decoded();
    scaler.reset(sws_getCachedContext(
        scaler.release(), decoded.width, decoded.height, static_cast<AVPixelFormat>(decoded.format),
        width, settings.height, AV_PIX_FMT_YUV420P, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
    if (scaler == nullptr) {
        SetError(Name() + ": its pixels cannot be converted", "", false, false);
        return false;
    }
    sws_scale(scaler.get(), decoded.data, decoded.linesize, 0, decoded.height, pixels->data,
              pixels->linesize);
    return true;
}

}  // namespace Dashcam
