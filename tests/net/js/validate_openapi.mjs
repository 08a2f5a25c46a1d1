// @apidevtools/swagger-parser validates the document a C++ HttpGateway serves at
// GET /openapi.json as OpenAPI 3.1 (structure, $refs, and the rules beyond the schema),
// then a copy whose 200 answer of shop/ReserveItem lacks its (required) description,
// which it must refuse: a check that the validator really checks. Prints one JSON object on stdout; exits 1 when the
// document is refused. Usage: node validate_openapi.mjs <document URL> [<bearer token>]
import SwaggerParser from "@apidevtools/swagger-parser";

const [url, token] = process.argv.slice(2);
const headers = token ? { Authorization: `Bearer ${token}` } : {};
const response = await fetch(url, { headers });
const text = await response.text();
if (response.status !== 200) {
  console.log(JSON.stringify({ status: response.status, body: text }));
  process.exit(1);
}

const result = { status: 200 };
try {
  const api = await SwaggerParser.validate(JSON.parse(text));
  result.valid = true;
  result.openapi = api.openapi;
  result.title = api.info.title;
  result.paths = Object.keys(api.paths);
  // Dereferenced: every $ref resolved to its schema.
  result.reserveRequestTitle =
      api.paths["/shop/ReserveItem"].post.requestBody.content["application/json"].schema.title;
  result.security = api.security ?? null;
} catch (error) {
  result.valid = false;
  result.error = String(error.message ?? error);
}

const broken = JSON.parse(text);
delete broken.paths["/shop/ReserveItem"].post.responses["200"].description;
try {
  await SwaggerParser.validate(broken);
  result.brokenRefused = false;
} catch (error) {
  result.brokenRefused = true;
}
console.log(JSON.stringify(result));
process.exit(result.valid ? 0 : 1);
