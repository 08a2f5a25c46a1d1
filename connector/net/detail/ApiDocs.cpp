#include "connector/net/detail/ApiDocs.hpp"

#include <dlfcn.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace connector::net::detail {

namespace {

namespace fs = std::filesystem;

// The Swagger UI files the page uses, and their types.
struct UiFile {
  const char* name;
  const char* type;
};
constexpr UiFile kUiFiles[] = {
    {"swagger-ui.css", "text/css; charset=utf-8"},
    {"swagger-ui-bundle.js", "text/javascript; charset=utf-8"},
    {"favicon-32x32.png", "image/png"},
    {"favicon-16x16.png", "image/png"},
};

// Starts Swagger UI on the document beside the page (a relative URL, so that the docs
// also work behind a proxy that serves the gateway under a path of its own).
constexpr const char* kInitializer =
    R"(// Starts the interactive docs on this gateway's OpenAPI document.
window.addEventListener("load", function () {
  window.ui = SwaggerUIBundle({
    url: new URL("openapi.json", window.location.href).href,
    dom_id: "#swagger-ui",
    deepLinking: true,
    tryItOutEnabled: true,
    displayRequestDuration: true,
    validatorUrl: null
  });
});
)";

std::string escapedHtml(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string pageOf(const json::Api& api) {
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<title>" +
         escapedHtml(api.title()) + " " + escapedHtml(api.version()) +
         " - API docs</title>\n"
         "<link rel=\"icon\" type=\"image/png\" href=\"docs/favicon-32x32.png\" sizes=\"32x32\">\n"
         "<link rel=\"stylesheet\" href=\"docs/swagger-ui.css\">\n"
         "</head>\n<body>\n<div id=\"swagger-ui\"></div>\n"
         "<script src=\"docs/swagger-ui-bundle.js\"></script>\n"
         "<script src=\"docs/initializer.js\"></script>\n"
         "</body>\n</html>\n";
}

// The folder of this library, found from one of its own symbols.
fs::path libraryFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&libraryFolder), &info) == 0 ||
      info.dli_fname == nullptr) {
    return {};
  }
  std::error_code error;
  const fs::path file = fs::canonical(info.dli_fname, error);
  return error ? fs::path() : file.parent_path();
}

std::vector<fs::path> candidates(const std::string& named) {
  if (!named.empty()) return {fs::path(named)};
  const fs::path library = libraryFolder();
  if (library.empty()) return {};
  // Installed: CONNECTOR_SWAGGER_UI_INSTALLED leads from the library's folder to the
  // package's share folder (e.g. "../share/connector_json/swagger-ui"). Build tree: the
  // share folder beside the library.
  return {(library / CONNECTOR_SWAGGER_UI_INSTALLED).lexically_normal(),
          library / "share" / "connector_json" / "swagger-ui"};
}

bool readFile(const fs::path& path, std::string& bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

}  // namespace

ApiDocs::ApiDocs(const std::shared_ptr<const json::Api>& api, bool bearerTokens,
                 const std::string& swaggerUiFolder) {
  if (!api) {
    missingText = "This gateway has no API description";
    return;
  }
  std::ostringstream out;
  api->openApi(bearerTokens ? json::Api::Security::BearerTokens : json::Api::Security::None)
      ->stringify(out);
  document = out.str();

  const std::vector<fs::path> places = candidates(swaggerUiFolder);
  for (const fs::path& place : places) {
    std::map<std::string, File, std::less<>> read;
    bool complete = true;
    for (const UiFile& ui : kUiFiles) {
      File file{ui.type, {}};
      if (!readFile(place / ui.name, file.bytes)) {
        complete = false;
        break;
      }
      read.emplace(ui.name, std::move(file));
    }
    if (!complete) continue;
    files = std::move(read);
    files.emplace("initializer.js", File{"text/javascript; charset=utf-8", kInitializer});
    pageFile = std::make_unique<File>(File{"text/html; charset=utf-8", pageOf(*api)});
    uiFolder = place.string();
    return;
  }
  std::string looked;
  for (const fs::path& place : places) looked += (looked.empty() ? "" : ", ") + place.string();
  missingText = "The interactive docs are not installed: no Swagger UI files in " +
                (looked.empty() ? std::string("the package's share folder") : looked);
}

const ApiDocs::File* ApiDocs::find(std::string_view name) const {
  if (!pageFile) return nullptr;
  const auto found = files.find(name);
  return found == files.end() ? nullptr : &found->second;
}

}  // namespace connector::net::detail
