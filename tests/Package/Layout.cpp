// The layout that SOVERSION 1 promises. If a layout has changed, this file does not compile. Each
// struct repeats the members of a class in their order, and must have the size of the class. Sizes
// do not show two swapped members of one type; Package/BinaryInterface does.
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <pthread.h>
#include <sstream>
#include <streambuf>
#include <string>
#include <type_traits>
#include <vector>

#include "Tolvex/Tolvex.h"

namespace {

using namespace Tolvex;

/// The properties by which layouts are compared.
struct Shape
{
    std::size_t size;
    std::size_t alignment;
    bool polymorphic;

    bool operator==(const Shape&) const = default;
};

template <typename T>
constexpr Shape shapeOf = {sizeof(T), alignof(T), std::is_polymorphic_v<T>};

template <typename Class, typename Members>
constexpr bool sameLayout = shapeOf<Class> == shapeOf<Members>;

struct Virtual
{
    virtual ~Virtual() = default;
};

// ------------------------------------------------------------------------------------------- types

template <typename Enum, typename Underlying>
constexpr bool isStoredAs = std::is_same_v<std::underlying_type_t<Enum>, Underlying>;

static_assert(isStoredAs<Json::ValueType, std::int32_t>);
static_assert(Json::NullVal == 0 && Json::StringVal == 1 && Json::IntVal == 2);
static_assert(Json::FloatVal == 3 && Json::DoubleVal == 4 && Json::ObjectVal == 5);
static_assert(Json::ArrayVal == 6 && Json::BoolVal == 7);

static_assert(isStoredAs<Ilog::LogType, std::int32_t>);
static_assert(Ilog::LogType(0) == Ilog::LogType::Info);
static_assert(Ilog::LogType(1) == Ilog::LogType::Warning);
static_assert(Ilog::LogType(2) == Ilog::LogType::Error);
static_assert(Ilog::LogType(3) == Ilog::LogType::Notice);

static_assert(isStoredAs<LogModule, std::int32_t>);
static_assert(LogModule(0) == LogModule::Ithread && LogModule(1) == LogModule::Iaq);
static_assert(LogModule(2) == LogModule::FaceRec && LogModule(3) == LogModule::Sdw);
static_assert(LogModule(4) == LogModule::DaD && LogModule(5) == LogModule::CELL);
static_assert(LogModule(6) == LogModule::LT && LogModule(7) == LogModule::WNET);
static_assert(LogModule(8) == LogModule::CONFIG && LogModule(9) == LogModule::Event);
static_assert(LogModule(10) == LogModule::Accelerometer);

static_assert(isStoredAs<Ilog::LogDurability, int>);
static_assert(Ilog::LogDurability(0) == Ilog::LogDurability::None);
static_assert(Ilog::LogDurability(1) == Ilog::LogDurability::IgnitionOff);
static_assert(Ilog::LogDurability(2) == Ilog::LogDurability::Interval);
static_assert(Ilog::LogDurability(3) == Ilog::LogDurability::EachLine);

static_assert(isStoredAs<Ilog::ColorCode, int>);
static_assert(Ilog::ColorCode(31) == Ilog::ColorCode::Red);
static_assert(Ilog::ColorCode(32) == Ilog::ColorCode::Green);
static_assert(Ilog::ColorCode(33) == Ilog::ColorCode::Yellow);
static_assert(Ilog::ColorCode(39) == Ilog::ColorCode::Default);

static_assert(offsetof(Util::SunTimes, sunrise) == 0);
static_assert(offsetof(Util::SunTimes, sunset) == sizeof(std::time_t));
static_assert(sizeof(Util::SunTimes) == 2 * sizeof(std::time_t));
static_assert(sizeof(Ibuffer) == 16 && sizeof(Iubuffer) == 16);

// -------------------------------------------------------------------------------------- Interfaces

struct ErrorMembers : Virtual
{
    std::string errorText;
    std::int32_t errorCode;
    std::string namespaceName;
    std::string className;
};
static_assert(sameLayout<Interfaces::IError, ErrorMembers>);

struct ExceptionMembers : std::exception
{
    std::array<char, 1024> message;
    std::int32_t code;
};
static_assert(sameLayout<IException, ExceptionMembers>);

struct SemaphoreMembers
{
    std::mutex mutex;
    std::condition_variable condition;
    std::int64_t count;
};
static_assert(sameLayout<Interfaces::ISemaphore, SemaphoreMembers>);

struct SignalMembers : Virtual
{
    pthread_t threadHandle;
    std::string signalName;
    bool running;
    std::vector<void*> delegates;
    std::mutex fireMutex;
    std::mutex delegatesMutex;
};
static_assert(sameLayout<Interfaces::ISignal, SignalMembers>);
static_assert(sameLayout<Interfaces::ISignal::ISignalDelegate, Virtual>);

struct ThreadMembers : Virtual
{
    pthread_t threadHandle;
    std::uint32_t stackSize;
    std::vector<void*> delegates;
    std::mutex delegatesMutex;
    bool running;
    bool destroying;
    bool cancelRequested;
    bool finished;
    bool benchmark;
    bool deleteOnStop;
    std::string threadName;
    bool paused;
    bool started;
    bool stoppingOverridden;
    std::shared_ptr<void> workerThreads;
};
static_assert(sameLayout<Interfaces::IThread, ThreadMembers>);
static_assert(sameLayout<Interfaces::IThread::IThreadDelegate, Virtual>);
static_assert(sameLayout<Interfaces::IgnitionOffMode, Virtual>);

static_assert(isStoredAs<Interfaces::WorkerState, std::int32_t>);
struct WorkerHealthMembers
{
    void* worker;
    std::string name;
    Interfaces::WorkerState state;
    std::uint64_t passes;
    std::chrono::milliseconds lastPass;
    std::chrono::milliseconds longestPass;
    std::chrono::milliseconds runningPass;
    std::size_t stackUsed;
};
static_assert(sameLayout<Interfaces::WorkerHealth, WorkerHealthMembers>);

struct SequenceMembers : Interfaces::IgnitionOffMode, Interfaces::IError
{
    std::vector<void*> participants;
    void* logThread;
    void* recordThread;
    Util::DriveRecord lastDrive;
    std::string recordPath;
    bool ignitionOff;
};
static_assert(sameLayout<Interfaces::IgnitionOffSequence, SequenceMembers>);

// ------------------------------------------------------------------------------------------- Util

static_assert(isStoredAs<Util::DriveEnd, std::int32_t>);
struct DriveRecordMembers
{
    Util::DriveEnd end;
    std::vector<std::string> overran;
};
static_assert(sameLayout<Util::DriveRecord, DriveRecordMembers>);

struct EventFileNameMembers
{
    std::string prefix;
    std::time_t time;
    std::uint32_t number;
    std::string extension;
};
static_assert(sameLayout<Util::EventFileName, EventFileNameMembers>);

struct AsyncMembers
{
    std::chrono::milliseconds delay;
    std::function<void()> callback;
    void* userData;
};
static_assert(sameLayout<Util::IAsync, AsyncMembers>);

struct TimerMembers : Interfaces::IError
{
    void* userData;
    std::shared_ptr<void> callback;
    timer_t timerId;
    sigevent notification;
    itimerspec times;
    bool stopping;
};
static_assert(sameLayout<Util::Timer, TimerMembers>);

struct TickMembers : Interfaces::IThread
{
    std::uint64_t tickCount;
};
static_assert(sameLayout<Util::Tick, TickMembers>);

struct TimeMonitorMembers
{
    timespec startInstant;
    timespec lastReading;
};
static_assert(sameLayout<Util::TimeMonitor, TimeMonitorMembers>);

struct TemperatureMonitorMembers
{
    void* timer;
    bool available;
    std::int32_t temperature;
    std::shared_ptr<void> gate;
};
static_assert(sameLayout<Util::TemperatureMonitor, TemperatureMonitorMembers>);

static_assert(sameLayout<Util::SunCalculator, std::array<double, 6>>);

using Frame = std::shared_ptr<Pipeline::IPipelineCbElement>;
struct RingMembers : Virtual
{
    std::vector<Frame>* m_buffer;
    int m_size;
    int m_pos;
    bool m_unallocSet;
    bool m_full;
    bool m_dataAvailable;
    std::function<void(Frame&)> m_unallocCallback;
};
static_assert(sameLayout<Util::CircularBuffer<Frame>, RingMembers>);

// --------------------------------------------------------------------------------------- Pipeline

struct FrameMembers : Virtual
{
    std::int64_t frameId;
};
static_assert(sameLayout<Pipeline::IPipelineCbElement, FrameMembers>);

struct StageMembers : Virtual
{
    Util::CircularBuffer<Frame> ring;
};
static_assert(sameLayout<Pipeline::IPipelineElement, StageMembers>);

// ------------------------------------------------------------------------------------------- Json

struct ValueMembers
{
    std::int32_t mValueType;
    std::int32_t mIntVal;
    float mFloatVal;
    double mDoubleVal;
    std::string mStringVal;
    std::map<std::string, Json::Value> mObjectVal;
    std::vector<Json::Value> mArrayVal;
    bool mBoolVal;
};
static_assert(sameLayout<Json::Value, ValueMembers>);
static_assert(sameLayout<Json::Array, std::vector<Json::Value>>);
static_assert(sameLayout<Json::Object, std::map<std::string, Json::Value>>);

struct ParseErrorMembers
{
    std::size_t offset;
    std::size_t line;
    std::size_t column;
    std::string reason;
};
static_assert(sameLayout<Json::ParseError, ParseErrorMembers>);

// -------------------------------------------------------------------------------------------- Log

static_assert(sameLayout<Ilog::ILogPolicy, Virtual>);

struct FilePolicyMembers : Ilog::ILogPolicy
{
    std::string fileName;
    bool outputSet;
    std::shared_ptr<void> state;
};
static_assert(sameLayout<Ilog::FileLogPolicy, FilePolicyMembers>);

struct ConsolePolicyMembers : Ilog::ILogPolicy
{
    Ilog::LogType lineType;
};
static_assert(sameLayout<Ilog::ConsoleLogPolicy, ConsolePolicyMembers>);
static_assert(sameLayout<Ilog::ColoredLog, Ilog::ColorCode>);

template <typename Policy>
struct LoggerBaseMembers : Virtual
{
    Policy policy;
    struct Core
    {
        std::shared_ptr<void> state;
        const bool* enabled;
    } core;
};
static_assert(
    sameLayout<Ilog::LoggerBase<Ilog::FileLogPolicy>, LoggerBaseMembers<Ilog::FileLogPolicy>>);
static_assert(sameLayout<Ilog::LoggerBase<Ilog::ConsoleLogPolicy>,
                         LoggerBaseMembers<Ilog::ConsoleLogPolicy>>);

static_assert(sizeof(void*) != 8 || sizeof(Ilog::LoggerBase<Ilog::FileLogPolicy>) <= 640);

struct LoggerMembers : Interfaces::IgnitionOffMode
{
    void* fileLogger;
    void* consoleLogger;
};
static_assert(sameLayout<Ilog::Logger, LoggerMembers>);

struct LogLineMembers
{
    struct Text : std::streambuf
    {
        std::array<char, 256> inPlace;
        std::string grown;
        char* begin;
    };

    Ilog::LogType lineType;
    std::optional<LogModule> lineModule;
    Text text;
    std::ostream stream;
};
static_assert(sameLayout<Ilog::LogLine, LogLineMembers>);

}  // namespace
