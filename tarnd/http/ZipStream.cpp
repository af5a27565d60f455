#include "tarnd/http/ZipStream.h"

#include "tarnd/store/Sentences.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <zlib.h>

namespace tarnd {

namespace {

constexpr std::uint64_t most16 = 0xffff, most32 = 0xffffffff; // also: "see the field of 64 bits"

constexpr std::uint64_t needsFolders = 20, needs64Bits = 45; // versions of the format
constexpr std::uint64_t madeOnUnix = 3 << 8 | needs64Bits;
constexpr std::uint64_t sumsFollow = 1 << 3, namesAreUtf8 = 1 << 11;
constexpr std::uint64_t folderMode = 040755, fileMode = 0100644;

/// Numbers with their sizes in bytes, least significant byte first.
struct Field {
    std::uint64_t value;
    unsigned bytes;
};

void append(std::string& out, std::initializer_list<Field> fields)
{
    for (const auto& field : fields)
        for (unsigned i = 0; i < field.bytes; ++i)
            out += static_cast<char>(field.value >> 8 * i & 0xff);
}

struct DosTime {
    explicit DosTime(std::int64_t milliseconds)
    {
        const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
        std::tm parts{};
        gmtime_r(&seconds, &parts);
        constexpr int firstYear = 80, lastYear = firstYear + 127;
        const auto year = std::clamp(parts.tm_year, firstYear, lastYear) - firstYear;
        date = static_cast<std::uint64_t>(year << 9 | (parts.tm_mon + 1) << 5 | parts.tm_mday);
        time = static_cast<std::uint64_t>(parts.tm_hour << 11 | parts.tm_min << 5 | parts.tm_sec / 2);
    }

