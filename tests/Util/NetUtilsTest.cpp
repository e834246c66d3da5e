// The calls of the network utilities, and their reactions to failures that the kernel cannot be
// made to show. NetInterfacesTest works on the kernel itself.

#include "Tolvex/Util/NetUtils.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Exception/IException.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/AddressError.h"
#include "tests/Support/CancellableStack.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/RealFunction.h"

// ------------------------------------------------------- stand-ins for the C library's functions

namespace {

using Tolvex::Support::RealFunction;
using Tolvex::Support::TextThrown;

constexpr int socketNumber = 1000;  ///< no descriptor of the test program

/// One ioctl().
struct Request
{
    int descriptor = -1;
    unsigned long code = 0;
    ifreq content{};

    std::string Address() const
    {
        sockaddr_in address{};
        std::memcpy(&address, &content.ifr_addr, sizeof address);
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
        return text;
    }
};

/// Records the calls of the replaced functions and tells them what to do. Without a Recording they
/// call the real ones.
struct Recording
{
    std::vector<std::string> commands;  ///< of system()
    int systemResult = 0;

    int socketResult = socketNumber;
    std::vector<int> socketArguments;
    int errnoAtSocket = -1;
    std::vector<int> closed;  ///< descriptors
    std::vector<Request> requests;
    unsigned long failingRequest = 0;
    int errorNumber = 0;  ///< of socket() and the failing request; 0 leaves errno alone
    short flagsOfInterface = 0;
    std::string badAddress;  ///< text for which inet_pton() returns a negative result

    bool listFails = false;
    ifaddrs* list = nullptr;
    std::vector<std::string> listCalls;  ///< "get", "free", "puts: <text>", in their order

    Recording() { current = this; }
    ~Recording() { current = nullptr; }

    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    int Fail() const
    {
        if (errorNumber != 0) {
            errno = errorNumber;
        }
        return -1;
    }

    static inline Recording* current = nullptr;
};

}  // namespace

extern "C" int system(const char* command)
{
    if (Recording::current == nullptr) {
        return RealFunction<int(const char*)>("system")(command);
    }
    Recording::current->commands.emplace_back(command);
    return Recording::current->systemResult;
}

extern "C" int socket(int domain, int type, int protocol) noexcept
{
    if (Recording::current == nullptr) {
        return RealFunction<int(int, int, int)>("socket")(domain, type, protocol);
    }
    Recording::current->errnoAtSocket = errno;
    Recording::current->socketArguments = {domain, type, protocol};
    const int result = Recording::current->socketResult;
    return result < 0 ? Recording::current->Fail() : result;
}

extern "C" int close(int descriptor)
{
    Recording* recording = Recording::current;
    if (recording == nullptr || descriptor != recording->socketResult) {
        return RealFunction<int(int)>("close")(descriptor);
    }
    recording->closed.push_back(descriptor);
    errno = EIO;           // must not appear in a message
    pthread_testcancel();  // as the real one does
    return 0;
}

extern "C" int ioctl(int descriptor, unsigned long code, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, code);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);

    Recording* recording = Recording::current;
    if (recording == nullptr) {
        return RealFunction<int(int, unsigned long, void*)>("ioctl")(descriptor, code, argument);
    }
    auto* content = static_cast<ifreq*>(argument);
    recording->requests.push_back({descriptor, code, *content});
    if (code == recording->failingRequest) {
        return recording->Fail();
    }
    if (code == SIOCGIFFLAGS) {
        content->ifr_flags = recording->flagsOfInterface;
    }
    return 0;
}

extern "C" int inet_pton(int family, const char* text, void* address) noexcept
{
    const Recording* recording = Recording::current;
    if (recording != nullptr && !recording->badAddress.empty() && recording->badAddress == text) {
        return recording->Fail();
    }
    return RealFunction<int(int, const char*, void*)>("inet_pton")(family, text, address);
}

extern "C" int getifaddrs(ifaddrs** list) noexcept
{
    Recording* recording = Recording::current;
    if (recording == nullptr) {
        return RealFunction<int(ifaddrs**)>("getifaddrs")(list);
    }
    recording->listCalls.emplace_back("get");
    if (recording->listFails) {
        return -1;  // and does not change the pointer
    }
    *list = recording->list;
    return 0;
}

