#include "chassis/launch/listen_address.h"

#include <arpa/inet.h>
#include <charconv>

std::optional<sockaddr_in> parse_listen_address (const std::string &text)
{
    size_t colon = text.find (':');
    std::string host = text.substr (0, colon);
    const char *digits = text.data () + host.size () + 1, *end = text.data () + text.size ();
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    if (colon == std::string::npos || inet_pton (AF_INET, host.c_str (), &address.sin_addr) != 1) {
        return std::nullopt;
    }
    uint16_t port = 0;
    auto [last, error] = std::from_chars (digits, end, port);
    if (error != std::errc () || last != end) {
        return std::nullopt;
    }
    address.sin_port = htons (port);
    return address;
}

std::string listen_address_text (const sockaddr_in &address)
{
    char host[INET_ADDRSTRLEN];
    inet_ntop (AF_INET, &address.sin_addr, host, sizeof (host));
    return std::string (host) + ":" + std::to_string (ntohs (address.sin_port));
}
