#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>

namespace oru::stream {

/// The IPv4 address of a host given by number or name. A name is looked up for at most `milliseconds`; what the
/// system's resolver finds after that is dropped.
std::optional<sockaddr_in> resolve(const std::string& host, uint16_t port, int milliseconds);

}  // namespace oru::stream
