// The message types the declared-types tests share: the Order of the shop example's
// documentation (structs in vectors, an optional, an enum, a map) and AllKinds, one member
// of every kind, with the descriptions of both.
//
//   const OrderTypes types;                        // item, priority, order ("shop/Order")
//   types.order.registerWith(*serializer);
//   auto order = std::make_unique<Order>(sampleOrder());
//
// Thread-safety: the descriptions are built once per OrderTypes and then only read.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <connector/json.hpp>

namespace connector::typestest {

struct Item {
  std::string sku;
  int quantity = 0;
};

enum class Priority { Low, Normal, High };

struct Order : connector::Message {
  std::string id;
  std::vector<Item> items;
  std::optional<std::string> note;
  Priority priority = Priority::Normal;
  std::map<std::string, double> weights;
};

// One member of every kind, and containers of them nested.
struct AllKinds : connector::Message {
  bool flag = false;
  std::int8_t i8 = 0;
  std::uint8_t u8 = 0;
  std::int16_t i16 = 0;
  std::uint16_t u16 = 0;
  std::int32_t i32 = 0;
  std::uint32_t u32 = 0;
  std::int64_t i64 = 0;
  std::uint64_t u64 = 0;
  float f32 = 0;
  double f64 = 0;
  std::string text;
  Priority priority = Priority::Low;
  Item item;
  std::optional<Item> maybeItem;
  std::vector<Priority> priorities;
  std::map<std::string, std::optional<Item>> itemsByKey;
  std::vector<std::vector<std::optional<int>>> grid;
  std::map<std::string, std::vector<std::map<std::string, Priority>>> deep;
  std::vector<bool> flags;
  std::optional<std::optional<std::uint64_t>> twice;
};

struct OrderTypes {
  OrderTypes() {
    order.field("id", &Order::id)
        .field("items", &Order::items, item)
        .field("note", &Order::note)
        .field("priority", &Order::priority, priority)
        .field("weights", &Order::weights);
    allKinds.field("flag", &AllKinds::flag)
        .field("i8", &AllKinds::i8)
        .field("u8", &AllKinds::u8)
        .field("i16", &AllKinds::i16)
        .field("u16", &AllKinds::u16)
        .field("i32", &AllKinds::i32)
        .field("u32", &AllKinds::u32)
        .field("i64", &AllKinds::i64)
        .field("u64", &AllKinds::u64)
        .field("f32", &AllKinds::f32)
        .field("f64", &AllKinds::f64)
        .field("text", &AllKinds::text)
        .field("priority", &AllKinds::priority, priority)
        .field("item", &AllKinds::item, item)
        .field("maybeItem", &AllKinds::maybeItem, item)
        .field("priorities", &AllKinds::priorities, priority)
        .field("itemsByKey", &AllKinds::itemsByKey, item)
        .field("grid", &AllKinds::grid)
        .field("deep", &AllKinds::deep, priority)
        .field("flags", &AllKinds::flags)
        .field("twice", &AllKinds::twice);
  }

  json::Struct<Item> item =
      json::Struct<Item>().field("sku", &Item::sku).field("quantity", &Item::quantity);
  json::Enum<Priority> priority = json::Enum<Priority>(
      {{Priority::Low, "low"}, {Priority::Normal, "normal"}, {Priority::High, "high"}});
  json::MessageType<Order> order{"shop/Order"};
  json::MessageType<AllKinds> allKinds{"test/AllKinds"};
};

inline bool operator==(const Item& a, const Item& b) {
  return a.sku == b.sku && a.quantity == b.quantity;
}

}  // namespace connector::typestest
