// A nats.js client calls a C++ NatsListener: a request that succeeds, one the service
// fails, one to an unbound address. Prints what it saw as one JSON object on stdout
// (the C++ test checks it). Usage: node call_listener.mjs <server URL>
import { connect, ServiceError, StringCodec } from "nats";

const sc = StringCodec();
const nc = await connect({ servers: process.argv[2] });

// What a nats.js user sees of an answer.
function seen(msg) {
  const error = ServiceError.toServiceError(msg);
  return {
    data: sc.decode(msg.data),
    contentType: msg.headers?.get("Content-Type") ?? "",
    isServiceError: ServiceError.isServiceError(msg),
    code: error ? error.code : 0,
    text: error ? error.message : "",
  };
}

const ask = (subject, body) => nc.request(subject, sc.encode(body), { timeout: 5000 });
const result = {
  reserve: seen(await ask("connector.shop.ReserveItem",
                          '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}')),
  cancel: seen(await ask("connector.shop.CancelOrder",
                         '{"type":"shop/CancelOrder","orderId":"ORD-404"}')),
  unbound: seen(await ask("connector.shop.Nothing", "{}")),
};
console.log(JSON.stringify(result));
await nc.close();
