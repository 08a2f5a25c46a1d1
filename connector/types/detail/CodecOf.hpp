// The codec of a member type that needs no description, deduced from the type: bool,
// integers, floating point, std::string, system_clock time points, durations,
// std::vector<std::byte>, and optionals, vectors, sets, arrays and string-keyed maps
// (ordered or not) of these, nested to any depth.
//
//   PlainCodec<std::vector<std::set<int>>> codec;   // VectorCodec<SetCodec<IntegerCodec<int>>>
//
// Thread-safety: compile-time only.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "connector/types/detail/BytesCodec.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/ContainerCodecs.hpp"
#include "connector/types/detail/TimeCodecs.hpp"

namespace connector::json::detail {

template <typename M>
inline constexpr bool unsupportedMember = false;

template <typename M, typename = void>
struct PlainCodecOf {
  static_assert(unsupportedMember<M>,
                "this member type needs its json::Struct, json::Enum or json::Variant as "
                "third argument of field(), or is not a supported member type");
};
template <>
struct PlainCodecOf<bool> {
  using type = BoolCodec;
};
template <typename M>
struct PlainCodecOf<M, std::enable_if_t<isIntegerMember<M>>> {
  using type = IntegerCodec<M>;
};
template <typename M>
struct PlainCodecOf<M, std::enable_if_t<std::is_same_v<M, float> || std::is_same_v<M, double>>> {
  using type = FloatingCodec<M>;
};
template <>
struct PlainCodecOf<std::string> {
  using type = StringCodec;
};
template <typename Duration>
struct PlainCodecOf<std::chrono::time_point<std::chrono::system_clock, Duration>> {
  using type = TimePointCodec<Duration>;
};
template <typename Rep, typename Period>
struct PlainCodecOf<std::chrono::duration<Rep, Period>> {
  using type = DurationCodec<Rep, Period>;
};
template <>
struct PlainCodecOf<std::vector<std::byte>> {
  using type = BytesCodec;
};
template <typename M>
struct PlainCodecOf<std::optional<M>> {
  using type = OptionalCodec<typename PlainCodecOf<M>::type>;
};
template <typename M>
struct PlainCodecOf<std::vector<M>> {
  using type = VectorCodec<typename PlainCodecOf<M>::type>;
};
template <typename M>
struct PlainCodecOf<std::set<M>> {
  using type = SetCodec<typename PlainCodecOf<M>::type>;
};
template <typename M, std::size_t N>
struct PlainCodecOf<std::array<M, N>> {
  using type = FixedArrayCodec<typename PlainCodecOf<M>::type, N>;
};
template <typename M>
struct PlainCodecOf<std::map<std::string, M>> {
  using type = MapCodec<typename PlainCodecOf<M>::type>;
};
template <typename M>
struct PlainCodecOf<std::unordered_map<std::string, M>> {
  using type = UnorderedMapCodec<typename PlainCodecOf<M>::type>;
};

template <typename M>
using PlainCodec = typename PlainCodecOf<M>::type;

}  // namespace connector::json::detail
