#pragma once

/// The fixed texts with which the futures of this library fail. Transport failures carry the host's text, and
/// a service that answers with a "code" element its own.
namespace connector::tarn::ErrorText {

inline constexpr const char* fileNotFound = "File not found.";
inline constexpr const char* unknownError = "Unknown error.";
inline constexpr const char* notXmlPrefix = "TARN error: ";
inline constexpr const char* nullArgument = "Null request, session, or context";
inline constexpr const char* emptyHandleId = "Handle ID cannot be empty";
inline constexpr const char* notImplemented = "Not implemented yet";

} // namespace connector::tarn::ErrorText
