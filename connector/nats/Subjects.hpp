// connector::nats::subjectFor and addressFor: how an address names a NATS subject and
// back. The address "a/b/c" is the subject "<prefix>.a.b.c"; the prefix ("connector" by
// default) keeps the bridge's subjects apart from anything else on the same server, and
// a listener subscribes to "<prefix>.>" to receive every address.
//
//   connector::nats::subjectFor(connector::Address("shop/ReserveItem"));
//   // "connector.shop.ReserveItem"
//   connector::nats::addressFor("connector.shop.ReserveItem").str();   // "shop/ReserveItem"
//
// The mapping is exact both ways: addressFor(subjectFor(a)) == a for every address it
// accepts. So a segment of an address may not be empty (no leading, trailing or double
// '/') and may not hold what NATS gives a meaning in a subject: '.', the wildcards '*'
// and '>', whitespace, or another control character. A subject token may in addition
// not hold '/', which would read back as two segments.
//
// Thread-safety: plain functions without shared state.
#pragma once

#include <string>

#include "connector/Export.hpp"
#include "connector/host/Address.hpp"

namespace connector::nats {

// The prefix of the bridge's subjects unless an option names another.
inline constexpr const char* kDefaultSubjectPrefix = "connector";

// "<prefix>.<segments joined by '.'>". Throws std::invalid_argument, naming the address:
//   "Address 'shop//x' cannot map to a NATS subject: it has an empty segment"
//   "Address 'a.b/c' cannot map to a NATS subject: segment 'a.b' holds '.'"
// (likewise "holds '*'", "holds '>'", "holds whitespace", "holds a control character"),
// and as checkSubjectPrefix for a prefix that is not valid. Never blocks.
CONNECTOR_API std::string subjectFor(const Address& address,
                                     const std::string& prefix = kDefaultSubjectPrefix);

// The address whose subject is `subject`. Throws std::invalid_argument:
//   "Subject 'other.x' is not under the prefix 'connector'" (nothing after
//   "<prefix>." counts as not under it too)
//   "Subject 'connector.a..b' maps to no address: it has an empty token"
//   "Subject 'connector.a/b' maps to no address: token 'a/b' holds '/'"
// (likewise for the characters subjectFor refuses). Never blocks.
CONNECTOR_API Address addressFor(const std::string& subject,
                                 const std::string& prefix = kDefaultSubjectPrefix);

// Checks that `prefix` is one or more '.'-separated tokens, none of them empty and none
// holding a wildcard, whitespace, a control character or '/'. Throws
// std::invalid_argument "NATS subject prefix 'a..b' is not valid: it has an empty token"
// or "NATS subject prefix 'a*' is not valid: token 'a*' holds '*'".
CONNECTOR_API void checkSubjectPrefix(const std::string& prefix);

}  // namespace connector::nats
