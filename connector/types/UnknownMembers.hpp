// connector::json::UnknownMembers: the members of a JSON object that its declared type
// does not declare, kept by json::Struct::keepUnknownMembers and
// json::MessageType::keepUnknownMembers so that they survive a pass through a service
// that does not know them.
//
//   struct Order : connector::Message { std::string id; json::UnknownMembers unknown; };
//   order.field("id", &Order::id).keepUnknownMembers(&Order::unknown);
//   // {"id":"A","colour":"red","size":[1,2]} reads to
//   //   unknown == {{"colour", "\"red\""}, {"size", "[1,2]"}}
//
// Each entry is a member's name and its value as compact JSON text, written as this
// library writes JSON (object members sorted by name, numbers in their shortest form);
// entries are sorted bytewise by name. Writing puts them after the declared members, in
// the vector's order.
//
// Thread-safety: a plain value.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace connector::json {

using UnknownMembers = std::vector<std::pair<std::string, std::string>>;

}  // namespace connector::json
