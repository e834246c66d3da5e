#include "Tolvex/Util/NetUtils.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/ErrorText.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/TextOrEmpty.h"
#include "Tolvex/Exception/IException.h"
#include "Tolvex/Log/LogLine.h"

namespace Tolvex::Util {

namespace {

using Ilog::LogLine;
using Ilog::LogType;

/// Throws the text, followed by the system's text for errno.
[[noreturn]] void Fail(const char* text)
{
    const std::string reason = Base::ErrorText(errno);
    throw IException((text + reason).c_str());
}

/// The socket through which the kernel takes interface requests; closed by Close() or on failure.
class InterfaceSocket
{
public:
    /// Closed on exec, so that programs that other threads start do not inherit it.
    InterfaceSocket() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        if (descriptor < 0) {
            Fail("Failed to set socket ");
        }
    }

    ~InterfaceSocket()
    {
        // Required: "> 0", so descriptor 0 stays open on failure.
        if (descriptor > 0) {
            Close();
        }
    }

    InterfaceSocket(const InterfaceSocket&) = delete;
    InterfaceSocket& operator=(const InterfaceSocket&) = delete;

    void Close()
    {
        const Base::NoCancellation scope;
        close(std::exchange(descriptor, -1));
    }

    /// Sends a request to the kernel. @throws IException with the text and the reason.
    void Send(unsigned long code, ifreq& request, const char* textOfFailure) const
    {
        if (ioctl(descriptor, code, &request) < 0) {
            Fail(textOfFailure);
        }
    }

private:
    int descriptor;
};

ifreq RequestFor(const char* name)
{
    ifreq request{};
    // Required: a name of 16 characters or more is stored without a terminator. The kernel uses the
    // first 15.
    std::memcpy(request.ifr_name, name, strnlen(name, sizeof request.ifr_name));
    return request;
}

ifreq RequestFor(const char* name, const char* address, const char* textOfFailure)
{
    sockaddr_in internetAddress{};
    internetAddress.sin_family = AF_INET;
    // Required: only a negative result is a failure. A text that is no address is accepted and sets
    // 0.0.0.0.
    if (inet_pton(AF_INET, address, &internetAddress.sin_addr) < 0) {
        Fail(textOfFailure);
    }

    ifreq request = RequestFor(name);
    std::memcpy(&request.ifr_addr, &internetAddress, sizeof internetAddress);
    return request;
}

void SwitchInterface(const char* name, bool up)
{
    InterfaceSocket interfaces;
    ifreq request = RequestFor(name);
    interfaces.Send(SIOCGIFFLAGS, request, "Failed to get flags (2), ");

    // Required text: there is a comma after "(2)" and none after "(1)".
    constexpr int upFlags = IFF_UP | IFF_RUNNING;
    const int flags = up ? request.ifr_flags | upFlags : request.ifr_flags & ~upFlags;
    request.ifr_flags = static_cast<short>(flags);
    interfaces.Send(SIOCSIFFLAGS, request, "Failed to set flags (1) ");
    interfaces.Close();
}

/// The kernel's interfaces, one entry for each address family of each.
class InterfaceList
{
public:
    InterfaceList()
    {
        // getifaddrs() is declared as throwing nothing, but has a cancellation point: a
        // cancellation in it would end the process.
        const Base::NoCancellation scope;
        // After a failure the list is empty.
        static_cast<void>(getifaddrs(&first));
    }

    ~InterfaceList()
    {
        if (first != nullptr) {
            freeifaddrs(first);
        }
    }

    InterfaceList(const InterfaceList&) = delete;
    InterfaceList& operator=(const InterfaceList&) = delete;

    bool HasNameThatBeginsWith(const char* text) const
    {
        for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
            const char* name = Base::TextOrEmpty(entry->ifa_name);
            if (std::strncmp(name, text, std::strlen(text)) == 0) {
                return true;
            }
        }
        return false;
    }

private:
    ifaddrs* first = nullptr;
};

/// Logs nothing if there is no memory for the line.
void LogFailure(const char* text)
{
    try {
        LogLine(LogType::Error, LogModule::WNET) << "[NET] " << text;
    } catch (const std::exception&) {
        // Best effort: there is no other way to report it.
    }
}

}  // namespace

bool NetworkConnectivityCheck()
{
    const std::string command =
        std::string("ping -c3 -s1 ") + connectivityHost + " 2>/dev/null > /dev/null";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc's version is safe.
    return std::system(command.c_str()) == 0;
}

bool CheckIfNetInterfaceIsPresent(const char* name)
{
    // Required: a name that begins with the text is enough.
    if (InterfaceList().HasNameThatBeginsWith(Base::TextOrEmpty(name))) {
        return true;
    }
    // Required: the message goes to standard output, not to the log, and lacks the name.
    std::puts("[NET] is not present");
    return false;
}

int SetAddressOfNetInterfaceUsingSocket(const char* name, const char* ip, const char* netmask)
{
    errno = 0;
    const char* interfaceName = Base::TextOrEmpty(name);
    InterfaceSocket interfaces;

    ifreq request =
        RequestFor(interfaceName, Base::TextOrEmpty(ip), "Failed to format IP address, ");
    interfaces.Send(SIOCSIFADDR, request, "Failed to set IP address ");

    request =
        RequestFor(interfaceName, Base::TextOrEmpty(netmask), "Failed to format netmask address ");
    interfaces.Send(SIOCSIFNETMASK, request, "Failed to set netmask address ");

    interfaces.Close();
    return 0;
}

int SetStatusOfNetInterfaceUsingSocket(int status, const char* name)
{
    errno = 0;
    try {
        const char* interfaceName = Base::TextOrEmpty(name);
        LogLine(LogType::Info, LogModule::WNET)
            << "[NET] Try set status " << status << " of net interface [" << interfaceName << "]";

        // Required: only 1 means up; any other number means down.
        SwitchInterface(interfaceName, status == 1);
        return 0;
    } catch (const std::exception& failure) {
        LogFailure(failure.what());
        return -1;
    }
}

}  // namespace Tolvex::Util