extern "C" void freeifaddrs(ifaddrs* list) noexcept
{
    if (Recording::current == nullptr) {
        RealFunction<void(ifaddrs*)>("freeifaddrs")(list);
        return;
    }
    EXPECT_EQ(list, Recording::current->list);
    Recording::current->listCalls.emplace_back("free");
}

extern "C" int puts(const char* text)
{
    if (Recording::current == nullptr) {
        return RealFunction<int(const char*)>("puts")(text);
    }
    Recording::current->listCalls.push_back(std::string("puts: ") + text);
    return 0;
}

namespace {

using Tolvex::IException;
using Tolvex::Ilog::Logger;
using Tolvex::Support::CancellableStack;
using Tolvex::Support::ChildResult;
using Tolvex::Support::RunInChild;
using Tolvex::Util::CheckIfNetInterfaceIsPresent;
using Tolvex::Util::NetworkConnectivityCheck;
using Tolvex::Util::SetAddressOfNetInterfaceUsingSocket;
using Tolvex::Util::SetStatusOfNetInterfaceUsingSocket;
using Texts = std::vector<std::string>;

// -------------------------------------------------------------------------------- connectivity

TEST(NetworkConnectivityTest, PingIsRunByThisVeryCommand)
{
    Recording recording;

    EXPECT_TRUE(NetworkConnectivityCheck());

    EXPECT_EQ(recording.commands, Texts{"ping -c3 -s1 www.google.com 2>/dev/null > /dev/null"});
}

TEST(NetworkConnectivityTest, AnyStatusButZeroIsAFailure)
{
    for (const int status : {-1, 1, 9, 256, 512, 127 << 8}) {
        Recording recording;
        recording.systemResult = status;

        EXPECT_FALSE(NetworkConnectivityCheck());
    }
}

// ------------------------------------------------------------------------------------- presence

/// A list of interfaces with these names, in this order; null for an entry without a name.
class InterfaceEntries
{
public:
    explicit InterfaceEntries(std::vector<const char*> names) : texts(names.begin(), names.end())
    {
        entries.resize(texts.size());
        for (std::size_t index = 0; index < texts.size(); ++index) {
            // Only read.
            entries[index].ifa_name = const_cast<char*>(texts[index]);
            entries[index].ifa_next = index + 1 < entries.size() ? &entries[index + 1] : nullptr;
        }
    }

    ifaddrs* First() { return entries.data(); }

private:
    std::vector<const char*> texts;
    std::vector<ifaddrs> entries;
};

TEST(NetInterfacePresenceTest, BeginningOfANameIsEnough)
{
    InterfaceEntries entries({"lo", "wlan0", "eth0", "eth0"});
    Recording recording;
    recording.list = entries.First();

    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("wlan"));
    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("wlan0"));
    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("e"));
    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("lo"));
    EXPECT_EQ(recording.listCalls,
              (Texts{"get", "free", "get", "free", "get", "free", "get", "free"}));
}

TEST(NetInterfacePresenceTest, LongerOrOtherNameIsNotPresent)
{
    InterfaceEntries entries({"lo", "wlan0"});

    for (const char* name : {"wlan00", "wlan1", "lan0", "WLAN0", "wlan0 "}) {
        Recording recording;
        recording.list = entries.First();

        EXPECT_FALSE(CheckIfNetInterfaceIsPresent(name));

        EXPECT_EQ(recording.listCalls, (Texts{"get", "free", "puts: [NET] is not present"}));
    }
}

TEST(NetInterfacePresenceTest, EmptyNameFindsAnyInterface)
{
    InterfaceEntries entries({"lo"});
    Recording recording;
    recording.list = entries.First();

    EXPECT_TRUE(CheckIfNetInterfaceIsPresent(""));
    EXPECT_TRUE(CheckIfNetInterfaceIsPresent(nullptr));
}

TEST(NetInterfacePresenceTest, EntryWithoutANameIsPassedOver)
{
    InterfaceEntries entries({nullptr, "lo"});
    Recording recording;
    recording.list = entries.First();

    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("lo"));
    EXPECT_FALSE(CheckIfNetInterfaceIsPresent("eth"));
}

TEST(NetInterfacePresenceTest, SystemWithoutInterfacesHasNotEvenTheEmptyName)
{
    Recording recording;

    EXPECT_FALSE(CheckIfNetInterfaceIsPresent(""));

    EXPECT_EQ(recording.listCalls, (Texts{"get", "puts: [NET] is not present"}));
}

