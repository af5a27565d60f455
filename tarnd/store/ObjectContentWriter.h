#pragma once

#include "tarnd/store/Contents.h"
#include "tarnd/store/ObjectStore.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnd {

class ObjectContents;

/// A content on its way into an object store, passed on as it comes. What is large goes in parts. A small content, and
/// the parts of one whose size is not known, are gathered first: the store wants to know the length of what it gets.
class ObjectContentWriter final : public ContentWriter {
public:
    ObjectContentWriter(ObjectContents& contents, const std::string& id, std::optional<std::uint64_t> size);
    ~ObjectContentWriter() override;

    void requireThere() override;
    void keep() noexcept override;
    void discard() noexcept override;
    void abandon() noexcept override;

private:
    void append(const void* data, std::size_t size) override;
    void makeDurable() override;

    bool isInParts() const { return !expected || *expected > partSize; }

    std::uint64_t gatheredPart() const;
    void pass(const char* data, std::size_t size);
    void begin(std::uint64_t bytes);
    void finishRequest();

    ObjectContents& contents;
    ObjectStore& store;
    const std::optional<std::uint64_t> expected;
    const std::uint64_t partSize;
    const bool gathers;
    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    std::string gathered;
    std::unique_ptr<ObjectExchange> request; ///< under way
    std::uint64_t leftOfRequest = 0;         ///< bytes that it still wants
    std::uint64_t passed = 0;                ///< bytes
    std::string uploadId;                    ///< of what goes in parts, once it was begun
    std::vector<std::string> tags;           ///< of the parts that are there
    bool sent = false;                       ///< something of it may be in the store
    bool settled = false;
};

} // namespace tarnd
