// A program outside the repository: it sees the installed headers and libraries only.
#include <connector/json.hpp>

#include <iostream>
#include <memory>
#include <typeinfo>

namespace {

struct Ping : connector::Message {};

}  // namespace

int main() {
  // Futures instantiated in the library work from here.
  connector::Promise<std::unique_ptr<connector::Message>> promise;
  auto future = promise.getFuture();
  promise.setValue(std::make_unique<Ping>());
  std::unique_ptr<connector::Message> message = future.get();

  // Type information crosses the library boundary.
  if (dynamic_cast<Ping*>(message.get()) == nullptr) {
    std::cerr << "dynamic_cast across the library boundary failed\n";
    return 1;
  }
  connector::common::DataBuffer joined("{\"a\":");
  joined.append(connector::common::DataBuffer("1}"));
  if (joined.view() != "{\"a\":1}") {
    std::cerr << "unexpected bytes: " << joined.view() << '\n';
    return 1;
  }
  std::cout << "consumer ok: "
            << foundation::core::diag::detail::demangle_typeid_name(
                   typeid(connector::Message).name(), true)
            << '\n';
  return 0;
}
