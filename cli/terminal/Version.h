#pragma once

namespace tarncli {

/// What `tarn` calls itself.
inline constexpr const char* versionText = "tarn 0.1.0";

} // namespace tarncli
