#include "tarnd/store/FileContentWriter.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/FileSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace tarnd {

FileContentWriter::FileContentWriter(ContentFolder& folder)
    : ContentWriter(Contents::newId())
    , folder(folder)
    , temporary(folder.ownUploads() / id())
    , file(::open(temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600))
{
    if (!file) throw systemError(temporary);
}

FileContentWriter::~FileContentWriter()
{
    discard();
}

void FileContentWriter::discard() noexcept
{
    if (std::exchange(settled, true)) return;
    // The public name first: as long as the temporary one is there, a starting process takes the content for one that
    // is being written and leaves it alone. What cannot be removed is an orphan for the next start.
    if (!published.empty()) ::unlink(published.c_str());
    ::unlink(temporary.c_str());
}

void FileContentWriter::append(const void* data, std::size_t size)
{
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
void FileContentWriter::makeDurable()
{
    folder.notify(WriteStep::bytesWritten);
    const Stopwatch watch(folder.syncs());
    if (::fdatasync(file.get()) != 0) throw systemError(temporary);
    folder.notify(WriteStep::bytesDurable);
    const auto path = folder.contentPath(id());
    // Not rename(): the temporary name must last until the row is committed, see discard().
    if (::link(temporary.c_str(), path.c_str()) != 0) throw systemError(path);
    published = path;
    folder.notify(WriteStep::contentNamed);
    syncFolder(path.parent_path());
    folder.notify(WriteStep::folderDurable);
}

/// A start elsewhere may have taken this process for dead, and the content for left behind.
void FileContentWriter::requireThere()
{
    if (!folder.has(id()))
        throw sentences::internal.because("content " + id() + " is gone before its row came");
}

void FileContentWriter::keep() noexcept
{
    settled = true;
    ::unlink(temporary.c_str());
}

void FileContentWriter::abandon() noexcept
{
    settled = true;
}

} // namespace tarnd
