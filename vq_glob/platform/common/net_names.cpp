// Host names to IPv4 addresses, the same on both backends: getaddrinfo
// exists on both, only its header differs.
#include "platform/platform.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif

int32_t plat_net_lookup_host(const char *name, uint32_t *address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(name, nullptr, &hints, &found);
    if (error != 0) {
        return error;
    }
    int32_t result = EAI_NONAME;
    for (const addrinfo *entry = found; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET && entry->ai_addrlen >= sizeof(sockaddr_in)) {
            *address = reinterpret_cast<const sockaddr_in *>(entry->ai_addr)->sin_addr.s_addr;
            result = 0;
            break;
        }
    }
    freeaddrinfo(found);
    return result;
}
