// nats.js's services client finds the C++ NatsListeners: ping, info and stats of every
// instance, and of one by name and id. Prints them as one JSON object on stdout (the C++
// test checks it). Usage: node discover.mjs <server URL> <name> <id>
import { connect } from "nats";

const [url, name, id] = process.argv.slice(2);
const nc = await connect({ servers: url });
const client = nc.services.client({ maxWait: 500 });

async function all(iterator) {
  const found = [];
  for await (const answer of await iterator) found.push(answer);
  return found;
}

const result = {
  ping: await all(client.ping()),
  pingOne: await all(client.ping(name, id)),
  info: await all(client.info(name)),
  stats: await all(client.stats(name, id)),
};
console.log(JSON.stringify(result));
await nc.close();
