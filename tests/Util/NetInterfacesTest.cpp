// The network utilities on the real kernel, in private network namespaces.

#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <net/if.h>
#include <netinet/in.h>
#include <new>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/NetUtils.h"

#include "tests/Support/AddressError.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/Namespaces.h"

namespace {

using Tolvex::Ilog::Logger;
using Tolvex::Support::AllocationLimit;
using Tolvex::Support::ChildResult;
using Tolvex::Support::EnterPrivateMountNamespace;
using Tolvex::Support::EnterPrivateNetworkNamespace;
using Tolvex::Support::LogFile;
using Tolvex::Support::MountEmptyDirectory;
using Tolvex::Support::RunInChild;
using Tolvex::Support::StartChild;
using Tolvex::Support::TextThrown;
using Tolvex::Util::CheckIfNetInterfaceIsPresent;
using Tolvex::Util::connectivityHost;
using Tolvex::Util::NetworkConnectivityCheck;
using Tolvex::Util::SetAddressOfNetInterfaceUsingSocket;
using Tolvex::Util::SetStatusOfNetInterfaceUsingSocket;
using Lines = std::vector<std::string>;

/// Name of 15 characters, the longest that the kernel accepts.
constexpr char longestName[] = "tolvexlongest15";

// ---------------------------------------------------------- what the kernel says of an interface

ifreq AskKernel(const char* name, unsigned long code)
{
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    if (ioctl(descriptor, code, &request) != 0) {
        request = {};
    }
    close(descriptor);
    return request;
}

bool IsUp(const char* name)
{
    return (AskKernel(name, SIOCGIFFLAGS).ifr_flags & IFF_UP) != 0;
}

std::string AddressOf(const char* name, unsigned long code)
{
    const ifreq answer = AskKernel(name, code);
    if (answer.ifr_addr.sa_family != AF_INET) {
        return "none";
    }
    sockaddr_in address{};
    std::memcpy(&address, &answer.ifr_addr, sizeof address);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

// ------------------------------------------------------------------------------------- fixtures

bool MakePair(const std::string& first, const std::string& second)
{
    const std::string command = "ip link add " + first + " type veth peer name " + second;
    return std::system(command.c_str()) == 0;
}

bool HasProgram(const std::string& name)
{
    return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

class NetInterfacesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const ChildResult child = RunInChild(
            [] { return EnterPrivateMountNamespace() && EnterPrivateNetworkNamespace() ? 0 : 1; });
        if (!child.Succeeded()) {
            GTEST_SKIP() << "needs the right to make namespaces: network interfaces of its own";
        }
        if (!HasProgram("ip") || !HasProgram("ping")) {
            FAIL() << "ip or ping is missing: install iproute2 and iputils-ping";
        }
        if (!RunInChild([] {
                 return EnterPrivateNetworkNamespace() && MakePair("tolvex0", "tolvex1") ? 0 : 1;
             }).Succeeded()) {
            GTEST_SKIP() << "needs a kernel with veth interfaces";
        }
    }

    /// Runs work in a private network with tolvex0, tolvex1 and two interfaces with longer names.
    template <typename Work>
    static void RunOnNetwork(Work work)
    {
        const ChildResult child = RunInChild([&work] {
            EXPECT_TRUE(EnterPrivateNetworkNamespace() && MakePair("tolvex0", "tolvex1") &&
                        MakePair(longestName, "wlan0"));
            if (!testing::Test::HasFailure()) {
                work();
            }
            return 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }
};

// --------------------------------------------------------------------------------------- status

TEST_F(NetInterfacesTest, StatusOneSwitchesUpAndLogsTheAttempt)
{
    RunOnNetwork([] {
        LogFile log;
        EXPECT_FALSE(IsUp("tolvex0"));

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "tolvex0"), 0);

        EXPECT_TRUE(IsUp("tolvex0"));
        EXPECT_FALSE(IsUp("tolvex1"));
        EXPECT_EQ(log.TakeLines(),
                  Lines{"[#WNET][NET] Try set status 1 of net interface [tolvex0]"});
    });
}

TEST_F(NetInterfacesTest, AnyOtherStatusSwitchesDown)
{
    RunOnNetwork([] {
        LogFile log;
        for (const int status : {0, 2, -1}) {
            EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "tolvex0"), 0);
            EXPECT_TRUE(IsUp("tolvex0"));

            EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(status, "tolvex0"), 0);

            EXPECT_FALSE(IsUp("tolvex0"));
        }
        const Lines lines = log.TakeLines();
        ASSERT_EQ(lines.size(), 6U);
        EXPECT_EQ(lines[1], "[#WNET][NET] Try set status 0 of net interface [tolvex0]");
        EXPECT_EQ(lines[3], "[#WNET][NET] Try set status 2 of net interface [tolvex0]");
        EXPECT_EQ(lines[5], "[#WNET][NET] Try set status -1 of net interface [tolvex0]");
    });
}

