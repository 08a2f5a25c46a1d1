// connector/json.hpp: the whole public API of the JSON module and of the host contracts
// it plugs into. Code outside this repository includes only this header.
//
//   #include <connector/json.hpp>
//
//   auto serializer = std::make_shared<connector::json::JsonSerializerImpl>();
//   std::ostringstream out;
//   serializer->serialize(std::make_unique<connector::Message>(), out);
//   // out.str() == R"({"type":"connector/Message"})"
//
// Thread-safety: see each header.
#pragma once

// Futures and promises.
#include "connector/futures/Future.hpp"
#include "connector/futures/FutureStatus.hpp"
#include "connector/futures/MakeFuture.hpp"
#include "connector/futures/Promise.hpp"

// Host contracts.
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Demangle.hpp"
#include "connector/host/DiagnosticLogger.hpp"
#include "connector/host/FutureInstantiations.hpp"
#include "connector/host/IStreamSubscriber.hpp"
#include "connector/host/InProcessLink.hpp"
#include "connector/host/Lifecycle.hpp"
#include "connector/host/Message.hpp"
#include "connector/host/ModuleLogger.hpp"
#include "connector/host/Publisher.hpp"
#include "connector/host/PublisherFromStream.hpp"
#include "connector/host/Router.hpp"
#include "connector/host/ServiceProvider.hpp"
#include "connector/host/Subscriber.hpp"
#include "connector/host/Subscription.hpp"

// Streams.
#include "connector/streams/OneShotPublisher.hpp"
#include "connector/streams/PublisherOf.hpp"
#include "connector/streams/ReduceToDataBuffer.hpp"
#include "connector/streams/ReducingSubscriber.hpp"

// Serializer.
#include "connector/serializer/JsonSerializer.hpp"
#include "connector/serializer/JsonSerializerImpl.hpp"

// Opaque messages, typed dispatch and the two providers of the JSON bridge.
#include "connector/providers/JsonDeserializerServiceProvider.hpp"
#include "connector/providers/JsonSerializerServiceProvider.hpp"
#include "connector/providers/MessageAPI.hpp"
#include "connector/providers/OpaqueMessage.hpp"
#include "connector/providers/OpaqueServiceProvider.hpp"
#include "connector/providers/ServiceMessage.hpp"
#include "connector/providers/ServiceProviderAPI.hpp"

// Message types declared once: converters and JSON Schema from one declaration.
#include "connector/types/Api.hpp"
#include "connector/types/ApiOperation.hpp"
#include "connector/types/Enum.hpp"
#include "connector/types/Field.hpp"
#include "connector/types/MessageType.hpp"
#include "connector/types/Struct.hpp"
#include "connector/types/UnknownMembers.hpp"
#include "connector/types/Variant.hpp"
