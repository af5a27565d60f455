#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"

#include <string>

/// Where `tarn rm --keep` puts what `tarn undo` may want again.
namespace tarncli {

/// In the bucket of the item: a folder of its own for each, so that names do not meet.
inline constexpr const char* asidePath = "/.tarn-removed";

/// Moves the item there. Versions, grants and links go with it. @param watermark  of the item
/// @throws Failure with the item in front
void putAside(Connection& connection, const RemotePath& item, const std::string& watermark);

/// Whether it is, or was, put aside.
bool isAside(const RemotePath& item);

} // namespace tarncli
