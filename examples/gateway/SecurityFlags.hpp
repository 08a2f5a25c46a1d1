// The flags of connector-gateway that make it serve HTTPS and ask for bearer tokens, and
// the token reload on SIGHUP. Kept apart from main.cpp so that the other flags read as
// before.
//
//   connector-gateway --tls-cert chain.pem --tls-key key.pem --auth-tokens tokens
//   kill -HUP <pid>        # re-reads the tokens file; prints how many tokens it holds
//
// Thread-safety: parsing runs before any thread starts; reloadOnHangup from the thread
// that waits for signals.
#pragma once

#include <iostream>
#include <string>

#include <connector/net/HttpGateway.hpp>
#include <connector/net/HttpGatewayOptions.hpp>

namespace security {

// Whether `flag` is one of the flags above.
inline bool isFlag(const std::string& flag) {
  return flag == "--tls-cert" || flag == "--tls-key" || flag == "--auth-tokens";
}

// Empty when the flags go together, else why not (in terms of the flags).
inline std::string conflict(const connector::net::HttpGatewayOptions& options) {
  if (!options.tlsCertificateFile.empty() && options.tlsKeyFile.empty()) {
    return "--tls-cert needs --tls-key";
  }
  if (options.tlsCertificateFile.empty() && !options.tlsKeyFile.empty()) {
    return "--tls-key needs --tls-cert";
  }
  return {};
}

// Takes one of the flags above into `options`; false for any other flag.
inline bool parseFlag(const std::string& flag, const std::string& value,
                      connector::net::HttpGatewayOptions& options) {
  if (flag == "--tls-cert") {
    options.tlsCertificateFile = value;
  } else if (flag == "--tls-key") {
    options.tlsKeyFile = value;
  } else if (flag == "--auth-tokens") {
    options.authTokensFile = value;
  } else {
    return false;
  }
  return true;
}

inline void printSettings(const connector::net::HttpGatewayOptions& options) {
  if (!options.tlsCertificateFile.empty()) {
    std::cout << "tls: certificate " << options.tlsCertificateFile << ", key " << options.tlsKeyFile
              << "\n";
  }
  if (!options.authTokensFile.empty()) {
    std::cout << "auth: bearer tokens from " << options.authTokensFile << "\n";
  }
  std::cout << std::flush;
}

// SIGHUP: re-reads the tokens file. A file that cannot be used leaves the tokens in
// force and is reported; the gateway serves on either way.
inline void reloadOnHangup(connector::net::HttpGateway& gateway) {
  if (gateway.options().authTokensFile.empty()) {
    std::cout << "connector-gateway: SIGHUP ignored (no --auth-tokens)" << std::endl;
    return;
  }
  try {
    const std::size_t count = gateway.reloadTokens();
    std::cout << "connector-gateway: reloaded " << count << (count == 1 ? " token" : " tokens")
              << " from " << gateway.options().authTokensFile << std::endl;
  } catch (const std::exception& error) {
    std::cerr << "connector-gateway: " << error.what() << "; the tokens in force stay" << std::endl;
  }
}

}  // namespace security
