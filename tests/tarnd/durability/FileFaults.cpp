// Preloaded into tarnd: kills it at a call that changes files, lets such a call fail, or records them all, as
// its FaultPlan says. Calls go to the kernel directly, so that nothing depends on who else stands in between.
#include "tests/tarnd/durability/FaultPlan.h"

#include <cerrno>
#include <csignal>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>

namespace {

using namespace tarnd::test;
using Action = FaultPlan::Action;
using Kind = FileCall::Kind;

FaultPlan* mappedPlan()
{
    const char* file = std::getenv(FaultPlan::variable);
    const auto fd = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC));
    void* plan = ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return fd < 0 || plan == MAP_FAILED ? nullptr : static_cast<FaultPlan*>(plan);
}

FaultPlan* plan()
{
    static FaultPlan* const mapped = mappedPlan();
    return mapped;
}

bool exists(const std::string& path)
{
    return ::syscall(SYS_faccessat, AT_FDCWD, path.c_str(), F_OK) == 0;
}

/// The name under which the file was opened; with " (deleted)" behind it once that is gone.
std::string pathOf(int fd)
{
    char path[4096];
    const auto length = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
    return {path, static_cast<std::size_t>(length < 0 ? 0 : length)};
}

std::string pathAt(int folder, const char* path)
{
    return folder == AT_FDCWD || *path == '/' ? path : pathOf(folder) + "/" + path;
}

bool isStruck(Kind kind)
{
    const int at = plan()->at;
    if (at == 0 || (plan()->action == Action::tear && kind != Kind::write)) return false;
    const int number = ++plan()->calls;
    if (plan()->lasting ? number < at : number != at) return false;
    return plan()->struck = true;
}

/// Makes the call, `real(bytes)`, and records it: all calls in one order, over threads and processes.
template <class Real>
long recorded(FileCall call, const void* data, Real real)
{
    while (plan()->recording.exchange(true))
        ::sched_yield();
    const long result = real(call.size);
    const int error = errno;
    if (call.size > 0) call.size = static_cast<std::size_t>(result < 0 ? 0 : result);
    if (result >= 0) plan()->record(call, data);
    plan()->recording = false;
    errno = error;
    return result;
}

/// Makes the call, `real(bytes)`, unless the plan says otherwise.
template <class Real>
int pass(const FileCall& call, Real real, const void* data = nullptr)
{
    const auto make = [&](std::size_t bytes) { return static_cast<int>(real(bytes)); };
    if (plan() == nullptr || !std::string_view(call.path.data()).starts_with(plan()->root.data()))
        return make(call.size);
    if (!isStruck(call.kind))
        return plan()->journal[0] ? static_cast<int>(recorded(call, data, real)) : make(call.size);
    if (plan()->action != Action::kill && call.kind == Kind::write) make(call.size / 2);
    if (plan()->action != Action::fail) ::raise(SIGKILL);
    errno = plan()->error;
    return -1;
}

int change(Kind kind, const char* from, const char* to, long number)
{
    FileCall call(kind, from);
    std::string(to).copy(call.target.data(), call.target.size() - 1);
    return pass(call, [&](std::size_t) { return ::syscall(number, from, to); });
}

int sync(int fd, long number)
{
    return pass({Kind::sync, pathOf(fd)}, [&](std::size_t) { return ::syscall(number, fd); });
}

} // namespace

#define SAME_AS(name) __attribute__((alias(name)))

extern "C" {

// The C library declares these with "...": under other names they can take the mode as it comes.
int openAt(int folder, const char* name, int flags, mode_t mode) asm("openat");
int openHere(const char* name, int flags, mode_t mode) asm("open");

int openAt(int folder, const char* name, int flags, mode_t mode)
{
    const auto path = pathAt(folder, name);
    const auto real = [&](std::size_t) { return ::syscall(SYS_openat, folder, name, flags, mode); };
    if ((flags & O_CREAT) && !exists(path)) return pass({Kind::createFile, path}, real);
    return flags & O_TRUNC ? pass({Kind::resize, path}, real) : static_cast<int>(real(0));
}

int openHere(const char* name, int flags, mode_t mode)
{
    return openAt(AT_FDCWD, name, flags, mode);
}

ssize_t write(int fd, const void* data, size_t size)
{
    const FileCall call(Kind::write, pathOf(fd), static_cast<std::size_t>(::lseek(fd, 0, SEEK_CUR)), size);
    return pass(
        call, [&](std::size_t bytes) { return ::syscall(SYS_write, fd, data, bytes); }, data);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset)
{
    const FileCall call(Kind::write, pathOf(fd), static_cast<std::size_t>(offset), size);
    return pass(
        call, [&](std::size_t bytes) { return ::syscall(SYS_pwrite64, fd, data, bytes, offset); }, data);
}

int ftruncate(int fd, off_t size) noexcept
{
    const FileCall call(Kind::resize, pathOf(fd), static_cast<std::size_t>(size));
    return pass(call, [&](std::size_t) { return ::syscall(SYS_ftruncate, fd, size); });
}

int fsync(int fd)
{
    return sync(fd, SYS_fsync);
}

int fdatasync(int fd)
{
    return sync(fd, SYS_fdatasync);
}

int link(const char* from, const char* to) noexcept
{
    return change(Kind::link, from, to, SYS_link);
}

int rename(const char* from, const char* to) noexcept
{
    return change(Kind::rename, from, to, SYS_rename);
}

int unlinkat(int folder, const char* path, int flags) noexcept
{
    const auto real = [&](std::size_t) { return ::syscall(SYS_unlinkat, folder, path, flags); };
    return pass({Kind::remove, pathAt(folder, path)}, real);
}

int unlink(const char* path) noexcept
{
    return unlinkat(AT_FDCWD, path, 0);
}

int remove(const char* path) noexcept
{
    const int result = unlink(path);
    return result < 0 && errno == EISDIR ? unlinkat(AT_FDCWD, path, AT_REMOVEDIR) : result;
}

int mkdir(const char* path, mode_t mode) noexcept
{
    const auto real = [&](std::size_t) { return ::syscall(SYS_mkdir, path, mode); };
    return exists(path) ? static_cast<int>(real(0)) : pass({Kind::createFolder, path}, real);
}

int openHere64(const char* name, int flags, mode_t mode) asm("open64") SAME_AS("open");
int openAt64(int folder, const char* name, int flags, mode_t mode) asm("openat64") SAME_AS("openat");
ssize_t pwrite64(int fd, const void* data, size_t size, off_t offset) SAME_AS("pwrite");
int ftruncate64(int fd, off_t size) noexcept SAME_AS("ftruncate");
}
