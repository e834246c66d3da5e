// The network utilities on a real driver, whose cable can be pulled.
#include <arpa/inet.h>
#include <cstring>
#include <fstream>
#include <net/if.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tolvex/Util/NetUtils.h"

#include "tests/Support/Board.h"
#include "tests/Support/Patience.h"

namespace {

using Tolvex::Support::Eventually;
using Tolvex::Support::IsOnBoard;
using Tolvex::Support::OnBoardTest;
using Tolvex::Support::TellEmulator;
using Tolvex::Util::CheckIfNetInterfaceIsPresent;
using Tolvex::Util::NetworkConnectivityCheck;
using Tolvex::Util::SetAddressOfNetInterfaceUsingSocket;
using Tolvex::Util::SetStatusOfNetInterfaceUsingSocket;

constexpr char interfaceName[] = "eth0";
constexpr char usualAddress[] = "10.0.2.15";
constexpr char usualMask[] = "255.255.255.0";

/// What the kernel answers to a request about the interface.
ifreq Ask(unsigned long request)
{
    ifreq answer{};
    std::strcpy(answer.ifr_name, interfaceName);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(ioctl(descriptor, request, &answer), 0) << std::strerror(errno);
    close(descriptor);
    return answer;
}

std::string AddressText(unsigned long request)
{
    const ifreq answer = Ask(request);
    sockaddr_in address{};
    std::memcpy(&address, &answer.ifr_addr, sizeof address);
    char text[INET_ADDRSTRLEN] = "";
    return inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
}

bool IsUp()
{
    return (Ask(SIOCGIFFLAGS).ifr_flags & IFF_UP) != 0;
}

/// @return whether a cable is plugged in; false also while the interface is down.
bool HasCarrier()
{
    int carrier = 0;
    std::ifstream("/sys/class/net/eth0/carrier") >> carrier;
    return carrier == 1;
}

class NetworkOnBoardTest : public OnBoardTest
{
protected:
    void SetUp() override
    {
        OnBoardTest::SetUp();
        if (!IsSkipped()) {
            Restore();
        }
    }

    void TearDown() override
    {
        if (IsOnBoard()) {
            Restore();
        }
    }

private:
    void Restore()
    {
        EXPECT_TRUE(TellEmulator("set_link net on"));
        EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, interfaceName), 0);
        EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket(interfaceName, usualAddress, usualMask), 0);
        EXPECT_TRUE(Eventually(&HasCarrier));
    }
};

TEST_F(NetworkOnBoardTest, InterfaceOfTheBoardIsPresentAlsoByTheBeginningOfItsName)
{
    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("eth0"));
    EXPECT_TRUE(CheckIfNetInterfaceIsPresent("eth"));
    EXPECT_FALSE(CheckIfNetInterfaceIsPresent("eth1"));
    EXPECT_FALSE(CheckIfNetInterfaceIsPresent("wlan"));
}

TEST_F(NetworkOnBoardTest, AddressAndMaskReachTheInterface)
{
    EXPECT_EQ(SetAddressOfNetInterfaceUsingSocket(interfaceName, "10.0.2.77", "255.255.0.0"), 0);

    EXPECT_EQ(AddressText(SIOCGIFADDR), "10.0.2.77");
    EXPECT_EQ(AddressText(SIOCGIFNETMASK), "255.255.0.0");
}

TEST_F(NetworkOnBoardTest, InterfaceGoesDownAndUp)
{
    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(2, interfaceName), 0);
    EXPECT_FALSE(IsUp());
    EXPECT_FALSE(HasCarrier());

    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, interfaceName), 0);
    EXPECT_TRUE(IsUp());
    EXPECT_TRUE(Eventually(&HasCarrier));
}

TEST_F(NetworkOnBoardTest, PulledCableLeavesTheInterfacePresentAndUp)
{
    ASSERT_TRUE(TellEmulator("set_link net off"));
    ASSERT_TRUE(Eventually([] { return !HasCarrier(); }));

    EXPECT_TRUE(CheckIfNetInterfaceIsPresent(interfaceName));
    EXPECT_TRUE(IsUp());
    EXPECT_EQ(AddressText(SIOCGIFADDR), usualAddress);
    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(1, interfaceName), 0);
}

TEST_F(NetworkOnBoardTest, HostIsReachedOnlyWithTheCablePluggedAndTheInterfaceUp)
{
    EXPECT_TRUE(Eventually(&NetworkConnectivityCheck));

    ASSERT_TRUE(TellEmulator("set_link net off"));
    ASSERT_TRUE(Eventually([] { return !HasCarrier(); }));
    EXPECT_FALSE(NetworkConnectivityCheck());

    ASSERT_TRUE(TellEmulator("set_link net on"));
    ASSERT_TRUE(Eventually(&HasCarrier));
    EXPECT_TRUE(Eventually(&NetworkConnectivityCheck));

    EXPECT_EQ(SetStatusOfNetInterfaceUsingSocket(0, interfaceName), 0);
    EXPECT_FALSE(NetworkConnectivityCheck());
}

}  // namespace
