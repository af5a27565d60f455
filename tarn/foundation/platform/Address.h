#pragma once

#include <string>
#include <utility>

namespace connector {

/// Names the service provider that is to receive a message. Only the host that hands addresses out reads them.
class Address {
public:
    Address() = default;

    explicit Address(std::string text) : name(std::move(text)) {}

    const std::string& getName() const { return name; }

    friend bool operator==(const Address&, const Address&) = default;

private:
    std::string name;
};

} // namespace connector
