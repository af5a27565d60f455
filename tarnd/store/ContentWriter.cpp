#include "tarnd/store/ContentWriter.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/FileSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace tarnd {

ContentWriter::ContentWriter(ContentFolder& folder)
    : folder(folder)
    , contentId(folder.newId())
    , temporary(folder.ownUploads() / contentId)
    , file(::open(temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600))
{
    if (!file) throw systemError(temporary);
}

ContentWriter::~ContentWriter()
{
    discard();
}

void ContentWriter::discard() noexcept
{
    if (std::exchange(settled, true)) return;
    if (!published.empty()) ::unlink(published.c_str());
    ::unlink(temporary.c_str());
}

void ContentWriter::write(const void* data, std::size_t size)
{
    digest.update(data, size);
    total += size;
    for (auto at = static_cast<const char*>(data); size > 0;) {
        const auto written = ::write(file.get(), at, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw systemError(temporary);
        at += written;
        size -= static_cast<std::size_t>(written);
    }
}

/// The bytes are on the disk before the name is, and the name before any row that mentions it.
void ContentWriter::publish()
{
    folder.notify(WriteStep::bytesWritten);
    digestText = digest.finish();
    if (::fdatasync(file.get()) != 0) throw systemError(temporary);
    folder.notify(WriteStep::bytesDurable);
    const auto path = folder.contentPath(contentId);
    if (::link(temporary.c_str(), path.c_str()) != 0) throw systemError(path);
    published = path;
    folder.notify(WriteStep::contentNamed);
    syncFolder(path.parent_path());
    folder.notify(WriteStep::folderDurable);
}

void ContentWriter::keep() noexcept
{
    settled = true;
    ::unlink(temporary.c_str());
}

void ContentWriter::abandon() noexcept
{
    settled = true;
}

} // namespace tarnd
