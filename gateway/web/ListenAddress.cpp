#include "gateway/web/ListenAddress.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace brenloft::web {
namespace {

constexpr int kWaiting = 128;  // connections that are not accepted yet

bool isAddress(int family, const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> octets{};
  return ::inet_pton(family, host.c_str(), octets.data()) == 1;
}

struct SocketPlace {
  sockaddr_storage address{};
  socklen_t size = 0;
};

SocketPlace placeOf(const std::string& host, bool isVersion6, uint16_t port) {
  SocketPlace place;
  if (isVersion6) {
    auto* to = reinterpret_cast<sockaddr_in6*>(&place.address);
    to->sin6_family = AF_INET6;
    to->sin6_port = htons(port);
    ::inet_pton(AF_INET6, host.c_str(), &to->sin6_addr);
    place.size = sizeof *to;
  } else {
    auto* to = reinterpret_cast<sockaddr_in*>(&place.address);
    to->sin_family = AF_INET;
    to->sin_port = htons(port);
    ::inet_pton(AF_INET, host.c_str(), &to->sin_addr);
    place.size = sizeof *to;
  }
  return place;
}

uint16_t portOf(int socket) {
  SocketPlace bound;
  bound.size = sizeof bound.address;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&bound.address), &bound.size);
  return ntohs(bound.address.ss_family == AF_INET6
                   ? reinterpret_cast<const sockaddr_in6*>(&bound.address)->sin6_port
                   : reinterpret_cast<const sockaddr_in*>(&bound.address)->sin_port);
}

}  // namespace

std::optional<ListenAddress> ListenAddress::fromText(std::string_view text) {
  ListenAddress address;
  std::string_view host = text;
  std::string_view port;
  const std::size_t bracket = text.starts_with('[') ? text.find(']') : 0;
  if (bracket == std::string_view::npos) return std::nullopt;
  const bool isBareVersion6 = bracket == 0 && text.find(':') != text.rfind(':');
  if (const std::size_t colon = text.find(':', bracket); colon != std::string_view::npos && !isBareVersion6) {
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (port.empty()) return std::nullopt;
  } else if (text.find_first_not_of("0123456789") == std::string_view::npos) {
    host = {};
    port = text;
  }
  if (bracket == 1) return std::nullopt;
  if (bracket > 0) host = host.substr(1, host.size() - 2);
  if (!port.empty()) {
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port_);
    if (error != std::errc() || end != port.data() + port.size()) return std::nullopt;
  }
  if (!host.empty() && host != "localhost") address.host_ = host;
  address.isVersion6_ = isAddress(AF_INET6, address.host_);
  if (text.empty() || (!address.isVersion6_ && !isAddress(AF_INET, address.host_))) return std::nullopt;
  return address;
}

bool ListenAddress::isLoopback() const {
  return isVersion6_ ? host_ == "::1" : host_.starts_with("127.");
}

std::string ListenAddress::text() const {
  return fmt::format("{}{}{}:{}", isVersion6_ ? "[" : "", host_, isVersion6_ ? "]" : "", port_);
}

platform::Result<int> ListenAddress::open() {
  const SocketPlace place = placeOf(host_, isVersion6_, port_);
  const int opened = ::socket(place.address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  const bool isListening =
      opened >= 0 && ::setsockopt(opened, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
      ::bind(opened, reinterpret_cast<const sockaddr*>(&place.address), place.size) == 0 &&
      ::listen(opened, kWaiting) == 0;
  if (isListening) {
    port_ = portOf(opened);
    return opened;
  }
  const platform::Error error{platform::Error::Kind::failed, std::generic_category().message(errno)};
  if (opened >= 0) ::close(opened);
  return error.in(text());
}

}  // namespace brenloft::web
