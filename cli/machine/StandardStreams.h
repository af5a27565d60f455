#pragma once

namespace tarncli {

/// Keeps the descriptors 0 to 2 from what is opened later: one that was closed when the program began would become a
/// file or a socket of its own, and be read or written as standard input or output. Reading and writing of such a one
/// fails as before. Call it first of all.
void reserveStandardStreams();

} // namespace tarncli
