#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>

namespace brimvale {

// 127.0.0.1 at `port`, for connecting to a server of our own.
inline sockaddr_in loopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace brimvale
