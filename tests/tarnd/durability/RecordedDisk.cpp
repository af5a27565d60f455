#include "tests/tarnd/durability/RecordedDisk.h"

#include <cstring>
#include <fstream>

namespace tarnd::test {

namespace fs = std::filesystem;

using Kind = FileCall::Kind;

namespace {

void apply(const RecordedCall& call, double share, std::string& bytes)
{
    constexpr std::size_t sector = 512;
    if (call.kind == Kind::resize && share == 1) bytes.resize(call.number);
    const auto data = share == 1 ? call.data : call.data.substr(0, call.data.size() / 2 / sector * sector);
    if (share == 0 || data.empty()) return;
    bytes.resize(std::max(bytes.size(), call.number + data.size()));
    data.copy(bytes.data() + call.number, data.size());
}

bool isIn(const std::string& folder, const std::string& path)
{
    return fs::path(path).parent_path() == folder;
}

} // namespace

std::vector<RecordedCall> recordedCalls(const std::string& bytes)
{
    std::vector<RecordedCall> calls;
    for (std::size_t at = 0; at < bytes.size();) {
        RecordedCall call{Kind::mark, {}};
        std::memcpy(static_cast<FileCall*>(&call), bytes.data() + at, sizeof(FileCall));
        call.data = std::string_view(bytes).substr(at + sizeof(FileCall), call.size);
        at += sizeof(FileCall) + call.size;
        calls.push_back(call);
    }
    return calls;
}

void RecordedDisk::name(const std::string& path, std::shared_ptr<File> file, const std::string& gone)
{
    Names naming{{path, std::move(file)}};
    if (!gone.empty()) naming.emplace(gone, nullptr);
    for (const auto& [each, meant] : naming)
        seen[each] = meant;
    namings.push_back(std::move(naming));
}

void RecordedDisk::makeCertain(const std::string& path)
{
    if (const auto file = seen[path]) {
        for (const auto* change : file->changes)
            apply(*change, 1, file->bytes);
        file->changes.clear();
    }
    std::erase_if(namings, [&](Names& naming) {
        const bool synced = isIn(path, naming.begin()->first);
        if (synced)
            for (const auto& [each, meant] : naming)
                certain[each] = meant;
        return synced;
    });
}

void RecordedDisk::follow(const RecordedCall& call)
{
    const std::string path = call.path.data();
    if (path.ends_with("-shm")) return; // mapped into memory, and made anew by every start
    switch (call.kind) {
    case Kind::createFolder:
    case Kind::createFile:
        return name(path, std::make_shared<File>(File{call.kind == Kind::createFolder}));
    case Kind::write:
    case Kind::resize:
        if (!seen[path]) name(path, std::make_shared<File>(File{false})); // opened by the C library itself
        return seen[path]->changes.push_back(&call);
    case Kind::sync:
        return makeCertain(path);
    case Kind::link:
        return name(call.target.data(), seen[path]);
    case Kind::rename:
        return name(call.target.data(), seen[path], path);
    case Kind::remove:
        return name(path, nullptr);
    case Kind::mark:
        return;
    }
}

void RecordedDisk::leave(const fs::path& folder, const Luck& survives) const
{
    auto names = certain;
    const auto shares = survives(namings.size());
    for (std::size_t i = 0; i < namings.size(); ++i)
        if (shares[i] == 1)
            for (const auto& [path, file] : namings[i])
                names[path] = file;

    fs::create_directory(folder);
    for (const auto& [path, file] : names) { // a folder before what is in it
        const auto place = folder / fs::path(path).lexically_relative(root);
        if (!file || !fs::exists(place.parent_path())) continue;
        if (file->isFolder) {
            fs::create_directory(place);
            continue;
        }
        auto bytes = file->bytes;
        const auto parts = survives(file->changes.size());
        for (std::size_t i = 0; i < parts.size(); ++i)
            apply(*file->changes[i], parts[i], bytes);
        std::ofstream(place, std::ios::binary) << bytes;
    }
}

} // namespace tarnd::test
