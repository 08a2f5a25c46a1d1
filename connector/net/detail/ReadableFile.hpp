// detail::requireReadableFile: a check, made before a file is handed to a loader whose
// own failure would not say why, that a file exists and can be read. Private to
// connector/net.
//
//   requireReadableFile("HttpGateway", "tokens file", path);
//   // throws std::runtime_error "HttpGateway cannot read the tokens file '<path>': No
//   // such file or directory"
//
// Thread-safety: a plain function.
#pragma once

#include <string>

namespace connector::net::detail {

// Throws std::runtime_error "<who> cannot read the <what> '<path>': <cause>" unless
// `path` names a file, not a directory, that this process can open for reading.
void requireReadableFile(const std::string& who, const std::string& what, const std::string& path);

}  // namespace connector::net::detail