TEST(NetInterfacePresenceTest, FailureToListIsIgnoredAndFindsNothing)
{
    Recording recording;
    recording.listFails = true;

    EXPECT_FALSE(CheckIfNetInterfaceIsPresent("lo"));

    EXPECT_EQ(recording.listCalls, (Texts{"get", "puts: [NET] is not present"}));
}

// -------------------------------------------------------------------------------------- address

TEST(NetInterfaceAddressTest, AddressIsSetBeforeTheNetmaskThroughOneSocket)
{
    Recording recording;

    EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("eth0", "10.1.2.3", "255.255.0.0"), 0);

    EXPECT_EQ(recording.socketArguments, (std::vector<int>{AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0}));
    ASSERT_EQ(recording.requests.size(), 2U);
    EXPECT_EQ(recording.requests[0].code, 0UL + SIOCSIFADDR);
    EXPECT_EQ(recording.requests[0].Address(), "10.1.2.3");
    EXPECT_EQ(recording.requests[1].code, 0UL + SIOCSIFNETMASK);
    EXPECT_EQ(recording.requests[1].Address(), "255.255.0.0");
    for (const Request& request : recording.requests) {
        EXPECT_EQ(request.descriptor, socketNumber);
        EXPECT_STREQ(request.content.ifr_name, "eth0");
        EXPECT_EQ(request.content.ifr_addr.sa_family, AF_INET);
    }
    EXPECT_EQ(recording.closed, std::vector<int>{socketNumber});
}

TEST(NetInterfaceAddressTest, BytesThatARequestDoesNotUseAreZero)
{
    Recording recording;

    SetAddressOfNetInterfaceUsingSocket("e", "255.255.255.255", "0.0.0.0");

    ASSERT_EQ(recording.requests.size(), 2U);
    ifreq expected{};
    expected.ifr_name[0] = 'e';
    expected.ifr_addr.sa_family = AF_INET;
    using Bytes = std::array<unsigned char, sizeof(ifreq)>;
    EXPECT_EQ(std::bit_cast<Bytes>(recording.requests[1].content), std::bit_cast<Bytes>(expected));
}

TEST(NetInterfaceAddressTest, NameOfSixteenCharactersIsLeftWithoutATerminator)
{
    for (const char* name :
         {"abcdefghijklmnop", "abcdefghijklmnopq", "abcdefghijklmnopqrstuvwxyz"}) {
        Recording recording;

        SetAddressOfNetInterfaceUsingSocket(name, "10.1.2.3", "255.0.0.0");

        for (const Request& request : recording.requests) {
            EXPECT_EQ(std::string(request.content.ifr_name, IFNAMSIZ), "abcdefghijklmnop");
            EXPECT_EQ(request.content.ifr_addr.sa_family, AF_INET);
        }
    }
}

TEST(NetInterfaceAddressTest, TextThatIsNoDottedQuadSetsZeroRatherThanFailing)
{
    for (const char* text : {"abc", "", "10.1.2", "10.1.2.3.4", "10.1.2.256", "::1", " 10.1.2.3"}) {
        Recording recording;

        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("eth0", text, text), 0);

        ASSERT_EQ(recording.requests.size(), 2U);
        EXPECT_EQ(recording.requests[0].Address(), "0.0.0.0");
        EXPECT_EQ(recording.requests[1].Address(), "0.0.0.0");
    }
}

TEST(NetInterfaceAddressTest, NullTextsAreEmptyOnes)
{
    Recording recording;

    EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket(nullptr, nullptr, nullptr), 0);

    ASSERT_EQ(recording.requests.size(), 2U);
    EXPECT_STREQ(recording.requests[0].content.ifr_name, "");
    EXPECT_EQ(recording.requests[0].Address(), "0.0.0.0");
}

TEST(NetInterfaceAddressTest, SocketThatCannotBeOpenedIsThrownAndNothingClosed)
{
    Recording recording;
    recording.socketResult = -1;
    recording.errorNumber = EMFILE;

    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"),
              "Failed to set socket Too many open files");

    EXPECT_TRUE(recording.requests.empty());
    EXPECT_TRUE(recording.closed.empty());
}

TEST(NetInterfaceAddressTest, AddressThatTheKernelRefusesIsThrownAfterTheSocketIsClosed)
{
    Recording recording;
    recording.failingRequest = SIOCSIFADDR;
    recording.errorNumber = ENODEV;

    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"),
              "Failed to set IP address No such device");

    EXPECT_EQ(recording.requests.size(), 1U);
    EXPECT_EQ(recording.closed, std::vector<int>{socketNumber});
}

