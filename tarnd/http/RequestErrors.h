#pragma once

#include "tarnd/store/ServiceError.h"

#include <string>
#include <string_view>

/// Every refusal of a request that never reaches the storage, next to each other.
namespace tarnd::request_errors {

using Kind = ServiceError::Kind;

// Framing.
inline ServiceError repeatedHeader(std::string_view name)
{
    return {Kind::badRequest, "The header " + std::string(name) + " may be given only once."};
}

inline ServiceError badHeader()
{
    return {Kind::badRequest, "The name of a header may hold no white space."};
}

inline ServiceError badContentLength()
{
    return {Kind::badRequest, "The header Content-Length is not a number of bytes."};
}

inline ServiceError ambiguousLength()
{
    return {Kind::badRequest, "A request has either Content-Length or Transfer-Encoding, not both."};
}

inline ServiceError unknownTransferEncoding()
{
    return {Kind::badRequest, "The only Transfer-Encoding understood is chunked."};
}

inline ServiceError headersTooLarge()
{
    return {Kind::tooLarge, "The headers of the request are too large."};
}

inline ServiceError lengthRequired()
{
    return {Kind::lengthRequired, "An upload must tell its length in the header Content-Length."};
}

inline ServiceError fileTooLarge()
{
    return {Kind::tooLarge, "The file is larger than this service accepts."};
}

inline ServiceError bodyTooLarge()
{
    return {Kind::tooLarge, "The request carries content that nothing here takes."};
}

// Target and parameters.
inline ServiceError badTarget()
{
    return {Kind::badRequest, "The address of the request holds characters that must be percent-encoded."};
}

inline ServiceError badEncoding()
{
    return {Kind::badRequest, "The address of the request is not valid percent-encoded UTF-8."};
}

inline ServiceError unknownRoute()
{
    return {Kind::badRequest, "The service has nothing at this address."};
}

inline ServiceError wrongMethod(std::string_view method)
{
    return {Kind::badRequest, "The method " + std::string(method) + " is not possible at this address."};
}

inline ServiceError repeatedParameter(std::string_view name)
{
    return {Kind::badRequest, "The parameter " + std::string(name) + " may be given only once."};
}

inline ServiceError missingParameter(std::string_view name)
{
    return {Kind::badRequest, "The parameter " + std::string(name) + " is missing."};
}

inline ServiceError badParameter(std::string_view name, std::string_view allowed)
{
    return {Kind::badRequest,
            "The parameter " + std::string(name) + " must be " + std::string(allowed) + "."};
}

} // namespace tarnd::request_errors