TEST_F(NetInterfacesTest, MissingInterfaceIsLoggedWithTheSystemsText)
{
    RunOnNetwork([] {
        LogFile log;

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "none0"), -1);

        EXPECT_EQ(log.TakeLines(),
                  (Lines{"[#WNET][NET] Try set status 1 of net interface [none0]",
                         "[ERROR][#WNET][NET] Failed to get flags (2), No such device"}));
    });
}

TEST_F(NetInterfacesTest, NullNameIsAnEmptyOneThatNoInterfaceHas)
{
    RunOnNetwork([] {
        LogFile log;

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, nullptr), -1);

        EXPECT_EQ(log.TakeLines(),
                  (Lines{"[#WNET][NET] Try set status 1 of net interface []",
                         "[ERROR][#WNET][NET] Failed to get flags (2), No such device"}));
    });
}

TEST_F(NetInterfacesTest, StatusWithoutRightsIsLoggedWithTheSystemsText)
{
    RunOnNetwork([] {
        constexpr uid_t nobody = 65534;
        ASSERT_EQ(setresuid(nobody, nobody, nobody), 0);
        LogFile log;

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "tolvex0"), -1);

        EXPECT_FALSE(IsUp("tolvex0"));
        EXPECT_EQ(log.TakeLines(),
                  (Lines{"[#WNET][NET] Try set status 1 of net interface [tolvex0]",
                         "[ERROR][#WNET][NET] Failed to set flags (1) Operation not permitted"}));
    });
}

TEST_F(NetInterfacesTest, NameOfSixteenCharactersIsThatOfItsFirstFifteenToTheKernel)
{
    RunOnNetwork([] {
        LogFile log;
        const std::string sixteen = std::string(longestName) + "6";

        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, sixteen.c_str()), 0);

        EXPECT_TRUE(IsUp(longestName));
        EXPECT_EQ(log.TakeLines(),
                  Lines{"[#WNET][NET] Try set status 1 of net interface [" + sixteen + "]"});
        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket(sixteen.c_str(), "10.77.1.1", "255.0.0.0"),
                  0);
        EXPECT_EQ(AddressOf(longestName, SIOCGIFADDR), "10.77.1.1");
    });
}

TEST_F(NetInterfacesTest, StatusIsSetWithoutAnyLoggerEnabled)
{
    RunOnNetwork([] {
        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "tolvex0"), 0);
        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, "none0"), -1);
        EXPECT_TRUE(IsUp("tolvex0"));
    });
}

TEST(NetInterfaceMemoryTest, NothingIsThrownWithoutMemoryForALogger)
{
    const ChildResult child = RunInChild([] {
        bool isWithoutLogger = false;
        int result = 0;
        {
            const AllocationLimit limit(0);
            try {
                Logger::GetInstance();
            } catch (const std::bad_alloc&) {
                isWithoutLogger = true;
            }
            result = SetStatusOfNetInterfaceUsingSocket(1, "none0");
        }
        EXPECT_TRUE(isWithoutLogger);
        EXPECT_EQ(result, -1);
        return 0;
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

// -------------------------------------------------------------------------------------- address

TEST_F(NetInterfacesTest, AddressAndNetmaskAreSetAndReplaced)
{
    RunOnNetwork([] {
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFADDR), "none");

        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("tolvex0", "10.77.0.1", "255.255.255.0"), 0);
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFADDR), "10.77.0.1");
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFNETMASK), "255.255.255.0");

        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("tolvex0", "192.168.7.9", "255.255.0.0"), 0);
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFADDR), "192.168.7.9");
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFNETMASK), "255.255.0.0");
        EXPECT_EQ(AddressOf("tolvex1", SIOCGIFADDR), "none");
    });
}

