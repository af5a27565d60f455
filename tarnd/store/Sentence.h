#pragma once

#include "tarnd/store/ServiceError.h"

#include <cassert>
#include <initializer_list>
#include <string>
#include <string_view>

namespace tarnd {

/// One way to fail: its kind and what the caller is told. Every "{}" stands for a value given when it is
/// thrown: `throw sentences::unknownUser(name)`.
struct Sentence {
    ServiceError::Kind kind;
    std::string_view reason; ///< its name for programs, which stays when the text is reworded
    std::string_view text;

    /// The error, with the values in the places of the "{}", in their order.
    template <class... Values>
    ServiceError operator()(const Values&... values) const
    {
        return {kind, reason, filled({std::string(values)...})};
    }

    /// The error, with a detail for the log that the caller is not told.
    ServiceError because(std::string detail) const
    {
        return {kind, reason, std::string(text), std::move(detail)};
    }

private:
    std::string filled(std::initializer_list<std::string> values) const
    {
        std::string sentence;
        auto rest = text;
        for (const auto& value : values) {
            const auto place = rest.find("{}");
            assert(place != rest.npos);
            sentence.append(rest.substr(0, place)).append(value);
            rest.remove_prefix(place + 2);
        }
        return sentence.append(rest);
    }
};

} // namespace tarnd
