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
    // The public name first: as long as the temporary one is there, a starting process takes the content for one that
    // is being written and leaves it alone. What cannot be removed is an orphan for the next start.
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
        // A short write is no error yet: the next one tells why, if it is more than a signal.
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
    const Stopwatch watch(folder.syncs());
    if (::fdatasync(file.get()) != 0) throw systemError(temporary);
    folder.notify(WriteStep::bytesDurable);
    const auto path = folder.contentPath(contentId);
    // Not rename(): the temporary name must last until the row is committed, see discard().
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

/// Leaves both names: nobody knows whether the commit took place, so the next start asks the rows.
void ContentWriter::abandon() noexcept
{
    settled = true;
}

} // namespace tarnd
