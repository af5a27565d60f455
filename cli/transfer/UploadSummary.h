#pragma once

#include "cli/transfer/Upload.h"

namespace tarncli {

class Output;

/// Tells what came of an upload, and with --json writes it.
/// @param preposition  "in " a folder, "as " a file
/// @param done         "Stored"
void showUploads(Output& out, const UploadReport& report, const RemotePath& target, const char* preposition,
                 const char* done);

} // namespace tarncli