TEST(NetInterfaceAddressTest, NetmaskThatTheKernelRefusesIsThrownAfterTheSocketIsClosed)
{
    Recording recording;
    recording.failingRequest = SIOCSIFNETMASK;
    recording.errorNumber = EINVAL;

    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"),
              "Failed to set netmask address Invalid argument");

    EXPECT_EQ(recording.requests.size(), 2U);
    EXPECT_EQ(recording.closed, std::vector<int>{socketNumber});
}

TEST(NetInterfaceAddressTest, NegativeResultOfTheFormattingIsThrown)
{
    Recording recording;
    recording.errorNumber = EAFNOSUPPORT;

    recording.badAddress = "10.1.2.3";
    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"),
              "Failed to format IP address, Address family not supported by protocol");
    EXPECT_TRUE(recording.requests.empty());

    recording.badAddress = "255.0.0.0";
    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"),
              "Failed to format netmask address Address family not supported by protocol");
    EXPECT_EQ(recording.requests.size(), 1U);

    EXPECT_EQ(recording.closed, (std::vector<int>{socketNumber, socketNumber}));
}

TEST(NetInterfaceAddressTest, ErrorNumberOfAnEarlierCallDoesNotGetIntoTheText)
{
    Recording recording;
    recording.socketResult = -1;
    errno = EIO;

    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"), "Failed to set socket Success");
}

TEST(NetInterfaceAddressTest, DescriptorZeroStaysOpenOnFailureAndIsClosedOnSuccess)
{
    Recording recording;
    recording.socketResult = 0;
    recording.errorNumber = ENODEV;

    recording.failingRequest = SIOCSIFADDR;
    EXPECT_EQ(TextThrown("eth0", "10.1.2.3", "255.0.0.0"),
              "Failed to set IP address No such device");
    EXPECT_TRUE(recording.closed.empty());

    recording.failingRequest = 0;
    EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("eth0", "10.1.2.3", "255.0.0.0"), 0);
    EXPECT_EQ(recording.closed, std::vector<int>{0});
}

// --------------------------------------------------------------------------------------- status

/// With the highest bit, which makes the number negative.
constexpr auto otherFlags =
    static_cast<short>(IFF_BROADCAST | IFF_MULTICAST | IFF_PROMISC | IFF_DYNAMIC);

TEST(NetInterfaceStatusTest, StatusOneAddsTheTwoFlagsToThoseOfTheInterface)
{
    Recording recording;
    recording.flagsOfInterface = otherFlags;

    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "eth0"), 0);

    EXPECT_EQ(recording.socketArguments, (std::vector<int>{AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0}));
    ASSERT_EQ(recording.requests.size(), 2U);
    EXPECT_EQ(recording.requests[0].code, 0UL + SIOCGIFFLAGS);
    EXPECT_EQ(recording.requests[1].code, 0UL + SIOCSIFFLAGS);
    EXPECT_STREQ(recording.requests[0].content.ifr_name, "eth0");
    EXPECT_STREQ(recording.requests[1].content.ifr_name, "eth0");
    EXPECT_EQ(recording.requests[1].content.ifr_flags, otherFlags | 0x41);
    EXPECT_EQ(recording.closed, std::vector<int>{socketNumber});
}

TEST(NetInterfaceStatusTest, AnyStatusButOneClearsTheTwoFlags)
{
    for (const int status : {0, 2, -1, 257, INT_MAX, INT_MIN}) {
        Recording recording;
        recording.flagsOfInterface = static_cast<short>(otherFlags | 0x41);

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(status, "eth0"), 0);

        ASSERT_EQ(recording.requests.size(), 2U);
        EXPECT_EQ(recording.requests[1].content.ifr_flags, otherFlags);
        EXPECT_EQ(recording.closed, std::vector<int>{socketNumber});
    }
}

TEST(NetInterfaceStatusTest, FailureIsAResultAndClosesTheSocket)
{
    for (const unsigned long code : {0UL + SIOCGIFFLAGS, 0UL + SIOCSIFFLAGS}) {
        Recording recording;
        recording.failingRequest = code;
        recording.errorNumber = EPERM;

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "eth0"), -1);

        EXPECT_EQ(recording.requests.back().code, code);
        EXPECT_EQ(recording.closed, std::vector<int>{socketNumber});
    }
}

