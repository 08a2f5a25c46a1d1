#include "direct/DirectTypesInScope.hpp"

#include "corpus/CorpusTypes.hpp"
#include "shop/ShopTypes.hpp"
#include "types/DeclaredOrder.hpp"
#include "types/DeclaredShipment.hpp"

namespace connector::testing {

namespace {

template <typename T>
void add(DirectDifferential& both, std::vector<TypeInScope>& types,
         const json::MessageType<T>& type) {
  both.declare(type);
  types.push_back({type.name(), type.schema(), [&type](json::JsonSerializerImpl& serializer) {
                     serializer.registerType(type.name(), typeid(T), nullptr, nullptr,
                                             type.directCodec());
                   }});
}

}  // namespace

std::vector<TypeInScope> declareTypesInScope(DirectDifferential& both) {
  static const typestest::OrderTypes orderTypes;
  static const typestest::ShipmentTypes shipmentTypes;
  std::vector<TypeInScope> types;
  const shop::ShopTypes& shopTypes = shop::shopTypes();
  add(both, types, shopTypes.reserveItem);
  add(both, types, shopTypes.reservation);
  add(both, types, shopTypes.cancelOrder);
  add(both, types, shopTypes.orderCancelled);
  add(both, types, orderTypes.order);
  add(both, types, orderTypes.allKinds);
  add(both, types, shipmentTypes.shipment);
  const corpus::CorpusTypes& corpusTypes = corpus::corpusTypes();
  add(both, types, corpusTypes.twitter);
  add(both, types, corpusTypes.citmCatalog);
  add(both, types, corpusTypes.featureCollection);
  return types;
}

}  // namespace connector::testing
