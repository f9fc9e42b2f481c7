// Where clients reach the program: what --listen says.
#pragma once

#include <netinet/in.h>
#include <optional>
#include <string>

constexpr const char *DEFAULT_LISTEN_ADDRESS = "127.0.0.1:1971";

// Reads ADDRESS:PORT, an IPv4 address in numbers and 0 to 65535; nothing for any other text.
std::optional<sockaddr_in> parse_listen_address (const std::string &text);

std::string listen_address_text (const sockaddr_in &address);
