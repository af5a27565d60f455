#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tarnd {

/// The query of a request, decoded once.
///
/// A raw '+' stays a plus sign: the library encodes a space as "%20" and a plus as "%2B", so the
/// form-encoding rule could only ever damage a name.
class Parameters {
public:
    /// @param query what follows the '?', without it
    /// @throws ServiceError badRequest for broken escapes and for a name that occurs twice
    explicit Parameters(std::string_view query);

    /// The value, empty when the parameter is absent.
    std::string text(std::string_view name) const;

    /// @throws ServiceError badRequest when the parameter is absent
    std::string required(std::string_view name) const;

    /// "true" or "false"; absent is false. @throws ServiceError badRequest for anything else
    bool flag(std::string_view name) const;

    /// A signed decimal number; nothing when the parameter is absent or empty. @throws ServiceError badRequest
    std::optional<std::int64_t> number(std::string_view name) const;

    bool has(std::string_view name) const { return values.find(name) != values.end(); }

private:
    std::map<std::string, std::string, std::less<>> values;
};

} // namespace tarnd
