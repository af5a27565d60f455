#include "tarnd/store/ContentWriter.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/FileSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace tarnd {

ContentWriter::ContentWriter(ContentFolder& folder)
    : folder_(folder)
    , id_(folder.newId())
    , temporary_(folder.ownUploads() / id_)
    , file_(::open(temporary_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600))
{
    if (!file_) throw systemError(temporary_);
}

ContentWriter::~ContentWriter()
{
    discard();
}

void ContentWriter::discard() noexcept
{
    if (std::exchange(settled_, true)) return;
    if (!published_.empty()) ::unlink(published_.c_str());
    ::unlink(temporary_.c_str());
}

void ContentWriter::write(const void* data, std::size_t size)
{
    digest_.update(data, size);
    size_ += size;
    for (auto at = static_cast<const char*>(data); size > 0;) {
        const auto written = ::write(file_.get(), at, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw systemError(temporary_);
        at += written;
        size -= static_cast<std::size_t>(written);
    }
}

/// The bytes are on the disk before the name is, and the name before any row that mentions it.
void ContentWriter::publish()
{
    folder_.notify(WriteStep::bytesWritten);
    sha256_ = digest_.finish();
    if (::fdatasync(file_.get()) != 0) throw systemError(temporary_);
    folder_.notify(WriteStep::bytesDurable);
    const auto path = folder_.contentPath(id_);
    if (::link(temporary_.c_str(), path.c_str()) != 0) throw systemError(path);
    published_ = path;
    folder_.notify(WriteStep::contentNamed);
    syncFolder(path.parent_path());
    folder_.notify(WriteStep::folderDurable);
}

void ContentWriter::keep() noexcept
{
    settled_ = true;
    ::unlink(temporary_.c_str());
}

void ContentWriter::abandon() noexcept
{
    settled_ = true;
}

} // namespace tarnd
