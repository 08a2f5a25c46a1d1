// A nats.js service in the queue group "connector" that a C++ NatsLink calls: it echoes
// "connector.test.js.echo" with the request's Content-Type, and answers
// "connector.test.js.fail" with the services protocol's error (422). Prints "ready" once
// the server has its subscriptions, then serves until stdin closes or SIGTERM.
// Usage: node serve_in_group.mjs <server URL>
import { connect, headers } from "nats";

const nc = await connect({ servers: process.argv[2] });
const service = await nc.services.add({ name: "js-echo", version: "1.0.0", queue: "connector" });
service.addEndpoint("echo", {
  subject: "connector.test.js.echo",
  handler: (error, msg) => {
    const h = headers();
    h.set("Content-Type", msg.headers?.get("Content-Type") || "application/octet-stream");
    h.set("Echo-Timeout-Ms", msg.headers?.get("Connector-Timeout-Ms") ?? "");
    msg.respond(msg.data, { headers: h });
  },
});
service.addEndpoint("fail", {
  subject: "connector.test.js.fail",
  handler: (error, msg) => msg.respondError(422, "quantity must be positive"),
});
await nc.flush();
console.log("ready");

const stop = async () => {
  await service.stop();
  await nc.close();
  process.exit(0);
};
process.on("SIGTERM", stop);
process.stdin.on("end", stop);
process.stdin.resume();
