// detail::ApiDocs: what an HttpGateway answers about its API: the OpenAPI document (GET
// /openapi.json) and interactive docs of it (GET /docs), made of a small page, its
// initializer script and the Swagger UI files (swagger-ui-dist) read from the package's
// share folder. Private to connector/net.
//
//   ApiDocs docs(options.api, /*bearerTokens=*/true, options.swaggerUiFolder);
//   if (const ApiDocs::File* file = docs.find("swagger-ui.css")) answer(file->type, file->bytes);
//
// The page loads only files of the gateway itself, with no inline script or style of its
// own, so that it works under kContentSecurityPolicy. Where the Swagger UI files are
// looked for, when the options name no folder: the installed package's
// <datadir>/connector_json/swagger-ui, found from the library's own folder (typically
// <library folder>/../share/connector_json/swagger-ui), then <library folder>/share/
// connector_json/swagger-ui (the build tree). Without them the page answers 404 with a
// text that says so, and the document is still served.
//
// Thread-safety: constant after construction; read by any number of threads at once.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "connector/types/Api.hpp"

namespace connector::net::detail {

// The policy every docs answer carries: only the gateway's own scripts, styles, images
// and fetches; the images of Swagger UI's stylesheet are data: URLs.
inline constexpr std::string_view kContentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; font-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

class ApiDocs {
 public:
  struct File {
    std::string type;  // Content-Type
    std::string bytes;
  };

  // Renders the document of `api` (with bearer security when `bearerTokens`) and reads
  // the Swagger UI files from `swaggerUiFolder` (empty: the default places). A null api
  // has no document and no docs.
  ApiDocs(const std::shared_ptr<const json::Api>& api, bool bearerTokens,
          const std::string& swaggerUiFolder);

  bool described() const noexcept { return !document.empty(); }
  // The OpenAPI document as JSON text; empty without an api.
  const std::string& openApi() const noexcept { return document; }
  // The page of GET /docs; null without an api or without the Swagger UI files.
  const File* page() const noexcept { return pageFile ? &*pageFile : nullptr; }
  // The file GET /docs/<name> answers, or null.
  const File* find(std::string_view name) const;
  // Why page() is null, for the 404 body.
  const std::string& missing() const noexcept { return missingText; }

  // The folder the Swagger UI files were read from (empty when none was found).
  const std::string& folder() const noexcept { return uiFolder; }

 private:
  std::string document;
  std::unique_ptr<File> pageFile;
  std::map<std::string, File, std::less<>> files;
  std::string missingText;
  std::string uiFolder;
};

}  // namespace connector::net::detail