    std::uint64_t date, time;
};

/// The seconds since 1970, since the other time is a local one, of nobody knows where.
std::string unixTime(std::int64_t milliseconds)
{
    constexpr std::uint64_t tag = 0x5455, size = 5, onlyModified = 1;
    std::string extra;
    append(extra,
           {{tag, 2}, {size, 2}, {onlyModified, 1}, {static_cast<std::uint64_t>(milliseconds / 1000), 4}});
    return extra;
}

std::string longNumbers(std::initializer_list<std::uint64_t> numbers)
{
    constexpr std::uint64_t tag = 1;
    std::string extra;
    append(extra, {{tag, 2}, {numbers.size() * 8, 2}});
    for (const auto number : numbers)
        append(extra, {{number, 8}});
    return extra;
}

std::uint64_t methodOf(bool isFolder)
{
    constexpr std::uint64_t asIs = 0, deflated = 8;
    return isFolder ? asIs : deflated;
}

[[noreturn]] void failToStore()
{
    throw sentences::internal.because(std::string("temporary file of an archive: ") + std::strerror(errno));
}

} // namespace

ZipStream::ZipStream() : table(std::tmpfile())
{
    if (!table) failToStore();
}

void ZipStream::addFolder(const std::string& path, std::int64_t modified)
{
    entry = {path + "/", modified};
    entry.isFolder = true;
    addHead();
    keepForEnd();
}

/// A content stands in blocks of "deflate" that compress nothing: unlike bytes as they are, they tell where they end,
/// so that programs can also read the archive as it comes, checksums being told only behind the contents.
void ZipStream::beginFile(const std::string& path, std::int64_t modified, std::uint64_t size)
{
    constexpr std::uint64_t mostAround =
        most32 / 64; // bytes that blocks take besides what they hold, and then some
    entry = {path, modified, size};
    entry.isLarge = size >= most32 - mostAround;
    left = size;
    addHead();
    if (size == 0) addContent({});
}

void ZipStream::addContent(std::string_view bytes)
{
    constexpr std::uint64_t aroundBlock = 5; // bytes
    left -= bytes.size();
    entry.stored += bytes.size() + aroundBlock;
    entry.checksum = static_cast<std::uint32_t>(
        crc32_z(entry.checksum, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
    append(pending, {{left == 0, 1}, {bytes.size(), 2}, {~bytes.size() & most16, 2}});
    pending += bytes;
}

void ZipStream::endFile()
{
    constexpr std::uint64_t mark = 0x08074b50;
    const unsigned wide = entry.isLarge ? 8 : 4;
    append(pending, {{mark, 4}, {entry.checksum, 4}, {entry.stored, wide}, {entry.size, wide}});
    keepForEnd();
}

void ZipStream::addHead()
{
    constexpr std::uint64_t mark = 0x04034b50;
    entry.at = position();
    const DosTime when(entry.modified);
    const auto extra = unixTime(entry.modified) + (entry.isLarge ? longNumbers({0, 0}) : "");
    const auto unknown = entry.isLarge ? most32 : 0; // sums and sizes follow
    append(pending, {{mark, 4},
                     {entry.isLarge ? needs64Bits : needsFolders, 2},
                     {namesAreUtf8 | (entry.isFolder ? 0 : sumsFollow), 2},
                     {methodOf(entry.isFolder), 2},
                     {when.time, 2},
                     {when.date, 2},
                     {0, 4},
                     {unknown, 4},
                     {unknown, 4},
                     {entry.path.size(), 2},
                     {extra.size(), 2}});
    pending += entry.path + extra;
}

void ZipStream::keepForEnd()
{
    constexpr std::uint64_t mark = 0x02014b50;
    const DosTime when(entry.modified);
    const bool isLong = entry.isLarge || entry.at >= most32;
    const auto extra = unixTime(entry.modified) +
                       (isLong ? longNumbers({entry.size, entry.stored, entry.at}) : std::string());
    std::string record;
    append(record, {{mark, 4},
                    {madeOnUnix, 2},
                    {isLong ? needs64Bits : needsFolders, 2},
                    {namesAreUtf8 | (entry.isFolder ? 0 : sumsFollow), 2},
                    {methodOf(entry.isFolder), 2},
                    {when.time, 2},
                    {when.date, 2},
                    {entry.checksum, 4},
                    {isLong ? most32 : entry.stored, 4},
                    {isLong ? most32 : entry.size, 4},
                    {entry.path.size(), 2},
                    {extra.size(), 2},
                    {0, 2 + 2 + 2}, // no comment, first disk, contents of any kind
                    {(entry.isFolder ? folderMode : fileMode) << 16, 4},
                    {isLong ? most32 : entry.at, 4}});
    record += entry.path + extra;
    if (std::fwrite(record.data(), 1, record.size(), table.get()) != record.size()) failToStore();
    tableSize += record.size();
    ++entries;
}

bool ZipStream::addEnd()
{
    if (stage == Stage::done) return false;
    if (stage == Stage::entries) {
        tableAt = position();
        if (std::fflush(table.get()) != 0 || std::fseek(table.get(), 0, SEEK_SET) != 0) failToStore();
        stage = Stage::table;
    }
    std::array<char, 64 * 1024> piece;
    const auto got = std::fread(piece.data(), 1, piece.size(), table.get());
    if (std::ferror(table.get()) != 0) failToStore();
    pending.append(piece.data(), got);
    if (got == 0) {
        addLastRecord();
        stage = Stage::done;
    }
    return true;
}

void ZipStream::addLastRecord()
{
    constexpr std::uint64_t mark = 0x06054b50, longMark = 0x06064b50, placeMark = 0x07064b50;
    constexpr std::uint64_t longSize = 44; // of what follows that number
    const auto at = position();
    if (entries >= most16 || tableSize >= most32 || tableAt >= most32) {
        append(pending, {{longMark, 4},
                         {longSize, 8},
                         {madeOnUnix, 2},
                         {needs64Bits, 2},
                         {0, 4 + 4}, // the first disk is the only one
                         {entries, 8},
                         {entries, 8},
                         {tableSize, 8},
                         {tableAt, 8}});
        append(pending, {{placeMark, 4}, {0, 4}, {at, 8}, {1, 4}});
    }
    const auto few = std::min(entries, most16);
    append(pending, {{mark, 4},
                     {0, 2 + 2},
                     {few, 2},
                     {few, 2},
                     {std::min(tableSize, most32), 4},
                     {std::min(tableAt, most32), 4},
                     {0, 2}});
}

std::size_t ZipStream::take(char* data, std::size_t size)
{
    const auto count = std::min(size, pending.size() - pendingTaken);
    std::copy_n(pending.data() + pendingTaken, count, data);
    pendingTaken += count;
    taken += count;
    if (pendingTaken == pending.size()) {
        pending.clear();
        pendingTaken = 0;
    }
    return count;
}

} // namespace tarnd
