#include <arpa/inet.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "oru/types.hpp"

namespace oru {
namespace {

constexpr std::string_view kSerialPrefix = "serial:";

/// The whole text as a number from 1 on that the type can hold.
template <class Number>
std::optional<Number> positiveNumber(std::string_view text) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && value > 0 ? std::optional(value) : std::nullopt;
}

bool isFileName(std::string_view text) {
    return text.find(':') == std::string_view::npos || text.find('/') != std::string_view::npos ||
           text.ends_with(".rlx") || text.ends_with(".rlx2");
}

bool isIpv6(std::string_view text) {
    in6_addr address{};
    const std::string digits(text.substr(0, text.find('%')));  // behind it the name of a network interface
    return inet_pton(AF_INET6, digits.c_str(), &address) == 1;
}

ERROR_CODE refuse(std::string_view text, const char* why, String& refusal) {
    refusal = "'" + std::string(text) + "' " + why;
    return INVALID_PARAMETER;
}

}  // namespace

ERROR_CODE InputType::fromText(const String& text, InputType& input, String& refusal) {
    const std::string_view all = text.get();
    if (all.empty()) {
        return refuse(all, "names no input: give a file, HOST:PORT, [IPV6]:PORT or serial:N", refusal);
    }
    if (all.starts_with(kSerialPrefix) && !isFileName(all)) {
        const auto serial = positiveNumber<unsigned>(all.substr(kSerialPrefix.size()));
        if (!serial) {
            return refuse(all, "has no serial number behind its colon: a whole number from 1 to 4294967295", refusal);
        }
        input.setFromSerialNumber(*serial);
        return SUCCESS;
    }
    if (isFileName(all)) {
        input.setFromFile(text);
        return SUCCESS;
    }
    const std::size_t colon = all.rfind(':');
    const std::string_view host = all.substr(0, colon);
    const bool bracketed = host.starts_with('[') && host.ends_with(']');
    const std::string_view name = bracketed ? host.substr(1, host.size() - 2) : host;
    if (bracketed ? !isIpv6(name) : name.empty() || name.find_first_of(":[]") != std::string_view::npos) {
        return refuse(all,
                      "names no host: write HOST:PORT, an IPv6 address as [IPV6]:PORT, and a file whose name has "
                      "a colon with its directory, as ./NAME",
                      refusal);
    }
    const auto port = positiveNumber<uint16_t>(all.substr(colon + 1));
    if (!port) {
        return refuse(all, "has no port behind its last colon: a whole number from 1 to 65535", refusal);
    }
    input.setFromStream(std::string(host), *port);
    return SUCCESS;
}

InputType::InputType(InputKind kind, String first, String second, bool set)
    : inputKind(kind), firstText(std::move(first)), secondText(std::move(second)), described(set) {}

void InputType::setFromFile(String path) {
    *this = InputType(KIND_RLX_FILE, std::move(path), {}, true);
}

void InputType::setFromStream(String ip, unsigned short port) {
    *this = InputType(KIND_STREAM, ip.get() + ":" + std::to_string(port), {}, true);
}

void InputType::setFromSerialNumber(unsigned serial) {
    *this = InputType(KIND_GMSL_SERIAL, std::to_string(serial), {}, true);
}

// The kit knows one bus and one type of camera on it, so neither is kept.
void InputType::setFromCameraID(int id, BUS_TYPE /*bus*/, CAMERA_TYPE /*type*/) {
    *this = InputType(KIND_GMSL_ID, std::to_string(id), {}, true);
}

}  // namespace oru
