#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

/// What the fuzzer calls, and the replay of the seeds: one input of any bytes; aborts when it breaks a promise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tarnfuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

/// Cuts the text up to `end` off the front of `text`; all of it when there is no `end`.
inline std::string_view cut(std::string_view& text, char end)
{
    const auto front = text.substr(0, text.find(end));
    text.remove_prefix(front.size() == text.size() ? front.size() : front.size() + 1);
    return front;
}

/// Ends the program where `kept` does not hold; the fuzzer then keeps the input.
inline void require(bool kept, const char* promise)
{
    if (kept) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

} // namespace tarnfuzz