TEST(NetInterfaceStatusTest, SocketThatCannotBeOpenedIsAResultAndNothingClosed)
{
    Recording recording;
    recording.socketResult = -1;
    recording.errorNumber = EMFILE;

    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "eth0"), -1);

    EXPECT_TRUE(recording.requests.empty());
    EXPECT_TRUE(recording.closed.empty());
}

TEST(NetInterfaceStatusTest, SocketThatCannotBeOpenedIsLoggedWithTheSystemsText)
{
    const ChildResult child = RunInChild([] {
        Logger::GetInstance()->EnableConsole();
        Recording recording;
        recording.socketResult = -1;
        recording.errorNumber = EMFILE;

        SetStatusOfNetInterfaceUsingSocket(1, "eth0");

        Logger::GetInstance()->CloseConsole();
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    const std::size_t attempt =
        child.output.find("][#WNET][NET] Try set status 1 of net interface [eth0]\n");
    const std::size_t failure = child.output.find(
        "][ERROR][#WNET][NET] Failed to set socket Too many open files\n", attempt);
    EXPECT_NE(failure, std::string::npos) << child.output;
}

TEST(NetInterfaceStatusTest, DescriptorZeroStaysOpenOnFailureAndIsClosedOnSuccess)
{
    Recording recording;
    recording.socketResult = 0;
    recording.errorNumber = ENODEV;

    recording.failingRequest = SIOCGIFFLAGS;
    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "eth0"), -1);
    EXPECT_TRUE(recording.closed.empty());

    recording.failingRequest = 0;
    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "eth0"), 0);
    EXPECT_EQ(recording.closed, std::vector<int>{0});
}

TEST(NetInterfaceStatusTest, ErrorNumberOfAnEarlierCallIsCleared)
{
    Recording recording;
    errno = EIO;

    SetStatusOfNetInterfaceUsingSocket(1, "eth0");

    EXPECT_EQ(recording.errnoAtSocket, 0);
}

TEST(NetInterfaceStatusTest, NameOfSixteenCharactersIsLeftWithoutATerminator)
{
    Recording recording;

    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "abcdefghijklmnopq"), 0);

    ASSERT_EQ(recording.requests.size(), 2U);
    EXPECT_EQ(std::string(recording.requests[0].content.ifr_name, IFNAMSIZ), "abcdefghijklmnop");
}

// --------------------------------------------------------------------------------- cancellation

void* SetAddressesUntilCancelled(void*)
{
    const CancellableStack stack;
    for (;;) {
        try {
            SetAddressOfNetInterfaceUsingSocket("eth0", "10.1.2.3", "255.0.0.0");
        } catch (const IException&) {
            pthread_testcancel();
        }
        pthread_testcancel();
    }
}

void* LookForInterfaceWithACancellationPending(void*)
{
    const CancellableStack stack;
    pthread_cancel(pthread_self());
    CheckIfNetInterfaceIsPresent("");
    pthread_testcancel();
    return nullptr;
}

TEST(NetInterfacePresenceTest, CancellationEndsTheThreadAloneAndLeavesNoSocketOpen)
{
    const int before = dup(STDERR_FILENO);  // the lowest free descriptor
    close(before);
    pthread_t thread{};

    ASSERT_EQ(pthread_create(&thread, nullptr, LookForInterfaceWithACancellationPending, nullptr),
              0);
    void* result = nullptr;
    pthread_join(thread, &result);

    EXPECT_EQ(result, PTHREAD_CANCELED);
    const int after = dup(STDERR_FILENO);
    EXPECT_EQ(after, before);
    close(after);
}

TEST(NetInterfaceAddressTest, CancelledThreadLeavesNoSocketOpenInEitherOutcome)
{
    for (const unsigned long code : {0UL, 0UL + SIOCSIFADDR}) {
        Recording recording;
        recording.failingRequest = code;
        recording.errorNumber = ENODEV;
        pthread_t thread{};

        ASSERT_EQ(pthread_create(&thread, nullptr, SetAddressesUntilCancelled, nullptr), 0);
        pthread_cancel(thread);
        void* result = nullptr;
        pthread_join(thread, &result);

        EXPECT_EQ(result, PTHREAD_CANCELED);
        const auto opened =
            std::count_if(recording.requests.begin(), recording.requests.end(),
                          [](const Request& request) { return request.code == SIOCSIFADDR; });
        EXPECT_EQ(static_cast<std::ptrdiff_t>(recording.closed.size()), opened);
    }
}

}  // namespace