TEST_F(NetInterfacesTest, AddressThatIsNoDottedQuadTakesTheAddressAway)
{
    RunOnNetwork([] {
        SetAddressOfNetInterfaceUsingSocket("tolvex0", "10.77.0.1", "255.255.255.0");

        // The kernel accepts 0.0.0.0 and then has no address to set the netmask of.
        EXPECT_EQ(TextThrown("tolvex0", "abc", "255.255.255.0"),
                  "Failed to set netmask address Cannot assign requested address");

        const std::string address = AddressOf("tolvex0", SIOCGIFADDR);
        EXPECT_TRUE(address == "none" || address == "0.0.0.0") << address;
    });
}

TEST_F(NetInterfacesTest, NetmaskThatIsNoDottedQuadSetsZero)
{
    RunOnNetwork([] {
        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("tolvex0", "10.77.0.1", "abc"), 0);
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFADDR), "10.77.0.1");
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFNETMASK), "0.0.0.0");
    });
}

TEST_F(NetInterfacesTest, AddressOfAMissingInterfaceIsThrownAndNotLogged)
{
    RunOnNetwork([] {
        LogFile log;
        EXPECT_EQ(TextThrown("none0", "10.77.0.1", "255.255.255.0"),
                  "Failed to set IP address No such device");
        EXPECT_EQ(log.TakeLines(), Lines{});
        EXPECT_EQ(TextThrown(nullptr, "10.77.0.1", "255.255.255.0"),
                  "Failed to set IP address No such device");
    });
}

TEST_F(NetInterfacesTest, NetmaskWithHolesIsThrownWithTheSystemsText)
{
    RunOnNetwork([] {
        EXPECT_EQ(TextThrown("tolvex0", "10.77.0.1", "255.0.255.0"),
                  "Failed to set netmask address Invalid argument");
        EXPECT_EQ(AddressOf("tolvex0", SIOCGIFADDR), "10.77.0.1");
    });
}

TEST_F(NetInterfacesTest, AddressWithoutRightsIsThrownWithTheSystemsText)
{
    RunOnNetwork([] {
        constexpr uid_t nobody = 65534;
        ASSERT_EQ(setresuid(nobody, nobody, nobody), 0);

        EXPECT_EQ(TextThrown("tolvex0", "10.77.0.1", "255.255.255.0"),
                  "Failed to set IP address Operation not permitted");
    });
}

TEST_F(NetInterfacesTest, FailuresLeaveNoDescriptorOpenButZero)
{
    RunOnNetwork([] {
        struct stat status = {};
        const int before = dup(STDERR_FILENO);  // the lowest free descriptor
        close(before);

        for (int turn = 0; turn < 3; ++turn) {
            TextThrown("none0", "10.77.0.1", "255.255.255.0");
            SetStatusOfNetInterfaceUsingSocket(1, "none0");
        }
        const int after = dup(STDERR_FILENO);
        EXPECT_EQ(after, before);
        close(after);

        close(STDIN_FILENO);
        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket("tolvex0", "10.77.0.1", "255.0.0.0"), 0);
        EXPECT_NE(fstat(STDIN_FILENO, &status), 0);
        TextThrown("none0", "10.77.0.1", "255.255.255.0");
        EXPECT_EQ(fstat(STDIN_FILENO, &status), 0);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
    });
}

// ------------------------------------------------------------------------------------- presence

TEST_F(NetInterfacesTest, InterfaceIsPresentByTheBeginningOfItsName)
{
    RunOnNetwork([] {
        EXPECT_TRUE(CheckIfNetInterfaceIsPresent("wlan"));
        EXPECT_TRUE(CheckIfNetInterfaceIsPresent("wlan0"));
        EXPECT_TRUE(CheckIfNetInterfaceIsPresent("tolvex"));
        EXPECT_TRUE(CheckIfNetInterfaceIsPresent(longestName));
        EXPECT_TRUE(CheckIfNetInterfaceIsPresent(""));
        EXPECT_TRUE(CheckIfNetInterfaceIsPresent(nullptr));
    });
}

