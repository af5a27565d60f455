#pragma once

#include "tarnd/store/Contents.h"

#include <filesystem>

namespace tarnd {

class ContentFolder;

/// A content on its way into the folder. It keeps its temporary name as well until it is settled, which tells every
/// other process that it is not an orphan although no row names it yet.
class FileContentWriter final : public ContentWriter {
public:
    /// @throws ServiceError insufficientStorage, internal
    explicit FileContentWriter(ContentFolder& folder);
    ~FileContentWriter() override;

    void requireThere() override;
    void keep() noexcept override;
    void discard() noexcept override;

    /// Leaves both names: the next start asks the rows.
    void abandon() noexcept override;

private:
    void append(const void* data, std::size_t size) override;
    void makeDurable() override;

    ContentFolder& folder;
    std::filesystem::path temporary;
    std::filesystem::path published; ///< empty until it is durable
    UniqueFd file;
    bool settled = false;
};

} // namespace tarnd
