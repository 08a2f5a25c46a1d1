#include "connector/transport/DeliveryAnswer.hpp"

#include <memory>
#include <string_view>
#include <utility>

#include "connector/providers/OpaqueMessage.hpp"
#include "connector/transport/ErrorBody.hpp"
#include "connector/transport/FailureAnswer.hpp"

namespace connector::transport {

DeliveryAnswer deliverForAnswer(
    Router* router, Context* target, std::string contentType, common::DataBuffer body,
    const std::string& address,
    std::optional<DeliveryDeadline::Clock::time_point> deadline) noexcept {
  std::optional<DeliveryDeadline> scope;
  if (deadline) scope.emplace(*deadline);
  try {
    static const std::string kNone;
    auto request = std::make_unique<json::OpaqueMessage>(kNone, std::move(body));
    request->contentType = std::move(contentType);
    std::unique_ptr<Message> answer =
        (router != nullptr ? router->deliver(std::move(request), Address(address))
                           : target->deliver(std::move(request), Address(address)))
            .get();
    auto* opaque = dynamic_cast<json::OpaqueMessage*>(answer.get());
    if (opaque == nullptr) {
      return {500, "application/json",
              common::DataBuffer(
                  errorBody("The service at '" + address + "' answered without an OpaqueMessage"))};
    }
    return {200,
            opaque->contentType.empty() ? std::string("application/json")
                                        : std::move(opaque->contentType),
            std::move(opaque->payload)};
  } catch (...) {
    try {
      const FailureAnswer failure = answerForFailure(std::current_exception(), address, router);
      return {failure.status, "application/json", common::DataBuffer(errorBody(failure.text))};
    } catch (...) {
      return {500, "application/json",
              common::DataBuffer(std::string_view(R"({"error":"Out of memory"})"))};
    }
  }
}

}  // namespace connector::transport
