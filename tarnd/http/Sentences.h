#pragma once

#include "tarnd/store/Sentence.h"

/// Every refusal of a request that never reaches the storage.
namespace tarnd::sentences {

using Kind = ServiceError::Kind;

// clang-format off

// Framing.
inline constexpr Sentence repeatedHeader          {Kind::badRequest, "repeatedHeader", "The header {} may be given only once."};
inline constexpr Sentence badHeader               {Kind::badRequest, "badHeader", "The name of a header may hold no white space."};
inline constexpr Sentence missingHeader           {Kind::badRequest, "missingHeader", "The header {} is missing."};
inline constexpr Sentence controlInHeader         {Kind::badRequest, "controlInHeader", "The value of a header may hold no control character."};
inline constexpr Sentence badContentLength        {Kind::badRequest, "badContentLength", "The header Content-Length is not a number of bytes."};
inline constexpr Sentence ambiguousLength         {Kind::badRequest, "ambiguousLength", "A request has either Content-Length or Transfer-Encoding, not both."};
inline constexpr Sentence unknownTransferEncoding {Kind::badRequest, "unknownTransferEncoding", "The only Transfer-Encoding understood is chunked."};
inline constexpr Sentence noTransferEncoding      {Kind::badRequest, "unknownTransferEncoding", "HTTP/1.0 has no Transfer-Encoding."};
inline constexpr Sentence headersTooLarge         {Kind::tooLarge, "headersTooLarge", "The headers of the request are too large."};
inline constexpr Sentence lengthRequired          {Kind::lengthRequired, "lengthRequired", "An upload must tell its length in the header Content-Length, or come in chunks."};
inline constexpr Sentence fileTooLarge            {Kind::tooLarge, "fileTooLarge", "The file is larger than this service accepts."};
inline constexpr Sentence rangeOutside            {Kind::rangeOutside, "rangeOutside", "The file has no bytes in the range asked for."};
inline constexpr Sentence badDigest               {Kind::badRequest, "badDigest", "The header Content-Digest cannot be read."};
inline constexpr Sentence partialUpload           {Kind::badRequest, "partialUpload", "A part of a file cannot be stored, only the whole; nothing was changed."};
inline constexpr Sentence conditionalChange       {Kind::badRequest, "conditionalChange", "A change cannot depend on the header {}; nothing was changed."};
inline constexpr Sentence badTag                  {Kind::badRequest, "badTag", "The header {} is neither * nor a list of tags in quotes; nothing was changed."};
inline constexpr Sentence bodyTooLarge            {Kind::tooLarge, "bodyTooLarge", "The request carries content that nothing here takes."};

inline constexpr Sentence tooManyFailedLogins     {Kind::notAllowed, "tooManyFailedLogins", "Too many logins with a wrong token come from your address. Try again in a few seconds."};

inline constexpr Sentence numbersAreLocal        {Kind::notAllowed, "numbersAreLocal", "The numbers are told to programs on the machine of the service only."};
inline constexpr Sentence toldToRefuse            {Kind::badRequest, "toldToRefuse", "The service was told to refuse this request."};

inline constexpr Sentence tooManyRequests         {Kind::tooMany, "tooManyRequests", "Too many requests come from your address. Try again in a second."};
inline constexpr Sentence tooManyRequestsOfUser   {Kind::tooMany, "tooManyRequests", "You make too many requests. Try again in a second."};
inline constexpr Sentence tooManyTransfers        {Kind::tooMany, "tooManyTransfers", "{} uploads and downloads may go on at a time, and yours are as many. Try again when one has ended."};

// Target and parameters.
inline constexpr Sentence badTarget         {Kind::badRequest, "badTarget", "The address of the request holds characters that must be percent-encoded."};
inline constexpr Sentence badEncoding       {Kind::badRequest, "badEncoding", "The address of the request is not valid percent-encoded UTF-8."};
inline constexpr Sentence unknownRoute      {Kind::badRequest, "unknownRoute", "The service has nothing at this address."};
inline constexpr Sentence wrongMethod       {Kind::badRequest, "wrongMethod", "The method {} is not possible at this address."};
inline constexpr Sentence tooManyParameters {Kind::badRequest, "tooManyParameters", "The request has too many parameters."};
inline constexpr Sentence repeatedParameter {Kind::badRequest, "repeatedParameter", "The parameter {} may be given only once."};
inline constexpr Sentence missingParameter  {Kind::badRequest, "missingParameter", "The parameter {} is missing."};
inline constexpr Sentence badParameter      {Kind::badRequest, "badParameter", "The parameter {} must be {}."};

// clang-format on

} // namespace tarnd::sentences