TEST_F(NetInterfacesTest, AbsentInterfaceIsReportedOnStandardOutputAndNotInTheLog)
{
    const ChildResult child = RunInChild([] {
        EXPECT_TRUE(EnterPrivateNetworkNamespace());
        LogFile log;
        EXPECT_FALSE(CheckIfNetInterfaceIsPresent("wlan"));
        EXPECT_FALSE(CheckIfNetInterfaceIsPresent("lo0"));
        EXPECT_EQ(log.TakeLines(), Lines{});
        return 0;
    });

    EXPECT_TRUE(child.Succeeded());
    EXPECT_EQ(child.output, "[NET] is not present\n[NET] is not present\n");
}

// --------------------------------------------------------------------------------- connectivity

/// Gives the pinged host the address; null for none. No other name can be resolved.
bool MapHost(const char* address)
{
    std::ofstream("/etc/nsswitch.conf") << "hosts: files\n";
    std::ofstream hosts("/etc/hosts");
    if (address != nullptr) {
        hosts << address << ' ' << connectivityHost << '\n';
    }
    return hosts.good();
}

/// One end of the cable: a process with a network, an /etc and an address of its own.
bool EnterEnd(const char* addressOfTheOther)
{
    return EnterPrivateMountNamespace() && EnterPrivateNetworkNamespace() &&
           MountEmptyDirectory("/etc") && MapHost(addressOfTheOther);
}

bool Configure(const char* interface, const char* address)
{
    return SetAddressOfNetInterfaceUsingSocket(interface, address, "255.255.255.0") == 0 &&
           SetStatusOfNetInterfaceUsingSocket(1, interface) == 0;
}

/// Two processes that take turns.
class Turns
{
public:
    Turns() { isOpen = pipe(forth.data()) == 0 && pipe(back.data()) == 0; }

    bool IsOpen() const { return isOpen; }
    void Give() { isOpen = write(forth[1], "x", 1) == 1; }
    bool Await() { return read(back[0], &turn, 1) == 1; }
    /// Call it in the other process.
    void Swap() { std::swap(forth, back); }

private:
    std::array<int, 2> forth{};
    std::array<int, 2> back{};
    bool isOpen = false;
    char turn = 0;
};

/// The far end: waits for its turn, comes up, pings the near end, and stays until it is killed.
[[noreturn]] void RunFarEnd(Turns turns)
{
    turns.Swap();
    bool isWell = EnterEnd("10.77.0.1");
    turns.Give();
    isWell = isWell && turns.Await() && Configure("far", "10.77.0.2");
    turns.Give();
    isWell = isWell && NetworkConnectivityCheck();
    if (isWell) {
        turns.Give();
    }
    pause();
    _exit(0);
}

int CheckConnectivityOfTwoEnds()
{
    Turns turns;
    EXPECT_TRUE(turns.IsOpen());
    const pid_t farEnd = StartChild([&turns]() -> int { RunFarEnd(turns); });

    EXPECT_TRUE(EnterEnd("10.77.0.2"));
    EXPECT_TRUE(turns.Await());
    EXPECT_TRUE(MakePair("near", "far netns " + std::to_string(farEnd)));
    EXPECT_TRUE(Configure("near", "10.77.0.1"));
    turns.Give();
    EXPECT_TRUE(turns.Await());

    EXPECT_TRUE(NetworkConnectivityCheck()) << "near end to far end";
    EXPECT_TRUE(turns.Await()) << "far end to near end";

    EXPECT_TRUE(MapHost("192.0.2.1"));
    EXPECT_FALSE(NetworkConnectivityCheck()) << "no route leads to the address";
    EXPECT_TRUE(MapHost(nullptr));
    EXPECT_FALSE(NetworkConnectivityCheck()) << "the name cannot be resolved";

    kill(farEnd, SIGKILL);
    waitpid(farEnd, nullptr, 0);
    return 0;
}

TEST_F(NetInterfacesTest, ConnectivityIsThatOfTheMappedHostBothWays)
{
    const ChildResult child = RunInChild(CheckConnectivityOfTwoEnds);

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(child.output, "") << "ping's output is discarded";
}

}  // namespace
