// A program outside the repository: it sees only the installed package. It is also the
// README's example of declaring a message type, writing it as JSON text and reading it
// back, and sending it through the bridge.
#include <connector/json.hpp>

#include <iostream>
#include <sstream>

using namespace connector;

struct Greeting : Message {
  std::string text;
};

// The real service on the far node: answers a greeting with a greeting.
struct Greeter : ServiceProvider {
  void start() override {}
  void stop() override {}
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& m, Address&&,
                                           std::shared_ptr<Context>&&) override {
    auto reply = std::make_unique<Greeting>();
    reply->text = "hello, " + dynamic_cast<Greeting&>(*m).text;
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(reply));
  }
};

int main() {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  json::MessageType<Greeting> greeting("demo/Greeting");  // {"text":"...","type":"demo/Greeting"}
  greeting.field("text", &Greeting::text);
  greeting.registerWith(*serializer);  // both converters, from the one declaration

  const Address greet("demo/greet");
  auto services = std::make_shared<Router>();  // far node: the typed service
  services->bind(greet, std::make_shared<Greeter>());
  auto gateway = std::make_shared<Router>();  // far node: JSON in, typed request on
  gateway->bind(greet, std::make_shared<json::JsonDeserializerServiceProvider>(serializer),
                services->context());
  auto client = std::make_shared<Router>();  // client node: typed request out as JSON
  client->bind(greet, std::make_shared<json::JsonSerializerServiceProvider>(serializer),
               std::make_shared<InProcessLink>(gateway));
  for (const auto& node : {services, gateway, client}) node->start();

  auto request = std::make_unique<Greeting>();
  request->text = "world";
  std::ostringstream out;  // text out; request keeps its message
  serializer->serialize(request, out);
  std::cout << out.str() << '\n';  // {"text":"world","type":"demo/Greeting"}
  std::unique_ptr<Message> back = serializer->deserialize(json::publisherOf(out.str())).get();
  const bool asText = out.str() == R"({"text":"world","type":"demo/Greeting"})" &&
                      dynamic_cast<Greeting&>(*back).text == "world";  // text in

  std::unique_ptr<Message> answer = client->deliver(std::move(request), Address(greet)).get();
  const std::string text = dynamic_cast<Greeting&>(*answer).text;  // typeinfo crosses libraries
  std::cout << text << '\n';                                       // hello, world
  return asText && text == "hello, world" ? 0 : 1;
}
